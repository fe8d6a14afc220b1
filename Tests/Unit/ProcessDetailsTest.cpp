#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <tuple>

#include "Source/Core/ProcessManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"
#include "Utilities/Logging/LogManager.h"

// What ProcessManager notes of a process that it has not seen before, and what that costs.

namespace ombrix {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::FakeMachine;
using tests::named;
using tests::runThreeProcesses;

void poll(ProcessManager& manager) { std::ignore = manager.refreshAndGetStopped(); }

// The record that is made of `process` by a poll that finds three others before it.
std::shared_ptr<ProcessData> recordOf(FakeMachine& machine, FakeMachine::Process process) {
  runThreeProcesses(machine);
  process.id = 4;
  machine.processes.push_back(process);
  ProcessManager manager;
  poll(manager);
  for (const auto& record : manager.getAllProcessesAsStopped()) {
    if (!named({record}, "init") && !named({record}, "cron") && !named({record}, "vim")) {
      return record;
    }
  }
  return nullptr;
}

FakeMachine::Process less() { return {4, "less", 0, "/bin/less", false, false}; }

TEST(ProcessDetails, NameDirectoryAndUserAreNoted) {
  FakeMachine machine;
  machine.users[501] = "alice";
  const auto record =
      recordOf(machine, {4, "Foo", 501, "/Applications/Foo.app/MacOS/Foo", false, false});
  EXPECT_EQ(record->processName(), "Foo");
  EXPECT_EQ(record->path(), "/Applications/Foo.app/MacOS");
  EXPECT_EQ(record->userName(), "alice");
}

TEST(ProcessDetails, ProcessWithoutAFileHasAnEmptyPath) {
  FakeMachine machine;
  auto process = less();
  process.executable = "";
  EXPECT_EQ(recordOf(machine, process)->path(), "");
}

TEST(ProcessDetails, ExecutableInTheRootHasTheRootAsItsDirectory) {
  FakeMachine machine;
  auto process = less();
  process.executable = "/less";
  EXPECT_EQ(recordOf(machine, process)->path(), "/");
}

TEST(ProcessDetails, UnreadablePathIsTheDirectoryOfTheRecordBefore) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.processes[1].executable = "/opt/cron/cron";
  machine.processes[2].executable = std::nullopt;
  ProcessManager manager;
  poll(manager);
  const ProcessSet all = manager.getAllProcessesAsStopped();
  EXPECT_EQ(named(all, "init")->path(), "/usr/bin");
  EXPECT_EQ(named(all, "cron")->path(), "/opt/cron");
  EXPECT_EQ(named(all, "vim")->path(), "/opt/cron");
}

TEST(ProcessDetails, UnreadablePathOfTheFirstNewProcessIsEmpty) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.processes[0].executable = std::nullopt;
  machine.processes[1].executable = std::nullopt;
  ProcessManager manager;
  poll(manager);
  const ProcessSet all = manager.getAllProcessesAsStopped();
  EXPECT_EQ(named(all, "init")->path(), "");
  EXPECT_EQ(named(all, "cron")->path(), "");
}

TEST(ProcessDetails, NoDirectoryIsLeftOverFromAnEarlierPoll) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  auto process = less();
  process.executable = std::nullopt;
  machine.processes.push_back(process);
  poll(manager);
  EXPECT_EQ(named(manager.getAllProcessesAsStopped(), "less")->path(), "");
}

TEST(ProcessDetails, UserWithoutAPasswordEntryIsNotFound) {
  FakeMachine machine;
  auto process = less();
  process.user = 4242;
  EXPECT_EQ(recordOf(machine, process)->userName(), "user name not found");
}

TEST(ProcessDetails, NameThatIsNotUtf8IsAbsentAndTheRecordIsKept) {
  FakeMachine machine;
  auto process = less();
  process.name = "caf\xC3";  // an accented letter cut in the middle
  const auto record = recordOf(machine, process);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->processName(), std::nullopt);
  EXPECT_EQ(record->path(), "/bin");
}

TEST(ProcessDetails, PathThatIsNotUtf8IsAbsentAndTheRecordIsKept) {
  FakeMachine machine;
  auto process = less();
  process.executable = "/opt/\xFF/less";
  const auto record = recordOf(machine, process);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->processName(), "less");
  EXPECT_EQ(record->path(), std::nullopt);
}

TEST(ProcessDetails, UserNameThatIsNotUtf8IsAbsent) {
  FakeMachine machine;
  machine.users[0] = "\xE9lise";
  EXPECT_EQ(recordOf(machine, less())->userName(), std::nullopt);
}

TEST(ProcessDetails, NameHiddenByTheKernelIsAbsentAndTheRecordIsKept) {
  FakeMachine machine;
  const auto record = recordOf(machine, {4, std::nullopt, 0, "/bin/less", false, false});
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->processName(), std::nullopt);
}

TEST(ProcessDetails, Utf8IsKeptAsItIs) {
  FakeMachine machine;
  machine.users[0] = "élise";
  const auto record = recordOf(machine, {4, "caf\u00E9;\n ", 0, "/Büro/café", false, false});
  EXPECT_EQ(record->processName(), "caf\u00E9;\n ");
  EXPECT_EQ(record->path(), "/Büro");
  EXPECT_EQ(record->userName(), "élise");
}

TEST(ProcessDetails, ProcessThatVanishesBeforeItIsReadIsSilentlyLeftOut) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debugPlus);
  auto process = less();
  process.endsBeforeEntry = true;
  EXPECT_EQ(recordOf(machine, process), nullptr);
  EXPECT_THAT(machine.systemLog, ElementsAre("Number of registered processes: 3"));
}

TEST(ProcessDetails, ProcessThatVanishesBeforeItsPathIsReadIsSilentlyLeftOut) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debugPlus);
  auto process = less();
  process.endsBeforePath = true;
  EXPECT_EQ(recordOf(machine, process), nullptr);
  EXPECT_THAT(machine.systemLog, ElementsAre("Number of registered processes: 3"));
}

TEST(ProcessDetails, VanishedProcessLeavesTheDirectoryOfTheOneBeforeIt) {
  FakeMachine machine;
  runThreeProcesses(machine);
  machine.run(4, "less");
  machine.processes[1].executable = "/opt/cron/cron";
  machine.processes[2].endsBeforePath = true;
  machine.processes[3].executable = std::nullopt;
  ProcessManager manager;
  poll(manager);
  EXPECT_EQ(named(manager.getAllProcessesAsStopped(), "less")->path(), "/opt/cron");
}

TEST(ProcessDetails, OnlyNewProcessesAreAskedFor) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  EXPECT_THAT(machine.entriesAsked, ElementsAre(1, 2, 3));
  machine.entriesAsked.clear();
  machine.usersAsked.clear();

  machine.run(4, "less");
  poll(manager);
  EXPECT_THAT(machine.entriesAsked, ElementsAre(4));
  EXPECT_THAT(machine.usersAsked, ElementsAre(0U));
}

TEST(ProcessDetails, PollInWhichNothingChangedAsksForNothingButTheList) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.entriesAsked.clear();
  machine.usersAsked.clear();
  poll(manager);
  EXPECT_EQ(machine.fetches, 2);
  EXPECT_THAT(machine.entriesAsked, IsEmpty());
  EXPECT_THAT(machine.usersAsked, IsEmpty());
}

TEST(ProcessDetails, EachUserIsLookedUpOnceInAPoll) {
  FakeMachine machine;
  machine.users[501] = "alice";
  runThreeProcesses(machine);
  for (int id = 4; id < 8; ++id) machine.run(id, "sh");
  machine.processes[3].user = machine.processes[5].user = 501;
  machine.processes[4].user = machine.processes[6].user = 4242;
  ProcessManager manager;
  poll(manager);
  EXPECT_THAT(machine.usersAsked, ElementsAre(0U, 501U, 4242U));
}

TEST(ProcessDetails, UserRenamedBetweenTwoPollsHasTheNewNameInNewRecords) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.users[0] = "toor";
  machine.run(4, "less");
  poll(manager);
  const ProcessSet all = manager.getAllProcessesAsStopped();
  EXPECT_EQ(named(all, "less")->userName(), "toor");
  EXPECT_EQ(named(all, "vim")->userName(), "root");
}

// Each look at a clock moves both on by a second, so that every reading is another one.
constexpr seconds perLook{1};

TEST(ProcessDetails, EachRecordTakesItsOwnReadingsWhenItStarts) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  const auto firstDate = machine.date;
  const auto firstTick = machine.ticks;
  machine.driftPerLook = perLook;
  poll(manager);
  machine.driftPerLook = {};
  const ProcessSet all = manager.getAllProcessesAsStopped();
  EXPECT_EQ(named(all, "init")->startTime(), firstDate);
  EXPECT_EQ(named(all, "init")->startTick(), firstTick + 1'000'000'000U);
  EXPECT_EQ(named(all, "cron")->startTime(), firstDate + 2 * perLook);
  EXPECT_EQ(named(all, "cron")->startTick(), firstTick + 3'000'000'000U);
  EXPECT_EQ(named(all, "vim")->startTime(), firstDate + 4 * perLook);
  EXPECT_EQ(named(all, "vim")->startTick(), firstTick + 5'000'000'000U);
}

// The readings of a set whose order is not known: dates at seconds 0, 2 and 4 after `firstDate`,
// and the ticks of each a second after its date.
void expectOwnStopReadings(const ProcessSet& records, platform::Date firstDate,
                           std::uint64_t firstTick) {
  std::set<platform::Date> dates;
  for (const auto& record : records) {
    dates.insert(*record->stopTime());
    const auto afterFirst = std::chrono::duration_cast<std::chrono::nanoseconds>(
        *record->stopTime() - firstDate + perLook);
    EXPECT_EQ(record->stopTick() - firstTick, static_cast<std::uint64_t>(afterFirst.count()));
  }
  EXPECT_THAT(dates, ElementsAre(firstDate, firstDate + 2 * perLook, firstDate + 4 * perLook));
}

TEST(ProcessDetails, EachRecordTakesItsOwnReadingsWhenItEnds) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  machine.listFails = true;
  const auto firstDate = machine.date;
  const auto firstTick = machine.ticks;
  machine.driftPerLook = perLook;
  expectOwnStopReadings(manager.refreshAndGetStopped(), firstDate, firstTick);
}

TEST(ProcessDetails, EachRecordTakesItsOwnReadingsWhenAllAreClosed) {
  FakeMachine machine;
  runThreeProcesses(machine);
  ProcessManager manager;
  poll(manager);
  const auto firstDate = machine.date;
  const auto firstTick = machine.ticks;
  machine.driftPerLook = perLook;
  expectOwnStopReadings(manager.getAllProcessesAsStopped(), firstDate, firstTick);
}

}  // namespace
}  // namespace ombrix
