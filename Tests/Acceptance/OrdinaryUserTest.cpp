#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Stranger.h"
#include "Tests/Acceptance/Wait.h"

// Agents of ordinary users, who have no part in the machine's own folder.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* sessionFolder = "/run/user/12345";
constexpr const char* inSession = "/run/user/12345/ombrix";
constexpr const char* inTemporaryFolder = "/tmp/ombrix-12345";

void makeSessionFolder() {
  fs::create_directories(sessionFolder);
  ASSERT_EQ(::chown(sessionFolder, stranger, stranger), 0);
  ASSERT_EQ(::chmod(sessionFolder, 0700), 0);
}

Launch inASession(Launch launch) {
  launch.environment.push_back(std::string("XDG_RUNTIME_DIR=") + sessionFolder);
  return launch;
}

mode_t modeOf(const char* path) {
  struct stat status {};
  EXPECT_EQ(::stat(path, &status), 0) << path;
  return status.st_mode & 07777U;
}

// Whether the user's agent has its sockets in a session's folder or in the temporary one.
class OrdinaryUser : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
    if (hasSession()) makeSessionFolder();
  }

  static bool hasSession() { return GetParam(); }
  static Launch launch(const std::vector<std::string>& words = {}) {
    return hasSession() ? inASession(ombrixOf(stranger, words)) : ombrixOf(stranger, words);
  }
  static const char* folder() { return hasSession() ? inSession : inTemporaryFolder; }

  const Home home{"/tmp/home", stranger};
};

}  // namespace

TEST_P(OrdinaryUser, MetersFromAFolderOfItsOwn) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.runtimeFolder(), folder());
  EXPECT_EQ(modeOf(folder()), 0700U);
  EXPECT_EQ(run(launch({"stop"})).status, 0);
  EXPECT_EQ(agent.waitForExit(), 0);
  EXPECT_EQ(home.records().size(), 3U);
  EXPECT_TRUE(namesIn(folder()).empty());
}

TEST_P(OrdinaryUser, MayListItsOwnAgent) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(run(launch({"list"})).status, 0);
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, ReachesItsOwnAgentWithoutTheSessionsEnvironment) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(run(ombrixOf(stranger, {"stop"})).status, 0);
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST_P(OrdinaryUser, AgentIsStoppedByRoot) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST_P(OrdinaryUser, AgentIsListedByRoot) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(run(ombrix({"list"})).status, 0);
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, AgentIsNotStoppedByAThirdUser) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(run(ombrixOf(otherStranger, {"stop"})).status, 0);
  EXPECT_EQ(run(inASession(ombrixOf(otherStranger, {"stop"}))).status, 0);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_TRUE(agent.isRunning());
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, SocketsAreOutOfReachOfAThirdUser) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  for (const char* name : {"Stop", "List", "LaunchCall", "LaunchResponse"}) {
    for (const std::string& path : socketsOf(name, folder())) {
      EXPECT_TRUE(asUser(otherStranger, [&] { return sendDatagram(path, "x") == EACCES; })) << path;
    }
  }
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, SecondAgentOfTheSameUserEnds) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(Agent(Home("/tmp/second", stranger), launch()).waitForExit(), 1);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, AgentEndsWhenRootsAnswers) {
  const Home roots("/tmp/roots");
  Agent agent(roots);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(Agent(home, launch()).waitForExit(), 1);
  EXPECT_TRUE(contains(home.log(), "[Alert]\tOmbrix is already running."));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, AgentEndsWhenRootsAnswersWhateverRootsUmask) {
  Launch strict = ombrix();
  strict.beforeExec = [] { ::umask(077); };
  Agent agent(Home("/tmp/roots"), strict);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(Agent(home, launch()).waitForExit(), 1);
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(OrdinaryUser, AgentKeepsNoneOfRootsFromStarting) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  const Home roots("/tmp/roots");
  Agent later(roots);
  ASSERT_TRUE(later.poll() && later.poll());
  EXPECT_TRUE(later.isRunning());
  EXPECT_EQ(later.stop(), 0);
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST_P(OrdinaryUser, AgentsOfTwoUsersDoNotKnowEachOther) {
  Agent agent(home, launch());
  ASSERT_TRUE(agent.hasStarted());
  Agent other(Home("/tmp/other", otherStranger), ombrixOf(otherStranger));
  ASSERT_TRUE(other.poll() && other.poll());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(run(ombrixOf(otherStranger, {"stop"})).status, 0);
  EXPECT_EQ(other.waitForExit(), 0);
  EXPECT_TRUE(agent.isRunning());
  EXPECT_EQ(agent.stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(With, OrdinaryUser, ::testing::Bool(),
                         [](const auto& row) { return row.param ? "ASession" : "NoSession"; });

TEST(OrdinaryUsersFolder, PlantedByAnotherUserIsNotUsed) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  EXPECT_TRUE(asUser(otherStranger, [] {
    return ::mkdir(inTemporaryFolder, 0777) == 0 && ::chmod(inTemporaryFolder, 0777) == 0;
  }));
  const Home home("/tmp/home", stranger);
  Agent agent(home, ombrixOf(stranger));
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_TRUE(namesIn(inTemporaryFolder).empty());
  EXPECT_TRUE(contains(agent.errors(), "No notifications can be received"));
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.waitForExit(), 0);
}

}  // namespace ombrix::tests
