#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/MovableClock.h"
#include "Tests/Acceptance/SystemBus.h"
#include "Tests/Acceptance/Wait.h"

// The agent and its commands under valgrind: no error, no leak, and no descriptor left but the
// three that every program has.

namespace ombrix::tests {

namespace {

constexpr const char* report = "/tmp/valgrind.report";
constexpr int errorsFound = 99;

// A process that leaves by exit() leaves it to the kernel to take back what it still has.
enum class End { inOrder, byExit };

Launch underValgrind(Launch launch, End end = End::inOrder) {
  const std::string leaks = end == End::inOrder ? "all" : "definite,indirect,possible";
  launch.arguments.front() = launch.executable;
  launch.arguments.insert(
      launch.arguments.begin(),
      {"valgrind", "--quiet", "--error-exitcode=" + std::to_string(errorsFound),
       "--leak-check=full", "--show-leak-kinds=" + leaks, "--errors-for-leak-kinds=" + leaks,
       "--track-fds=yes", std::string("--log-file=") + report});
  launch.executable = VALGRIND_EXECUTABLE;
  return launch;
}

// Errors and leaks show in the exit status; of descriptors it only tells. One is its own.
void expectNoDescriptorLeft() {
  const std::string text = contentsOf(report);
  EXPECT_TRUE(contains(text, "FILE DESCRIPTORS: 4 open (3 std) at exit.")) << text;
  EXPECT_TRUE(contains(text, std::string("Open file descriptor 3: ") + report)) << text;
}

void expectNoError(Program& program, int status) {
  EXPECT_EQ(program.waitForExit(), status) << contentsOf(report) << program.errors();
}

void expectClean(Program& program) {
  expectNoError(program, 0);
  expectNoDescriptorLeft();
}

class Valgrind : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(VALGRIND_EXECUTABLE)) GTEST_SKIP() << "valgrind is not installed";
  }
};

}  // namespace

TEST_F(Valgrind, FindsNothingInAFullLife) {
  const SystemBus bus;
  const Logind logind;
  const Home home;
  Settings settings = home.settings();
  settings.level = "verbose";
  settings.maxSize = "1";
  home.configure(configurationText(settings));
  Agent agent(home, underValgrind(withMovableClock()));
  ASSERT_TRUE(agent.hasStarted() && logind.waitForLocks(1));
  ASSERT_TRUE(agent.meterProgram("editor"));
  EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  logind.announce(true);
  ASSERT_TRUE(logind.waitForLocks(0));
  passAsleep(20 * 3600);
  logind.announce(false);
  ASSERT_TRUE(logind.waitForLocks(1));
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  expectClean(agent);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_FALSE(home.list().empty());
}

TEST_F(Valgrind, FindsNothingInALifeAmongFaults) {
  const Home home;
  Agent agent(home, underValgrind(ombrix()));
  ASSERT_TRUE(agent.hasStarted());
  std::filesystem::remove_all(home.storage());
  std::filesystem::remove_all("/tmp/home/log");
  ASSERT_TRUE(agent.meterProgram("editor"));
  agent.signal(SIGTERM);
  expectClean(agent);
}

TEST_F(Valgrind, FindsNothingInAnAgentThatGivesWay) {
  Agent first(Home("/tmp/first"));
  ASSERT_TRUE(first.hasStarted());
  Agent second(Home("/tmp/second"), underValgrind(ombrix(), End::byExit));
  expectNoError(second, 1);
}

TEST_F(Valgrind, FindsNothingInTheCommands) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  for (const char* word : {"-v", "-vnum", "list", "prepforupgrade", "stop"}) {
    SCOPED_TRACE(word);
    Program command(underValgrind(ombrix({word})));
    expectClean(command);
  }
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST_F(Valgrind, FindsNothingInStartsThatFail) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"-c"}, std::vector<std::string>{"-c", "/tmp/nowhere"},
        std::vector<std::string>{}}) {
    Program program(underValgrind(ombrix(words), End::byExit));
    expectNoError(program, 1);
  }
}

}  // namespace ombrix::tests
