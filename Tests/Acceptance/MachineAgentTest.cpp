#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Stranger.h"
#include "Tests/Acceptance/Wait.h"

// The agent of the whole machine where root lets an ordinary user run it, as a package does: it is
// found by all, and only root and its own user may command it.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr uid_t appointed = stranger;
constexpr const char* folder = "/run/ombrix/agent";
constexpr const char* alreadyRunning = "[Alert]\tOmbrix is already running.";

class MachineAgent : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
    fs::create_directories(folder);
    ASSERT_EQ(::chown(folder, appointed, appointed), 0);
    agent.emplace(home, ombrixOf(appointed));
    ASSERT_TRUE(agent->hasStarted() && agent->isWaiting());
  }

  // It goes on, and ends when root says so.
  void expectUnharmed() {
    ASSERT_TRUE(agent->poll() && agent->poll());
    EXPECT_FALSE(contains(home.log(), alreadyRunning));
    EXPECT_EQ(agent->stop(), 0);
  }

  const Home home{"/tmp/home", appointed};
  std::optional<Agent> agent;
};

}  // namespace

TEST_F(MachineAgent, HasItsSocketsInTheFolderThatRootMadeForIt) {
  EXPECT_EQ(agent->runtimeFolder(), folder);
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_TRUE(namesIn(folder).empty());
}

TEST_F(MachineAgent, IsStoppedAndListedByRoot) {
  EXPECT_EQ(run(ombrix({"list"})).status, 0);
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  EXPECT_EQ(agent->waitForExit(), 0);
}

TEST_F(MachineAgent, IsStoppedAndListedByItsOwnUser) {
  EXPECT_EQ(run(ombrixOf(appointed, {"list"})).status, 0);
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(run(ombrixOf(appointed, {"stop"})).status, 0);
  EXPECT_EQ(agent->waitForExit(), 0);
}

TEST_F(MachineAgent, IsNotCommandedByOthers) {
  EXPECT_EQ(run(ombrixOf(otherStranger, {"stop"})).status, 0);
  EXPECT_EQ(run(ombrixOf(otherStranger, {"list"})).status, 0);
  for (const char* name : {"Stop", "List", "LaunchResponse"}) {
    const std::string path = socketsOf(name, folder).at(0);
    EXPECT_TRUE(asUser(otherStranger,
                       [&] { return sendDatagram(path, notificationNamed(name)) == EACCES; }));
  }
  EXPECT_FALSE(fs::exists(home.storage() + "/processes.list"));
  expectUnharmed();
}

TEST_F(MachineAgent, AgentOfAnyUserYieldsToIt) {
  for (const uid_t user : {uid_t{0}, appointed, otherStranger}) {
    SCOPED_TRACE(user);
    const Home second("/tmp/second" + std::to_string(user), user);
    EXPECT_EQ(Agent(second, ombrixOf(user)).waitForExit(), 1);
    EXPECT_EQ(occurrences(second.log(), alreadyRunning), 1U);
  }
  expectUnharmed();
}

TEST_F(MachineAgent, LeavesNothingOfItsAnswersBehind) {
  const std::size_t before = namesIn(folder).size();
  EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  EXPECT_EQ(namesIn(folder).size(), before);
  expectUnharmed();
}

TEST_F(MachineAgent, AnswersThoughAKilledOneLeftItsAnswerBehind) {
  writeFile(std::string(folder) + "/" + notificationNamed("LaunchResponse") + ".announced", "");
  EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  expectUnharmed();
}

// The others have started while it was away.
TEST_F(MachineAgent, ItsUserCommandsNobodyElsesAgent) {
  ASSERT_EQ(agent->stop(), 0);
  for (const uid_t user : {uid_t{0}, otherStranger}) {
    SCOPED_TRACE(user);
    const Home otherHome("/tmp/other" + std::to_string(user), user);
    Agent other(otherHome, ombrixOf(user));
    ASSERT_TRUE(other.hasStarted());
    EXPECT_EQ(run(ombrixOf(appointed, {"stop"})).status, 0);
    EXPECT_EQ(run(ombrixOf(appointed, {"list"})).status, 0);
    ASSERT_TRUE(other.poll());
    EXPECT_EQ(occurrences(otherHome.log(), "Trying to write a list"), 1U);  // the test's own
    EXPECT_FALSE(contains(otherHome.log(), "Caught stop notification"));
    EXPECT_EQ(other.stop(), 0);
  }
}

TEST_F(MachineAgent, YieldsToRootsAgent) {
  ASSERT_EQ(agent->stop(), 0);
  Agent roots(Home("/tmp/roots"));
  ASSERT_TRUE(roots.hasStarted());
  EXPECT_EQ(Agent(home, ombrixOf(appointed)).waitForExit(), 1);
  EXPECT_TRUE(contains(home.log(), alreadyRunning));
  EXPECT_EQ(roots.stop(), 0);
}

TEST_F(MachineAgent, StartsAlthoughAnOrdinaryUsersAgentRuns) {
  ASSERT_EQ(agent->stop(), 0);
  Agent other(Home("/tmp/other", otherStranger), ombrixOf(otherStranger));
  ASSERT_TRUE(other.hasStarted());
  Agent again(home, ombrixOf(appointed));
  ASSERT_TRUE(again.poll() && again.poll());
  EXPECT_TRUE(again.isRunning());
  EXPECT_EQ(again.stop(), 0);
}

}  // namespace ombrix::tests
