#include <gtest/gtest.h>

#include <csignal>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Wait.h"

// How the agent ends. Every deadline here is well within the minute until its next poll.

namespace ombrix::tests {

namespace {

constexpr const char* askedToTerminate = " - [Notice]\tThe process was asked to terminate.\n";
constexpr const char* caughtStop = " - [Notice]\tCaught stop notification. Shutting down.\n";
constexpr const char* writingAll = " - [Info]\tWriting metering data for all processes.\n";
constexpr const char* shuttingDown = " - [Info]\tShutting down Ombrix\n";

// The agent ended well: it has written its three open runs, and has left nothing behind.
void expectCleanEnd(const Home& home) {
  EXPECT_EQ(home.records().size(), 3U);
  const std::string log = home.log();
  EXPECT_EQ(occurrences(log, writingAll), 1U) << log;
  EXPECT_EQ(occurrences(log, shuttingDown), 1U) << log;
  EXPECT_LT(log.find(writingAll), log.find(shuttingDown));
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

Launch withSignalsBlocked() {
  Launch launch = ombrix();
  launch.beforeExec = [] {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, nullptr);
  };
  return launch;
}

class EndBySignal : public ::testing::TestWithParam<int> {};

}  // namespace

TEST(End, StopCommandWritesEveryOpenRun) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  expectCleanEnd(home);
  EXPECT_TRUE(contains(home.log(), caughtStop));
  EXPECT_FALSE(contains(home.log(), askedToTerminate));
}

TEST(End, StopCommandWorksFromAnyWorkingDirectory) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Launch stop = ombrix({"stop"});
  stop.directory = "/proc";
  EXPECT_EQ(run(stop).status, 0);
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST(End, StopCommandOfTheSameOrdinaryUserWorks) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  const Home home("/tmp/home", stranger);
  Agent agent(home, ombrixOf(stranger));
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(run(ombrixOf(stranger, {"stop"})).status, 0);
  EXPECT_EQ(agent.waitForExit(), 0);
  EXPECT_EQ(home.records().size(), 3U);
}

TEST(End, StopCommandReachesNoAgentThatStartsLater) {
  const Home home;
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  Agent agent(home);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_TRUE(agent.isRunning());
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(EndBySignal, WritesEveryOpenRunAtOnce) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  agent.signal(GetParam());
  EXPECT_EQ(agent.waitForExit(), 0);
  expectCleanEnd(home);
  EXPECT_EQ(occurrences(home.log(), askedToTerminate), 1U);
  EXPECT_FALSE(contains(home.log(), caughtStop));
}

TEST_P(EndBySignal, IsHeardWhenItCameBeforeTheFirstWait) {
  const Home home;
  Agent agent(home, withSignalsBlocked());
  agent.signal(GetParam());
  EXPECT_EQ(agent.waitForExit(), 0);
  expectCleanEnd(home);
}

TEST_P(EndBySignal, IsHeardWhenTheParentIgnoredIt) {
  const Home home;
  Launch launch = ombrix();
  launch.beforeExec = [] { std::signal(GetParam(), SIG_IGN); };
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  agent.signal(GetParam());
  EXPECT_EQ(agent.waitForExit(), 0);
  expectCleanEnd(home);
}

INSTANTIATE_TEST_SUITE_P(Each, EndBySignal, ::testing::Values(SIGTERM, SIGINT, SIGQUIT),
                         [](const auto& row) {
                           return std::string(row.param == SIGTERM  ? "SIGTERM"
                                              : row.param == SIGINT ? "SIGINT"
                                                                    : "SIGQUIT");
                         });

TEST(End, SignalAndStopTogetherAreBothNamed) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  agent.signal(SIGSTOP);
  ASSERT_TRUE(eventually([&] { return agent.state() == 'T'; }));
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  agent.signal(SIGTERM);
  agent.signal(SIGCONT);
  EXPECT_EQ(agent.waitForExit(), 0);
  expectCleanEnd(home);
  EXPECT_TRUE(contains(home.log(), askedToTerminate));
  EXPECT_TRUE(contains(home.log(), caughtStop));
}

TEST(End, ManySignalsEndItOnce) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  for (const int signalNumber : {SIGINT, SIGTERM, SIGQUIT, SIGTERM, SIGINT}) {
    agent.signal(signalNumber);
  }
  EXPECT_EQ(agent.waitForExit(), 0);
  expectCleanEnd(home);
}

// At whatever moment of its start it is hit, it ends at once: by the signal itself as long as there
// is nothing to be written, and in its own way from then on.
TEST(End, SignalRightAfterTheStartEndsItAtOnce) {
  for (int round = 0; round < 20; ++round) {
    const Home home("/tmp/home" + std::to_string(round));
    Agent agent(home);
    ASSERT_TRUE(
        eventually([&] { return agent.errors().size() >= 2U * static_cast<unsigned>(round); }));
    agent.signal(SIGTERM);
    const std::optional<int> status = agent.waitForExit();
    ASSERT_TRUE(status == 0 || status == 128 + SIGTERM);
    EXPECT_EQ(home.records().size(), status == 0 ? 3U : 0U);
  }
}

TEST(End, SignalDuringAnswersToManyListRequestsIsHeard) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  std::vector<Program> lists;
  for (int i = 0; i < 8; ++i) lists.emplace_back(ombrix({"list"}));
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST(End, HandledSignalsLeaveOtherOnesAlone) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  agent.signal(SIGWINCH);
  agent.signal(SIGCHLD);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace ombrix::tests
