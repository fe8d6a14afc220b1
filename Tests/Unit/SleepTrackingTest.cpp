#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "Source/Core/MeteringManager.h"
#include "Source/Core/ProcessManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"

// ProcessManager's accounting of sleep.

namespace ombrix {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using tests::FakeMachine;
using tests::named;

constexpr const char* wokeUnannounced =
    "System has awaken, without first ever mentioning going to sleep.";

// A machine with three processes that a manager has polled once.
struct SleepBench {
  SleepBench() {
    tests::runThreeProcesses(machine);
    poll();
  }

  void poll() { std::ignore = manager.refreshAndGetStopped(); }

  void deliver(std::uint32_t messageType, std::uintptr_t argument = 0) {
    machine.sendPowerMessage(messageType, argument);
    machine.deliverOne();
  }

  // The wall clock moves, the ticks do not: they stand still while the machine sleeps.
  void sleep(milliseconds duration) {
    deliver(platform::messageSystemWillSleep);
    machine.date += duration;
    deliver(platform::messageSystemHasPoweredOn);
  }

  [[nodiscard]] std::vector<std::uint32_t> pauses() {
    std::vector<std::uint32_t> pauses;
    for (const auto& record : manager.getAllProcessesAsStopped()) {
      pauses.push_back(record->pausedMinutes());
    }
    return pauses;
  }

  FakeMachine machine;
  ProcessManager manager;
};

TEST(SleepTracking, SleepOf59SecondsChangesNoRecord) {
  SleepBench bench;
  bench.sleep(seconds(59));
  EXPECT_THAT(bench.pauses(), ElementsAre(0U, 0U, 0U));
}

TEST(SleepTracking, SleepOf59SecondsIsOverWhenTheMachineWakes) {
  SleepBench bench;
  bench.sleep(seconds(59));
  bench.machine.pass(minutes(5));
  bench.deliver(platform::messageSystemHasPoweredOn);
  EXPECT_EQ(bench.machine.timesLogged(wokeUnannounced), 1);
  EXPECT_THAT(bench.pauses(), ElementsAre(0U, 0U, 0U));
}

TEST(SleepTracking, SleepOfOneMinuteCountsWhole) {
  SleepBench bench;
  bench.sleep(seconds(60));
  EXPECT_THAT(bench.pauses(), ElementsAre(1U, 1U, 1U));
}

TEST(SleepTracking, SleepOf119Point9SecondsAddsOneMinuteToEveryRecord) {
  SleepBench bench;
  bench.sleep(milliseconds(119'900));
  EXPECT_THAT(bench.pauses(), ElementsAre(1U, 1U, 1U));
}

TEST(SleepTracking, MinutesOfSeveralSleepsAddUp) {
  SleepBench bench;
  bench.sleep(minutes(2));
  bench.sleep(hours(8));
  EXPECT_THAT(bench.pauses(), Each(482U));
}

TEST(SleepTracking, BegunMinutesAreNeverCarriedToTheNextSleep) {
  SleepBench bench;
  for (int sleep = 0; sleep < 10; ++sleep) bench.sleep(seconds(59));
  EXPECT_THAT(bench.pauses(), Each(0U));
}

TEST(SleepTracking, ClockSetBackDuringSleepLowersThePause) {
  SleepBench bench;
  bench.sleep(minutes(5));
  bench.sleep(milliseconds(-119'900));
  EXPECT_THAT(bench.pauses(), Each(4U));
}

TEST(SleepTracking, PauseBelowZeroWrapsToALargeOne) {
  SleepBench bench;
  bench.sleep(minutes(1));
  bench.sleep(minutes(-3));
  EXPECT_THAT(bench.pauses(), Each(0xFFFFFFFEU));
}

TEST(SleepTracking, PauseBeyond32BitsWrapsToASmallOne) {
  SleepBench bench;
  bench.sleep(minutes(-1));
  bench.sleep(minutes(3));
  EXPECT_THAT(bench.pauses(), Each(2U));
}

TEST(SleepTracking, ClockSetBackByLessThanAMinuteChangesNothing) {
  SleepBench bench;
  bench.sleep(seconds(-59));
  EXPECT_THAT(bench.pauses(), Each(0U));
}

TEST(SleepTracking, UnannouncedWakeIsAWarningAndChangesNothing) {
  const tests::ScratchFolder folder;
  tests::setTimeZone(tests::universalTime);
  SleepBench bench;
  tests::logEverything();
  bench.deliver(platform::messageSystemHasPoweredOn);
  EXPECT_THAT(tests::logLines(), ElementsAre(std::string("[Warning]\t") + wokeUnannounced));
  EXPECT_THAT(bench.pauses(), Each(0U));
}

TEST(SleepTracking, SecondWakeOfOneSleepCountsNothing) {
  SleepBench bench;
  bench.sleep(minutes(2));
  bench.machine.pass(minutes(2));
  bench.deliver(platform::messageSystemHasPoweredOn);
  EXPECT_THAT(bench.pauses(), Each(2U));
  EXPECT_EQ(bench.machine.timesLogged(wokeUnannounced), 1);
}

TEST(SleepTracking, DoubledAnnouncementCountsFromTheLaterOne) {
  SleepBench bench;
  bench.deliver(platform::messageSystemWillSleep);
  bench.machine.date += minutes(10);
  bench.sleep(minutes(3));
  EXPECT_THAT(bench.pauses(), Each(3U));
}

TEST(SleepTracking, QuestionWhetherToSleepIsAllowedAtOnce) {
  SleepBench bench;
  bench.machine.powerCalls.clear();
  bench.deliver(platform::messageCanSystemSleep, 77);
  EXPECT_THAT(bench.machine.powerCalls, ElementsAre("allow 1 77"));
}

TEST(SleepTracking, QuestionWhetherToSleepStartsNoSleep) {
  SleepBench bench;
  bench.deliver(platform::messageCanSystemSleep);
  bench.machine.date += minutes(5);
  bench.deliver(platform::messageSystemHasPoweredOn);
  EXPECT_TRUE(bench.machine.logged(wokeUnannounced));
  EXPECT_THAT(bench.pauses(), Each(0U));
}

TEST(SleepTracking, QuestionDuringASleepLeavesItsStartAlone) {
  SleepBench bench;
  bench.deliver(platform::messageSystemWillSleep);
  bench.machine.date += minutes(2);
  bench.deliver(platform::messageCanSystemSleep);
  bench.machine.date += minutes(2);
  bench.deliver(platform::messageSystemHasPoweredOn);
  EXPECT_THAT(bench.pauses(), Each(4U));
}

TEST(SleepTracking, AnnouncedSleepIsAllowedAtOnce) {
  SleepBench bench;
  bench.machine.powerCalls.clear();
  bench.deliver(platform::messageSystemWillSleep, 78);
  EXPECT_THAT(bench.machine.powerCalls, ElementsAre("allow 1 78"));
}

TEST(SleepTracking, WakeIsNotAcknowledged) {
  SleepBench bench;
  bench.deliver(platform::messageSystemWillSleep);
  bench.machine.powerCalls.clear();
  bench.deliver(platform::messageSystemHasPoweredOn, 79);
  EXPECT_THAT(bench.machine.powerCalls, IsEmpty());
}

TEST(SleepTracking, OtherMessagesAreNeitherActedUponNorAcknowledged) {
  constexpr std::uint32_t willNotSleep = 0xE0000290;
  constexpr std::uint32_t willPowerOn = 0xE0000320;
  SleepBench bench;
  bench.deliver(platform::messageSystemWillSleep);
  bench.machine.powerCalls.clear();
  for (const std::uint32_t other : {willNotSleep, willPowerOn, 0U, 0xFFFFFFFFU}) {
    bench.machine.date += minutes(1);
    bench.deliver(other, 80);
  }
  EXPECT_THAT(bench.machine.powerCalls, IsEmpty());
  EXPECT_THAT(bench.pauses(), Each(0U));
  bench.deliver(platform::messageSystemHasPoweredOn);
  EXPECT_THAT(bench.pauses(), Each(4U));
}

TEST(SleepTracking, RecordsMadeAfterTheWakeCarryNoneOfIt) {
  SleepBench bench;
  bench.machine.run(4, "less");
  bench.sleep(minutes(3));
  bench.poll();
  const ProcessSet all = bench.manager.getAllProcessesAsStopped();
  EXPECT_EQ(named(all, "less")->pausedMinutes(), 0U);
  EXPECT_EQ(named(all, "vim")->pausedMinutes(), 3U);
}

TEST(SleepTracking, RunThatTheNextPollClosesCarriesTheSleep) {
  SleepBench bench;
  bench.machine.run(4, "less");
  bench.poll();
  bench.machine.end(4);
  bench.sleep(minutes(3));
  const ProcessSet stopped = bench.manager.refreshAndGetStopped();
  ASSERT_THAT(stopped, SizeIs(1));
  EXPECT_EQ(stopped[0]->pausedMinutes(), 3U);
}

TEST(SleepTracking, RegistrationEndsInThreeStepsInTheirOrder) {
  FakeMachine machine;
  { const ProcessManager manager; }
  EXPECT_THAT(machine.powerCalls, ElementsAre("register", "deregister 2", "close 1", "release 2"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST(SleepTracking, AllThreeStepsAreTakenAlsoWhenTheFirstFails) {
  const tests::ScratchFolder folder;
  tests::setTimeZone(tests::universalTime);
  FakeMachine machine;
  tests::logEverything();
  machine.powerDeregistrationFails = true;
  { const ProcessManager manager; }
  EXPECT_THAT(machine.powerCalls, ElementsAre("register", "deregister 2", "close 1", "release 2"));
  EXPECT_THAT(tests::logLines(), ElementsAre("[Warning]\tIODeregisterForSystemPower failed."));
}

TEST(SleepTracking, FailedRegistrationIsAWarningOfWhichTheEndAlsoTells) {
  const tests::ScratchFolder folder;
  tests::setTimeZone(tests::universalTime);
  FakeMachine machine;
  tests::logEverything();
  machine.powerRegistrationFails = true;
  { const ProcessManager manager; }
  EXPECT_THAT(machine.powerCalls, ElementsAre("register", "deregister 0", "close 0", "release 0"));
  EXPECT_THAT(tests::logLines(), ElementsAre("[Warning]\tIORegisterForSystemPower failed.",
                                             "[Warning]\tIODeregisterForSystemPower failed."));
}

TEST(SleepTracking, RegistrationAndItsEndReportTheirResults) {
  FakeMachine machine;
  ProcessManager manager;
  EXPECT_TRUE(manager.initSystemEventListener());
  EXPECT_TRUE(manager.deinitSystemEventListener());
  EXPECT_FALSE(manager.deinitSystemEventListener());
  machine.powerRegistrationFails = true;
  EXPECT_FALSE(manager.initSystemEventListener());
}

TEST(SleepTracking, RecordFileTellsTheSleptMinutesBesideTheRunTime) {
  tests::MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.waits.emplace_back([&machine] {
    machine.pass(seconds(30));
    machine.sendPowerMessage(platform::messageSystemWillSleep);
  });
  machine.waits.emplace_back([&machine] {
    machine.date += seconds(130);
    machine.sendPowerMessage(platform::messageSystemHasPoweredOn);
  });
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(bench.records(),
              Contains("vim;;;;/usr/bin;root;;2024-03-01 10:00:00;2024-03-01 10:02:40;2;30"));
}

}  // namespace
}  // namespace ombrix
