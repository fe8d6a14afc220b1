#include <gtest/gtest.h>

#include <csignal>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/MovableClock.h"
#include "Tests/Acceptance/SystemBus.h"
#include "Tests/Acceptance/Wait.h"

// Changes of day that the agent could not see when they came. It begins at noon.

namespace ombrix::tests {

namespace {

constexpr const char* newDate = "New date detected writing metering data for all processes.\n";
constexpr double minute = 60;
constexpr double hour = 60 * minute;
constexpr double day = 24 * hour;
// The clocks that show a sleep are read one after the other. A sleep of round minutes may come out
// a moment shorter, and begun minutes do not count.
constexpr double somewhatMore = 20;

class MissedDays : public ::testing::Test {
 protected:
  void SetUp() override {
    agent.emplace(home, withMovableClock());
    ASSERT_TRUE(agent->hasStarted());
    program.emplace(idler("/tmp/tools/editor"));
    ASSERT_TRUE(agent->poll());
  }

  // The run was closed and written once, however many days have gone, with these minutes of sleep,
  // and a new one has begun that knows nothing of them.
  void expectClosedOnceWith(const std::string& pausedMinutes) {
    ASSERT_TRUE(agent->poll() && agent->poll());
    EXPECT_EQ(occurrences(agent->errors(), newDate), 1U);
    const std::vector<Record> before = home.recordsOf("editor");
    ASSERT_EQ(before.size(), 1U);
    EXPECT_EQ(before.front().pausedMinutes, pausedMinutes);
    EXPECT_LT(before.front().start.substr(0, 10), before.front().stop.substr(0, 10));
    EXPECT_LT(std::stoi(before.front().seconds), 60) << before.front().line;
    EXPECT_EQ(agent->stop(), 0);
    std::vector<Record> after = home.recordsOf("editor");
    std::erase_if(after, [&](const Record& record) { return record.line == before.front().line; });
    ASSERT_EQ(after.size(), 1U);
    EXPECT_EQ(after.front().pausedMinutes, "0");
    EXPECT_GE(after.front().start, before.front().stop);
  }

  const Home home;
  std::optional<Agent> agent;
  std::optional<Program> program;
};

}  // namespace

TEST_F(MissedDays, OneThatChangedWhileTheMachineSleptClosesTheRunsOnce) {
  passAsleep(20 * hour + somewhatMore);
  expectClosedOnceWith("1200");
}

TEST_F(MissedDays, SeveralThatTheMachineSleptThroughCloseTheRunsOnce) {
  passAsleep(5 * day + somewhatMore);
  expectClosedOnceWith("7200");
}

TEST_F(MissedDays, SeveralInWhichTheAgentStoodStillCloseTheRunsOnce) {
  agent->signal(SIGSTOP);
  ASSERT_TRUE(eventually([this] { return agent->state() == 'T'; }));
  moveWallClock(3 * day);
  agent->signal(SIGCONT);
  expectClosedOnceWith("0");
}

TEST_F(MissedDays, RunThatEndedMeanwhileIsWrittenOnce) {
  program->kill();
  passAsleep(2 * day + somewhatMore);
  ASSERT_TRUE(agent->poll() && agent->poll());
  const std::vector<Record> records = home.recordsOf("editor");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records.front().pausedMinutes, "2880");
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

TEST_F(MissedDays, SleepWithinADayClosesNothing) {
  passAsleep(8 * hour + somewhatMore);
  ASSERT_TRUE(agent->poll() && agent->poll());
  EXPECT_EQ(occurrences(agent->errors(), newDate), 0U);
  EXPECT_EQ(agent->stop(), 0);
  ASSERT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(home.recordsOf("editor").front().pausedMinutes, "480");
}

TEST(MissedDaysOfAnAnnouncedSleep, CloseTheRunsOnceWithTheMinutesOfTheSleep) {
  const SystemBus bus;
  const Logind logind;
  const Home home;
  Agent agent(home, withMovableClock());
  ASSERT_TRUE(agent.hasStarted() && logind.waitForLocks(1));
  const Program program(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  logind.announce(true);
  ASSERT_TRUE(logind.waitForLocks(0));
  passAsleep(3 * day + somewhatMore);
  logind.announce(false);
  ASSERT_TRUE(logind.waitForLocks(1));
  ASSERT_TRUE(agent.poll() && agent.poll());
  const std::vector<Record> records = home.recordsOf("editor");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records.front().pausedMinutes, "4320");
  EXPECT_EQ(occurrences(agent.errors(), newDate), 1U);
}

}  // namespace ombrix::tests
