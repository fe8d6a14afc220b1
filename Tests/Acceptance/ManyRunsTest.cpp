#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Crowd.h"
#include "Tests/Acceptance/Wait.h"

// The end of an agent that watches five thousand processes: a machine that shuts down gives its
// services a few seconds.

namespace ombrix::tests {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t manyProcesses = 5000;
// A sanitizer makes everything slower; that the records come at all is then what matters.
constexpr seconds timeToWriteThem = OMBRIX_SANITIZED ? deadline : seconds{5};

class ManyRuns : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(crowd.size(), manyProcesses);
    agent.emplace(home);
    ASSERT_TRUE(agent->hasStarted() && agent->isWaiting());
  }

  void expectEndsInTime(steady_clock::time_point begin) {
    EXPECT_EQ(agent->waitForExit(), 0);
    EXPECT_LE(steady_clock::now() - begin, timeToWriteThem);
    EXPECT_EQ(namesIn(home.storage()).size(), manyProcesses + 3);
    EXPECT_EQ(home.recordsOf("crowd").size(), manyProcesses);
  }

  const Crowd crowd{manyProcesses};
  const Home home;
  std::optional<Agent> agent;
};

}  // namespace

TEST_F(ManyRuns, AreAllWrittenWithinSecondsOfASignal) {
  const auto begin = steady_clock::now();
  agent->signal(SIGTERM);
  expectEndsInTime(begin);
}

TEST_F(ManyRuns, AreAllWrittenWithinSecondsOfTheStopCommand) {
  const auto begin = steady_clock::now();
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  expectEndsInTime(begin);
}

}  // namespace ombrix::tests
