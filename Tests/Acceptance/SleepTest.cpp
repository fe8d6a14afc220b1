#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/MovableClock.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/SystemBus.h"
#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

namespace {

constexpr const char* registrationFailed = "IORegisterForSystemPower failed.";
constexpr const char* awakenWithoutSleep =
    "System has awaken, without first ever mentioning going to sleep.";

// The system bus lets nobody in whom it finds in no directory of users.
constexpr uid_t knownUser = 1;

}  // namespace

// A machine with a logind that announces each sleep, an agent, and a program that is metered.
class AnnouncedSleep : public ::testing::Test {
 protected:
  void SetUp() override {
    agent.emplace(home, withMovableClock());
    ASSERT_TRUE(agent->hasStarted());
    ASSERT_TRUE(logind.waitForLocks(1));
    program.emplace(idler("/tmp/programs/metered"));
    ASSERT_TRUE(agent->poll());
  }

  // The agent has heard of the sleep when it has released its lock, and of the wake when it has
  // taken a new one.
  void sleepUntilTheClockSays(double seconds) {
    logind.announce(true);
    ASSERT_TRUE(logind.waitForLocks(0));
    moveWallClock(seconds);
    logind.announce(false);
    ASSERT_TRUE(logind.waitForLocks(1));
  }

  std::optional<Record> recordOfTheProgram() {
    program->kill();
    if (!agent->pollUntil([this] { return !home.recordsOf("metered").empty(); })) {
      ADD_FAILURE() << agent->errors() << home.log();
      return {};
    }
    return home.recordsOf("metered").at(0);
  }

  SystemBus bus;
  Logind logind;
  Home home;
  std::optional<Agent> agent;
  std::optional<Program> program;
};

TEST_F(AnnouncedSleep, LockTellsWhoDelaysTheSleepAndWhy) {
  const std::vector<Inhibitor> inhibitors = logind.inhibitors();
  ASSERT_EQ(inhibitors.size(), 1U);
  EXPECT_EQ(inhibitors[0].what, "sleep");
  EXPECT_EQ(inhibitors[0].who, "Ombrix");
  EXPECT_EQ(inhibitors[0].why,
            "Notes when the machine goes to sleep, to keep slept time out of usage records");
  EXPECT_EQ(inhibitors[0].mode, "delay");
}

TEST_F(AnnouncedSleep, LockIsTakenOncePerWakeAndReleasedAtTheEnd) {
  EXPECT_EQ(logind.locksTaken(), 1U);
  sleepUntilTheClockSays(130);
  EXPECT_EQ(logind.locksTaken(), 2U);
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_TRUE(logind.waitForLocks(0));
  EXPECT_EQ(logind.locksTaken(), 2U);
}

TEST_F(AnnouncedSleep, OfTwoMinutesIsInTheRecord) {
  sleepUntilTheClockSays(130);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "2");
  EXPECT_LT(std::stoi(record->seconds), 60) << "the sleep is no run time: " << record->line;
}

TEST_F(AnnouncedSleep, OfLessThanAMinuteIsNotInTheRecord) {
  sleepUntilTheClockSays(59);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "0");
}

TEST_F(AnnouncedSleep, IsNeverRoundedUp) {
  sleepUntilTheClockSays(115);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "1");
}

TEST_F(AnnouncedSleep, ManyShortOnesDoNotAddUp) {
  for (int sleep = 1; sleep <= 8; ++sleep) sleepUntilTheClockSays(sleep * 50.0);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "0");
}

TEST_F(AnnouncedSleep, SeveralLongOnesAddUp) {
  sleepUntilTheClockSays(70);
  sleepUntilTheClockSays(200);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "3");
}

TEST_F(AnnouncedSleep, DoesNotTouchAProgramThatBeganAfterwards) {
  sleepUntilTheClockSays(130);
  ASSERT_TRUE(agent->poll());
  Program later(idler("/tmp/programs/later"));
  ASSERT_TRUE(agent->poll());
  later.kill();
  ASSERT_TRUE(agent->pollUntil([this] { return !home.recordsOf("later").empty(); }));
  EXPECT_EQ(home.recordsOf("later").at(0).pausedMinutes, "0");
}

TEST_F(AnnouncedSleep, ThatIsLongerInMinutesThanTheRunInSecondsIsDropped) {
  sleepUntilTheClockSays(7200);
  moveWallClock(0);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "0");
  EXPECT_TRUE(contains(agent->errors(), "\tPaused: 120\n"));
}

TEST_F(AnnouncedSleep, DuringWhichTheClockWasSetBackCountsBackwards) {
  sleepUntilTheClockSays(600);
  sleepUntilTheClockSays(270);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "5");
}

TEST_F(AnnouncedSleep, AnnouncedTwiceCountsOnce) {
  logind.announce(true);
  ASSERT_TRUE(logind.waitForLocks(0));
  const std::size_t polls = agent->polls();
  logind.announce(true);
  ASSERT_TRUE(agent->waitForPolls(polls + 1));
  moveWallClock(130);
  logind.announce(false);
  ASSERT_TRUE(logind.waitForLocks(1));
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "2");
}

TEST_F(AnnouncedSleep, WhoseWakeIsAnnouncedTwiceCountsOnceAndWarns) {
  sleepUntilTheClockSays(130);
  moveWallClock(400);
  logind.announce(false);
  EXPECT_TRUE(eventually([this] { return contains(home.log(), awakenWithoutSleep); }));
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "2");
}

TEST_F(AnnouncedSleep, ByAnotherUserIsNotBelieved) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  ASSERT_TRUE(forgeSleepAnnouncement(knownUser));
  moveWallClock(130);
  ASSERT_TRUE(agent->poll());
  EXPECT_EQ(logind.inhibitors().size(), 1U);
  logind.announce(false);
  EXPECT_TRUE(eventually([this] { return contains(home.log(), awakenWithoutSleep); }));
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "0");
}

TEST_F(AnnouncedSleep, IsHeardAgainFromALogindThatWasRestarted) {
  logind.kill();
  logind.start();
  ASSERT_TRUE(logind.waitForLocks(1));
  sleepUntilTheClockSays(130);
  const auto record = recordOfTheProgram();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->pausedMinutes, "2");
}

TEST(SleepTracking, HearsOfSleepsEvenWhenTheLockIsRefused) {
  const SystemBus bus;
  const Logind logind;
  logind.refuseLocks();
  const Home home;
  Agent agent(home, withMovableClock());
  ASSERT_TRUE(agent.hasStarted());
  Program program(idler("/tmp/programs/metered"));
  ASSERT_TRUE(agent.poll());
  const std::size_t polls = agent.polls();
  logind.announce(true);
  ASSERT_TRUE(agent.waitForPolls(polls + 1));
  moveWallClock(130);
  logind.announce(false);
  ASSERT_TRUE(agent.waitForPolls(polls + 2));
  program.kill();
  ASSERT_TRUE(agent.pollUntil([&] { return !home.recordsOf("metered").empty(); }));
  EXPECT_EQ(home.recordsOf("metered").at(0).pausedMinutes, "2");
  EXPECT_FALSE(contains(home.log(), registrationFailed));
}

TEST(SleepTracking, WakeOfASleepThatWasAnnouncedBeforeTheStartWarnsOfNothing) {
  const SystemBus bus;
  const Logind logind;
  logind.setPreparing(true);
  const Home home;
  Agent agent(home, withMovableClock());
  ASSERT_TRUE(agent.waitForPolls(2)) << "one at the start, one for the announcement";
  ASSERT_TRUE(logind.waitForLocks(0));
  logind.announce(false);
  ASSERT_TRUE(logind.waitForLocks(1));
  ASSERT_TRUE(agent.poll());
  EXPECT_FALSE(contains(home.log(), awakenWithoutSleep));
}

TEST(SleepTracking, MachineWithoutABusIsMeteredWithAWarning) {
  const Launch launch = withMovableClock();
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_TRUE(contains(home.log(), registrationFailed));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(home.records().empty());
}

TEST(SleepTracking, MachineWithoutALogindIsMeteredWithAWarning) {
  const SystemBus bus;
  const Launch launch = withMovableClock();
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_TRUE(contains(home.log(), registrationFailed));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
}

TEST(SleepTracking, BusThatDoesNotAnswerHoldsUpNoStartForLong) {
  SystemBus bus;
  const Logind logind;
  const Launch launch = withMovableClock();
  bus.stall();
  const Home home;
  const auto begin = std::chrono::steady_clock::now();
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_TRUE(contains(home.log(), registrationFailed));
  bus.goOn();
  EXPECT_TRUE(logind.waitForLocks(1));
}

TEST(SleepTracking, BeginsWhenALogindAppearsLater) {
  const SystemBus bus;
  const Launch launch = withMovableClock();
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  const Logind logind;
  EXPECT_TRUE(logind.waitForLocks(1));
}

TEST(SleepTracking, BeginsWhenABusAppearsLater) {
  const Launch launch = withMovableClock();
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  const SystemBus bus;
  const Logind logind;
  EXPECT_TRUE(logind.waitForLocks(1));
}

TEST(SleepTracking, OutlivesItsBus) {
  SystemBus bus;
  Logind logind;
  const Launch launch = withMovableClock();
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(logind.waitForLocks(1));
  for (int time = 0; time < 3; ++time) {
    bus.kill();
    logind.kill();
    ASSERT_TRUE(agent.poll()) << "after " << time << " restarts";
    bus.restart();
    logind.start();
    ASSERT_TRUE(logind.waitForLocks(1)) << "after " << time << " restarts";
  }
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace ombrix::tests
