#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "Source/Core/ProcessManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/AllocationFailure.h"
#include "Tests/Unit/CoreTestSupport.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix {
namespace {

using std::chrono::minutes;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using tests::AllocationFailure;
using tests::FakeMachine;
using tests::named;
using tests::runThreeProcesses;

constexpr const char* tooFewProcesses =
    "Ombrix: Found a problem with the context in which Ombrix is run. Restarting.";

// For tests that look at what else a poll has done.
void poll(ProcessManager& manager) { std::ignore = manager.refreshAndGetStopped(); }

TEST(ProcessManager, TableIsEmptyBeforeTheFirstPoll) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  EXPECT_THAT(manager.getAllProcessesAsStopped(), IsEmpty());
  EXPECT_EQ(machine.fetches, 0);
}

TEST(ProcessManager, ProcessAlreadyRunningStartsWithTheFirstPoll) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  machine.pass(minutes(7));
  poll(manager);
  const auto record = named(manager.getAllProcessesAsStopped(), "vim");
  EXPECT_EQ(record->startTime(), machine.date);
  EXPECT_EQ(record->startTick(), machine.ticks);
}

TEST(ProcessManager, FreshRunIsActiveAndOpenAndHasNoPause) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  const auto record = named(manager.getAllProcessesAsStopped(), "vim");
  EXPECT_TRUE(record->activeFlag());
  EXPECT_EQ(record->pausedMinutes(), 0U);
}

TEST(ProcessManager, PollNeverReturnsARecordThatItMade) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  EXPECT_THAT(manager.refreshAndGetStopped(), IsEmpty());
}

TEST(ProcessManager, EndedProcessIsReturnedAndStamped) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(4, "less");
  ProcessManager manager;
  poll(manager);
  machine.end(4);
  machine.pass(minutes(1));

  const ProcessSet stopped = manager.refreshAndGetStopped();

  ASSERT_THAT(stopped, SizeIs(1));
  EXPECT_EQ(stopped[0]->processName(), "less");
  EXPECT_EQ(stopped[0]->stopTime(), machine.date);
  EXPECT_EQ(stopped[0]->stopTick(), machine.ticks);
  EXPECT_EQ(*stopped[0]->stopTime() - *stopped[0]->startTime(), minutes(1));
  EXPECT_FALSE(stopped[0]->activeFlag());
}

TEST(ProcessManager, EndedProcessLeavesTheTable) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(4, "less");
  ProcessManager manager;
  poll(manager);
  machine.end(4);
  poll(manager);
  EXPECT_THAT(manager.getAllProcessesAsStopped(), SizeIs(3));
  EXPECT_THAT(manager.refreshAndGetStopped(), IsEmpty());
}

TEST(ProcessManager, EveryRecordLeftByAPollIsActive) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  poll(manager);
  for (const auto& record : manager.getAllProcessesAsStopped()) EXPECT_TRUE(record->activeFlag());
}

TEST(ProcessManager, NewProcessStartsWithThePollThatFindsIt) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.pass(minutes(1));
  machine.run(4, "less");
  poll(manager);
  const ProcessSet all = manager.getAllProcessesAsStopped();
  EXPECT_EQ(named(all, "less")->startTime(), machine.date);
  EXPECT_EQ(named(all, "vim")->startTime(), machine.date - minutes(1));
}

TEST(ProcessManager, ReusedPidContinuesTheOldRun) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.end(3);
  machine.processes.push_back({3, "emacs", 7, "/opt/bin/emacs", false, false});
  machine.users[7] = "bob";
  machine.pass(minutes(1));

  EXPECT_THAT(manager.refreshAndGetStopped(), IsEmpty());

  const auto record = named(manager.getAllProcessesAsStopped(), "vim");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->path(), "/usr/bin");
  EXPECT_EQ(record->userName(), "root");
  EXPECT_EQ(record->startTime(), machine.date - minutes(1));
}

TEST(ProcessManager, PidListedTwiceIsOneRun) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(3, "vim");
  ProcessManager manager;
  poll(manager);
  EXPECT_THAT(manager.getAllProcessesAsStopped(), SizeIs(3));
}

TEST(ProcessManager, ProcessOfPidZeroIsWatched) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(0, "kernel");
  ProcessManager manager;
  poll(manager);
  EXPECT_NE(named(manager.getAllProcessesAsStopped(), "kernel"), nullptr);
}

TEST(ProcessManager, FailedFetchClosesAndRemovesEveryRun) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.pass(minutes(1));
  machine.listFails = true;

  const ProcessSet stopped = manager.refreshAndGetStopped();

  EXPECT_THAT(stopped, SizeIs(3));
  EXPECT_EQ(named(stopped, "vim")->stopTime(), machine.date);
  EXPECT_THAT(manager.getAllProcessesAsStopped(), IsEmpty());
}

TEST(ProcessManager, FailedFetchIsSilentAndNotRepeated) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debugPlus);
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.systemLog.clear();
  machine.listFails = true;
  poll(manager);
  EXPECT_EQ(machine.fetches, 2);
  EXPECT_THAT(machine.systemLog, ElementsAre("Number of registered processes: 3"));
}

TEST(ProcessManager, GoodPollAfterAFailedOneStartsNewRuns) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.listFails = true;
  poll(manager);
  machine.pass(minutes(1));
  machine.listFails = false;
  poll(manager);
  const auto record = named(manager.getAllProcessesAsStopped(), "vim");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->startTime(), machine.date);
}

TEST(ProcessManager, FailedFirstFetchEndsTheAgent) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debug);
  runThreeProcesses(machine);
  machine.listFails = true;
  ProcessManager manager;
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), HasSubstr(tooFewProcesses));
}

TEST(ProcessManager, FewerThanThreeProcessesEndTheAgent) {
  LogManager::setLogLevel(LogLevel::debug);
  FakeMachine machine;
  ProcessManager manager;
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), HasSubstr(tooFewProcesses)) << "none";
  machine.run(1, "init");
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), HasSubstr(tooFewProcesses)) << "one";
  machine.run(2, "cron");
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), HasSubstr(tooFewProcesses)) << "two";
}

TEST(ProcessManager, ThreeProcessesPassWithoutAWord) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debugPlus);
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  EXPECT_THAT(machine.systemLog, ElementsAre("Number of registered processes: 3"));
}

TEST(ProcessManager, TooFewProcessesAreADebugMessage) {
  const tests::ScratchFolder folder;
  FakeMachine machine;
  tests::logEverything();
  ProcessManager manager;
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), "");
  EXPECT_THAT(tests::logLines(), ElementsAre(std::string("[Debug]\t") + tooFewProcesses));
}

TEST(ProcessManager, TooFewProcessesEndTheAgentAlsoWhenDebugIsNotLogged) {
  FakeMachine machine;
  ProcessManager manager;
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), Not(HasSubstr(tooFewProcesses)));
}

TEST(ProcessManager, RunsThatHaveJustEndedStillCountAsContext) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.end(2);
  machine.end(3);
  EXPECT_THAT(manager.refreshAndGetStopped(), SizeIs(2));
  EXPECT_EXIT(poll(manager), ExitedWithCode(1), "");
}

TEST(ProcessManager, EachPollTellsTheSystemLogHowManyAreRegistered) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::emergency);
  runThreeProcesses(machine);
  machine.run(4, "less");
  ProcessManager manager;
  poll(manager);
  EXPECT_THAT(machine.systemLog, ElementsAre("Number of registered processes: 4"));
}

TEST(ProcessManager, RegisteredProcessesIncludeTheOnesJustEnded) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(4, "less");
  ProcessManager manager;
  poll(manager);
  machine.end(4);
  poll(manager);
  EXPECT_EQ(machine.timesLogged("Number of registered processes: 4"), 2);
}

TEST(ProcessManager, NumberIsToldBeforeTheContextIsChecked) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debug);
  ProcessManager manager;
  EXPECT_EXIT(poll(manager), ExitedWithCode(1),
              HasSubstr(std::string("Number of registered processes: 0\n") + tooFewProcesses));
}

TEST(ProcessManager, ClosingAllRunsLeavesTheTableAndTheKernelAlone) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.end(3);
  machine.pass(minutes(1));

  const ProcessSet all = manager.getAllProcessesAsStopped();

  EXPECT_THAT(all, SizeIs(3));
  EXPECT_EQ(machine.fetches, 1);
  EXPECT_EQ(named(all, "vim")->stopTime(), machine.date);
  EXPECT_EQ(named(all, "vim")->stopTick(), machine.ticks);
  EXPECT_TRUE(named(all, "vim")->activeFlag());
  EXPECT_THAT(manager.getAllProcessesAsStopped(), SizeIs(3));
}

TEST(ProcessManager, ClosingAllRunsTwiceStampsTheSameRecordsLater) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  const auto first = named(manager.getAllProcessesAsStopped(), "vim");
  machine.pass(minutes(1));
  const auto second = named(manager.getAllProcessesAsStopped(), "vim");
  EXPECT_EQ(first, second);
  EXPECT_EQ(second->stopTime(), machine.date);
  EXPECT_EQ(second->stopTick(), machine.ticks);
}

TEST(ProcessManager, ClosedRunThatGoesOnIsStampedAgainWhenItEnds) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(4, "less");
  ProcessManager manager;
  poll(manager);
  const auto started = machine.date;
  std::ignore = manager.getAllProcessesAsStopped();
  machine.end(4);
  machine.pass(minutes(2));
  const ProcessSet stopped = manager.refreshAndGetStopped();
  ASSERT_THAT(stopped, SizeIs(1));
  EXPECT_EQ(stopped[0]->startTime(), started);
  EXPECT_EQ(stopped[0]->stopTime(), machine.date);
}

TEST(ProcessManager, EmptiedTableStartsAllRunsAnew) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.pass(minutes(1));

  manager.resetProcessList();

  EXPECT_THAT(manager.getAllProcessesAsStopped(), IsEmpty());
  EXPECT_THAT(manager.refreshAndGetStopped(), IsEmpty());
  EXPECT_EQ(named(manager.getAllProcessesAsStopped(), "vim")->startTime(), machine.date);
}

TEST(ProcessManager, NoMemoryForTheTableEndsTheAgent) {
  const tests::ScratchFolder folder;
  FakeMachine machine;
  tests::logEverything();
  const auto build = [] {
    const AllocationFailure noMemory(tests::ofAtLeast(1000 * sizeof(void*)));
    const ProcessManager manager;
  };
  EXPECT_EXIT(build(), ExitedWithCode(1), HasSubstr("Could not initialize ProcessList."));
  EXPECT_THAT(tests::logLines(), Contains("[Error]\tCould not initialize ProcessList."));
}

TEST(ProcessManager, PowerIsRegisteredBeforeTheTableIsMade) {
  FakeMachine machine;
  machine.powerRegistrationFails = true;
  const auto build = [] {
    const AllocationFailure noMemory(tests::ofAtLeast(1000 * sizeof(void*)));
    const ProcessManager manager;
  };
  EXPECT_EXIT(build(), ExitedWithCode(1),
              HasSubstr("IORegisterForSystemPower failed.\nCould not initialize ProcessList.\n"));
}

TEST(ProcessManager, ManagerWithoutPowerRegistrationPolls) {
  FakeMachine machine;
  machine.powerRegistrationFails = true;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  EXPECT_THAT(manager.getAllProcessesAsStopped(), SizeIs(3));
}

TEST(ProcessManager, SetupEventListenerDoesNothing) {
  FakeMachine machine;
  ProcessManager manager;
  manager.setupEventListener();
  EXPECT_THAT(machine.powerCalls, ElementsAre("register"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

}  // namespace
}  // namespace ombrix
