#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Wait.h"

// Agents that are started with few, full or missing descriptors.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

Launch withClosed(const std::vector<int>& descriptors) {
  Launch launch = ombrix();
  launch.beforeExec = [descriptors] {
    for (const int descriptor : descriptors) ::close(descriptor);
  };
  return launch;
}

// An agent whose standard error is not kept shows by its list that it is there.
bool lists(const Home& home) {
  return eventually(
      [&] { return run(ombrix({"list"})).status == 0 && home.list().starts_with("#01 - ["); });
}

void expectOnlyWholeRecords(const Home& home) {
  for (const Record& record : home.records()) EXPECT_FALSE(record.start.empty()) << record.line;
  for (const std::string& line : linesOf(home.log())) {
    EXPECT_TRUE(contains(line, " - [")) << line;
    EXPECT_FALSE(contains(line, "Number of registered processes")) << line;
  }
  for (const std::string& line : linesOf(home.list())) EXPECT_TRUE(line.starts_with("#")) << line;
}

std::string targetOf(const Program& program, int descriptor) {
  return fs::read_symlink("/proc/" + std::to_string(program.id()) + "/fd/" +
                          std::to_string(descriptor));
}

// A pipe that holds all that it can.
std::array<int, 2> fullPipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
  const std::array<char, 4096> block{};
  while (::write(ends[1], block.data(), block.size()) > 0) continue;
  ::fcntl(ends[1], F_SETFL, 0);
  return ends;
}

Launch withStandardError(int descriptor) {
  Launch launch = ombrix();
  launch.beforeExec = [descriptor] { ::dup2(descriptor, STDERR_FILENO); };
  return launch;
}

}  // namespace

TEST(Descriptors, ClosedStandardOnesAreFilledWithNothing) {
  for (const std::vector<int>& closed :
       {std::vector{0, 1, 2}, std::vector{0}, std::vector{1}, std::vector{2}, std::vector{0, 2}}) {
    const Home home;
    Agent agent(home, withClosed(closed));
    ASSERT_TRUE(lists(home));
    for (const int descriptor : closed) EXPECT_EQ(targetOf(agent, descriptor), "/dev/null");
    EXPECT_EQ(agent.stop(), 0);
    expectOnlyWholeRecords(home);
    fs::remove_all("/tmp/home");
  }
}

TEST(Descriptors, CommandsBearClosedOnes) {
  for (const char* word : {"-v", "list", "stop", "prepforupgrade"}) {
    Launch launch = withClosed({0, 1, 2});
    launch.arguments.emplace_back(word);
    EXPECT_EQ(run(launch).status, 0) << word;
  }
}

TEST(Descriptors, StandardErrorThatNobodyReadsHoldsNothingUp) {
  const Home home;
  const std::array<int, 2> pipe = fullPipe();
  Agent agent(home, withStandardError(pipe[1]));
  ASSERT_TRUE(lists(home));
  EXPECT_EQ(agent.stop(), 0);
  expectOnlyWholeRecords(home);
  EXPECT_FALSE(home.records().empty());
}

TEST(Descriptors, StandardErrorWhoseReaderHasGoneEndsNothing) {
  const Home home;
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  ::close(pipe[0]);
  Agent agent(home, withStandardError(pipe[1]));
  ::close(pipe[1]);
  ASSERT_TRUE(lists(home));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(home.records().empty());
}

TEST(Descriptors, ReaderThatGoesLaterEndsNothing) {
  const Home home;
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  Agent agent(home, withStandardError(pipe[1]));
  ::close(pipe[1]);
  ASSERT_TRUE(lists(home));
  ::close(pipe[0]);
  ASSERT_TRUE(lists(home));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Descriptors, FullDeviceAsStandardErrorEndsNothing) {
  const Home home;
  const int device = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  Agent agent(home, withStandardError(device));
  ASSERT_TRUE(lists(home));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Descriptors, PollsAndListsKeepNoneOpen) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  const std::string folder = "/proc/" + std::to_string(agent.id()) + "/fd";
  const std::size_t before = namesIn(folder).size();
  for (int i = 0; i < 20; ++i) {
    Program program(idler("/tmp/tools/editor"));
    ASSERT_TRUE(agent.poll());
    EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  }
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(namesIn(folder).size(), before);
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Descriptors, NoneIsInheritedByMistake) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  const std::string process = "/proc/" + std::to_string(agent.id());
  for (const std::string& name : namesIn(process + "/fd")) {
    if (name.size() == 1 && name <= "2") continue;
    const std::string info = contentsOf(process + "/fdinfo/" + name);
    const std::size_t flags = std::stoul(info.substr(info.find("flags:") + 6), nullptr, 8);
    EXPECT_NE(flags & O_CLOEXEC, 0U) << fs::read_symlink(process + "/fd/" + name);
  }
  EXPECT_EQ(agent.stop(), 0);
}

// It can open nothing, but it can see that the processes it knows are still there.
TEST(Descriptors, AgentThatRunsOutOfThemLosesNoRun) {
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  const std::size_t open = namesIn("/proc/" + std::to_string(agent.id()) + "/fd").size();
  rlimit before{};
  ASSERT_EQ(::prlimit(agent.id(), RLIMIT_NOFILE, nullptr, &before), 0);
  const rlimit none{open, before.rlim_max};
  ASSERT_EQ(::prlimit(agent.id(), RLIMIT_NOFILE, &none, nullptr), 0);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_TRUE(contains(agent.errors(), "Failed to open file for writing"));
  ASSERT_EQ(::prlimit(agent.id(), RLIMIT_NOFILE, &before, nullptr), 0);
  ASSERT_TRUE(agent.poll());
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

}  // namespace ombrix::tests
