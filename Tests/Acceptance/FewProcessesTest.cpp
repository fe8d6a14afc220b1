#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Tests/Acceptance/Agent.h"

// The agent where there is almost nobody else: in a container of its own.

namespace ombrix::tests {

namespace {

// Starts the agent as process 2 of another machine, whose process 1 waits for it and whose
// further processes are `neighbours` many. Returns its exit status.
int runWithNeighbours(const Home& home, int neighbours) {
  const pid_t outer = ::fork();
  if (outer == 0) {
    if (::unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) ::_exit(100);
    const pid_t first = ::fork();
    if (first == 0) {
      if (::mount("proc", "/proc", "proc", 0, nullptr) != 0) ::_exit(101);
      for (int i = 0; i < neighbours; ++i) {
        if (::fork() == 0) {
          for (;;) ::pause();
        }
      }
      Agent agent(home);
      ::_exit(agent.waitForExit().value_or(102));
    }
    int status = 0;
    ::waitpid(first, &status, 0);
    ::_exit(WEXITSTATUS(status));
  }
  int status = 0;
  ::waitpid(outer, &status, 0);
  return WEXITSTATUS(status);
}

}  // namespace

TEST(FewProcesses, TwoEndTheAgentWithoutARecord) {
  const Home home;
  Settings settings = home.settings();
  settings.level = "trace";
  home.configure(configurationText(settings));
  EXPECT_EQ(runWithNeighbours(home, 0), 1);
  EXPECT_TRUE(home.records().empty());
  EXPECT_TRUE(contains(home.log(),
                       "[Debug]\tOmbrix: Found a problem with the context in which Ombrix is run. "
                       "Restarting.\n"));
  EXPECT_FALSE(contains(home.log(), "Writing metering data"));
}

TEST(FewProcesses, EndOfTheAgentLeavesNoSockets) {
  const Home home;
  EXPECT_EQ(runWithNeighbours(home, 0), 1);
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

}  // namespace ombrix::tests
