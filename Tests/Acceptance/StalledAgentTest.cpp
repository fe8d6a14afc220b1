#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Wait.h"

// An agent that does not read what is sent to it.

namespace ombrix::tests {

namespace {

constexpr const char* notReached =
    "Notification com.velkworks.Ombrix2.List did not reach 1 of its observers: they do not read "
    "their queue.\n";

class StalledAgent : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
    agent.signal(SIGSTOP);
    ASSERT_TRUE(eventually([this] { return agent.state() == 'T'; }));
  }

  // Posts until a post is not taken any more, and returns that one.
  static Outcome fillTheQueue() {
    Outcome outcome = run(ombrix({"list"}));
    while (outcome.errors.empty()) outcome = run(ombrix({"list"}));
    return outcome;
  }

  const Home home;
  Agent agent{home};
};

}  // namespace

TEST_F(StalledAgent, PosterToItsFullQueueReturnsSoonAndSaysSo) {
  const Outcome full = fillTheQueue();
  EXPECT_EQ(full.errors, notReached);
  EXPECT_EQ(full.status, 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run(ombrix({"list"})).errors, notReached);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  agent.signal(SIGCONT);
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(StalledAgent, FullQueueOfOneNotificationIsNoneOfAnother) {
  fillTheQueue();
  EXPECT_EQ(run(ombrix({"stop"})).errors, "Shutting down Ombrix.\n");
  agent.signal(SIGCONT);
  EXPECT_EQ(agent.waitForExit(), 0);
}

TEST_F(StalledAgent, RequestsThatWaitedAreOne) {
  fillTheQueue();
  agent.signal(SIGCONT);
  ASSERT_TRUE(agent.waitForPolls(2) && agent.isWaiting());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(occurrences(home.log(), "Trying to write a list"), 1U);
}

TEST_F(StalledAgent, SignalEndsItAsSoonAsItGoesOn) {
  fillTheQueue();
  agent.signal(SIGTERM);
  agent.signal(SIGCONT);
  EXPECT_EQ(agent.waitForExit(), 0);
}

// The second one is still waiting for the answer when the third one asks.
TEST_F(StalledAgent, OfTwoThatStartBesideItOneAfterTheOtherTheFirstStays) {
  const Home secondHome("/tmp/second");
  Agent second(secondHome);
  ASSERT_TRUE(second.hasStarted());
  const Home thirdHome("/tmp/third");
  Agent third(thirdHome);
  EXPECT_EQ(third.waitForExit(), 1) << third.errors();
  ASSERT_TRUE(second.poll());
  second.signal(SIGTERM);
  EXPECT_EQ(second.waitForExit(), 0);
}

TEST_F(StalledAgent, AgentThatStartsBesideItIsNotHeldUp) {
  const Home secondHome("/tmp/second");
  Agent second(secondHome);
  ASSERT_TRUE(second.poll());
  EXPECT_TRUE(second.isRunning());
}

}  // namespace ombrix::tests
