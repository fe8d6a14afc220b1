#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/MovableClock.h"
#include "Tests/Acceptance/SystemBus.h"
#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

// A machine that goes to sleep without a word, an agent, and a program that is metered.
class UnannouncedSleep : public ::testing::Test {
 protected:
  void startAgent() {
    agent.emplace(home, withMovableClock());
    ASSERT_TRUE(agent->hasStarted());
    program.emplace(idler("/tmp/programs/metered"));
    ASSERT_TRUE(agent->poll());
  }

  std::string pausedMinutesOfTheProgram() {
    program->kill();
    if (!agent->pollUntil([this] { return !home.recordsOf("metered").empty(); })) return "none";
    return home.recordsOf("metered").at(0).pausedMinutes;
  }

  Home home;
  std::optional<Agent> agent;
  std::optional<Program> program;
};

TEST_F(UnannouncedSleep, IsFoundBeforeTheNextPoll) {
  startAgent();
  passAsleep(130);
  EXPECT_EQ(pausedMinutesOfTheProgram(), "2");
}

TEST_F(UnannouncedSleep, IsCountedOnce) {
  startAgent();
  passAsleep(130);
  ASSERT_TRUE(agent->poll());
  ASSERT_TRUE(agent->poll());
  EXPECT_EQ(pausedMinutesOfTheProgram(), "2");
}

TEST_F(UnannouncedSleep, AddsUpWithTheNext) {
  startAgent();
  passAsleep(130);
  ASSERT_TRUE(agent->poll());
  passAsleep(130 + 70);
  EXPECT_EQ(pausedMinutesOfTheProgram(), "3");
}

TEST_F(UnannouncedSleep, BeforeTheStartOfTheAgentDoesNotCount) {
  const Launch launch = withMovableClock();
  passAsleep(600);
  agent.emplace(home, launch);
  ASSERT_TRUE(agent->hasStarted());
  program.emplace(idler("/tmp/programs/metered"));
  ASSERT_TRUE(agent->poll());
  EXPECT_EQ(pausedMinutesOfTheProgram(), "0");
}

TEST_F(UnannouncedSleep, IsFoundBesideASilentLogindWhichKeepsItsLock) {
  const SystemBus bus;
  const Logind logind;
  startAgent();
  ASSERT_TRUE(logind.waitForLocks(1));
  passAsleep(130);
  EXPECT_EQ(pausedMinutesOfTheProgram(), "2");
  EXPECT_EQ(logind.inhibitors().size(), 1U);
  EXPECT_EQ(logind.locksTaken(), 1U);
}

TEST_F(UnannouncedSleep, IsNotFoundAgainWhereItWasAnnounced) {
  const SystemBus bus;
  const Logind logind;
  startAgent();
  ASSERT_TRUE(logind.waitForLocks(1));
  logind.announce(true);
  ASSERT_TRUE(logind.waitForLocks(0));
  passAsleep(130);
  logind.announce(false);
  ASSERT_TRUE(logind.waitForLocks(1));
  ASSERT_TRUE(agent->poll());
  EXPECT_EQ(pausedMinutesOfTheProgram(), "2");
}

TEST_F(UnannouncedSleep, WhoseWakeIsAnnouncedLateCountsOnceAndWarnsOfNothing) {
  const SystemBus bus;
  const Logind logind;
  startAgent();
  ASSERT_TRUE(logind.waitForLocks(1));
  logind.announce(true);
  ASSERT_TRUE(logind.waitForLocks(0));
  passAsleep(130);
  ASSERT_TRUE(agent->poll());
  ASSERT_TRUE(logind.waitForLocks(1)) << "the lock is taken again without logind's word";
  logind.announce(false);
  ASSERT_TRUE(agent->poll());
  EXPECT_EQ(pausedMinutesOfTheProgram(), "2");
  EXPECT_FALSE(contains(home.log(), "without first ever mentioning"));
}

TEST_F(UnannouncedSleep, WhoseWakeAloneIsAnnouncedCounts) {
  const SystemBus bus;
  const Logind logind;
  startAgent();
  ASSERT_TRUE(logind.waitForLocks(1));
  const std::size_t polls = agent->polls();
  passAsleep(130);
  logind.announce(false);
  ASSERT_TRUE(agent->waitForPolls(polls + 1));
  EXPECT_EQ(pausedMinutesOfTheProgram(), "2");
  EXPECT_FALSE(contains(home.log(), "without first ever mentioning"));
}

}  // namespace ombrix::tests
