#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <sstream>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Stranger.h"
#include "Tests/Acceptance/Wait.h"

// What another user may send to root's agent, and how little comes of it.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* runtimeFolder = "/run/ombrix";

std::vector<std::string> allSockets() {
  std::vector<std::string> paths;
  for (const std::string& name : namesIn(runtimeFolder)) {
    paths.push_back(std::string(runtimeFolder) + "/" + name);
  }
  return paths;
}

// Sends every notification there is to every socket there is.
void sendEverythingEverywhere() {
  for (const std::string& path : allSockets()) {
    for (const char* name : {"Stop", "List", "LaunchResponse", "LaunchCall"}) {
      sendDatagram(path, notificationNamed(name));
    }
  }
}

// The agent has two sockets for calls: its own user's and root's, and everybody's.
std::string callSocket(bool isPublic) {
  for (const std::string& path : socketsOf("LaunchCall")) {
    if (path.ends_with(".public") == isPublic) return path;
  }
  return {};
}
std::string publicSocket() { return callSocket(true); }

long cpuTicks(pid_t process) {
  const std::string stat = contentsOf("/proc/" + std::to_string(process) + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(") ") + 2));
  std::string skipped;
  for (int i = 0; i < 11; ++i) fields >> skipped;
  long inUser = 0;
  long inKernel = 0;
  fields >> inUser >> inKernel;
  return inUser + inKernel;
}

class Strangers : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
    agent.emplace(home);
    ASSERT_TRUE(agent->hasStarted() && agent->isWaiting());
  }

  // The agent still polls, has not been told to stop, and ends when root says so.
  void expectUnharmed() {
    ASSERT_TRUE(agent->poll() && agent->poll());
    EXPECT_FALSE(contains(home.log(), "Caught stop notification"));
    EXPECT_EQ(agent->stop(), 0);
    EXPECT_EQ(occurrences(home.log(), "Caught stop notification"), 1U);
  }

  // Brings a poll about without asking for a list.
  void pollWithoutAList() {
    const std::size_t before = agent->polls();
    sendDatagram(callSocket(false), notificationNamed("LaunchCall"));
    ASSERT_TRUE(agent->waitForPolls(before + 1));
  }

  const Home home;
  std::optional<Agent> agent;
};

}  // namespace

TEST_F(Strangers, StopCommandOfAnotherUserIsNotHeard) {
  const Outcome stop = run(ombrixOf(stranger, {"stop"}));
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.errors, "Shutting down Ombrix.\n");
  expectUnharmed();
}

TEST_F(Strangers, TenThousandStopsEndNothingAndCostLittle) {
  const long workBefore = cpuTicks(agent->id());
  EXPECT_TRUE(asUser(stranger, [] {
    const std::vector<std::string> sockets = allSockets();
    for (int i = 0; i < 10000; ++i) {
      for (const std::string& path : sockets) sendDatagram(path, notificationNamed("Stop"));
    }
    return sockets.size() == 5;
  }));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(run(ombrixOf(stranger, {"stop"})).status, 0);
  EXPECT_LT(cpuTicks(agent->id()) - workBefore, ::sysconf(_SC_CLK_TCK));
  expectUnharmed();
}

TEST_F(Strangers, ListCommandOfAnotherUserIsNotHeard) {
  EXPECT_EQ(run(ombrixOf(stranger, {"list"})).status, 0);
  pollWithoutAList();
  pollWithoutAList();
  EXPECT_FALSE(fs::exists(home.storage() + "/processes.list"));
  expectUnharmed();
}

TEST_F(Strangers, OnlyThePublicCallSocketTakesWhatAnotherUserSends) {
  for (const std::string& path : allSockets()) {
    SCOPED_TRACE(path);
    const int expected = path == publicSocket() ? 0 : EACCES;
    EXPECT_TRUE(asUser(stranger, [&] { return sendDatagram(path, "anything") == expected; }));
  }
  expectUnharmed();
}

// The mode of a socket is one guard, and the sender's name by the kernel is another.
TEST_F(Strangers, AreNotHeardAtASocketThatSomebodyOpenedToAll) {
  for (const char* name : {"Stop", "List", "LaunchResponse"}) {
    const std::string path = socketsOf(name).at(0);
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    EXPECT_TRUE(asUser(stranger, [&] { return sendDatagram(path, notificationNamed(name)) == 0; }));
  }
  pollWithoutAList();
  EXPECT_FALSE(fs::exists(home.storage() + "/processes.list"));
  expectUnharmed();
}

TEST_F(Strangers, OtherNotificationsAtTheCallSocketMeanNothing) {
  for (const char* name : {"Stop", "List", "LaunchResponse"}) {
    EXPECT_TRUE(asUser(stranger,
                       [&] { return sendDatagram(publicSocket(), notificationNamed(name)) == 0; }));
  }
  pollWithoutAList();
  EXPECT_FALSE(fs::exists(home.storage() + "/processes.list"));
  expectUnharmed();
}

TEST_F(Strangers, GarbageAtTheCallSocketMeansNothing) {
  const std::string call = notificationNamed("LaunchCall");
  const std::size_t before = agent->polls();
  for (const std::string& bytes : {std::string(), std::string("garbage"), call + "x", call + '\0',
                                   std::string(65536, 'x'), call + std::string(65536, '\0')}) {
    EXPECT_TRUE(asUser(stranger, [&] {
      return eventually([&] { return sendDatagram(publicSocket(), bytes) == 0; });
    }));
  }
  ASSERT_TRUE(agent->poll());
  EXPECT_EQ(agent->polls(), before + 1);
  expectUnharmed();
}

TEST_F(Strangers, MayNeitherRemoveNorAddSockets) {
  EXPECT_TRUE(asUser(stranger, [] {
    return ::unlink(publicSocket().c_str()) != 0 &&
           bindSocket(std::string(runtimeFolder) + "/com.velkworks.Ombrix2.Stop.1.1") < 0;
  }));
  EXPECT_EQ(allSockets().size(), 5U);
  expectUnharmed();
}

TEST_F(Strangers, AnswersToALaunchCallEndNoAgentThatStarts) {
  ASSERT_EQ(agent->stop(), 0);
  const Pest pest(stranger, sendEverythingEverywhere);
  const Home other("/tmp/other");
  Agent starting(other);
  ASSERT_TRUE(starting.hasStarted());
  ASSERT_TRUE(pest.waitForMoreRounds(20));
  ASSERT_TRUE(starting.poll() && starting.poll());
  EXPECT_FALSE(contains(other.log(), "already running"));
  EXPECT_EQ(starting.stop(), 0);
}

TEST_F(Strangers, FloodOfCallsCausesFewPollsAndLittleWork) {
  const std::size_t pollsBefore = agent->polls();
  const long workBefore = cpuTicks(agent->id());
  const auto begin = std::chrono::steady_clock::now();
  {
    const std::string path = publicSocket();
    const Pest pest(stranger, [&] { sendDatagram(path, notificationNamed("LaunchCall")); });
    ASSERT_TRUE(pest.waitForMoreRounds(100000));
  }
  const auto elapsed = std::chrono::steady_clock::now() - begin;
  // Five calls in ten seconds, each of which is heard twice: it, and the agent's own answer.
  const auto allowed = 10 * (1 + static_cast<std::size_t>(elapsed / std::chrono::seconds(10)));
  EXPECT_LE(agent->polls() - pollsBefore, allowed + 1);
  EXPECT_LT(cpuTicks(agent->id()) - workBefore, ::sysconf(_SC_CLK_TCK));
  expectUnharmed();
}

TEST_F(Strangers, FloodDelaysNoAnswerToRootsSecondAgent) {
  const std::string path = publicSocket();
  const Pest pest(stranger, [&] { sendDatagram(path, notificationNamed("LaunchCall")); });
  const Pest other(otherStranger, [&] { sendDatagram(path, "noise"); });
  ASSERT_TRUE(pest.waitForMoreRounds(1000));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  expectUnharmed();
}

TEST_F(Strangers, FloodDelaysNoCommandOfRoots) {
  const std::string path = publicSocket();
  const Pest pest(stranger, [&] { sendDatagram(path, notificationNamed("LaunchCall")); });
  ASSERT_TRUE(pest.waitForMoreRounds(1000));
  EXPECT_EQ(run(ombrix({"list"})).errors, "");
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(agent->stop(), 0);
}

TEST_F(Strangers, FloodDelaysNoSignal) {
  const std::string path = publicSocket();
  const Pest pest(stranger, [&] { sendDatagram(path, notificationNamed("LaunchCall")); });
  ASSERT_TRUE(pest.waitForMoreRounds(1000));
  agent->signal(SIGTERM);
  EXPECT_EQ(agent->waitForExit(), 0);
}

TEST_F(Strangers, DescriptorsThatComeWithADatagramAreNotKept) {
  const std::string folder = "/proc/" + std::to_string(agent->id()) + "/fd";
  const std::size_t before = namesIn(folder).size();
  const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  const std::string call = notificationNamed("LaunchCall");
  for (const std::string& bytes : {call, std::string(), std::string(4096, 'x')}) {
    EXPECT_TRUE(asUser(stranger, [&] {
      return sendDatagramWithDescriptor(publicSocket(), bytes, descriptor) == 0;
    }));
  }
  pollWithoutAList();
  EXPECT_EQ(namesIn(folder).size(), before);
  expectUnharmed();
}

TEST_F(Strangers, CallOfAnotherUserIsAnswered) {
  const Home theirs("/tmp/theirs", stranger);
  Agent second(theirs, ombrixOf(stranger));
  EXPECT_EQ(second.waitForExit(), 1);
  EXPECT_TRUE(contains(theirs.log(), "[Alert]\tOmbrix is already running."));
  expectUnharmed();
}

// Garbage from one's own user is the same as from anybody else's.
TEST(Garbage, IsIgnoredWhateverItsLength) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  const std::string stop = notificationNamed("Stop");
  const std::vector<std::string> rows = {
      "",
      "garbage",
      stop.substr(1),
      stop.substr(0, stop.size() - 1),
      stop + "x",
      stop + '\0',
      '\0' + stop,
      notificationNamed("STOP"),
      stop + " ",
      stop + "\n" + stop,
      std::string(65536, 'x'),
      stop + std::string(65536, '\0'),
  };
  for (const std::string& path : allSockets()) {
    for (const std::string& bytes : rows) {
      ASSERT_TRUE(eventually([&] { return sendDatagram(path, bytes) == 0; })) << path;
    }
  }
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_FALSE(contains(home.log(), "Caught stop notification"));
  EXPECT_FALSE(contains(home.log(), "already running"));
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace ombrix::tests
