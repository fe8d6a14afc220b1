#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"

// The report that the list command asks for.

namespace ombrix {
namespace {

using std::chrono::minutes;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::FakeMachine;
using tests::MeteringBench;

constexpr const char* listFile = "records/processes.list";

// An engine that has polled once and is open to requests.
struct ListBench : MeteringBench {
  ListBench() { engine.startMetering(); }

  // The lines of the report on `count` processes, with their line ends.
  std::vector<std::string> linesFor(int count) {
    for (int id = 4; id <= count; ++id) machine.run(id, "sh" + std::to_string(id));
    engine.updateMeteringData();
    engine.receiveListNotification();
    const std::string text = tests::contentsOf(listFile);
    EXPECT_TRUE(text.ends_with('\n'));
    return tests::linesOf(text);
  }

  MeteringManager engine{&store};
};

TEST(ActiveProcessList, ThreeProcessesAreThreeNumberedLines) {
  ListBench bench;
  bench.machine.pass(minutes(5));
  const std::vector<std::string> lines = bench.linesFor(3);
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0], StartsWith("#01 - ["));
  EXPECT_THAT(lines[1], StartsWith("#02 - ["));
  EXPECT_THAT(lines[2], StartsWith("#03 - ["));
  std::set<std::string> rests;
  for (const std::string& line : lines) rests.insert(line.substr(3));
  EXPECT_THAT(rests, ElementsAre(" - [cron]  started 2024-03-01 10:00:00",
                                 " - [init]  started 2024-03-01 10:00:00",
                                 " - [vim]  started 2024-03-01 10:00:00"));
}

TEST(ActiveProcessList, EveryLineEndsWithOneLineFeed) {
  ListBench bench;
  bench.engine.receiveListNotification();
  const std::string text = tests::contentsOf(listFile);
  EXPECT_TRUE(text.ends_with(":00\n"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST(ActiveProcessList, TenthLineReadsNumber10) {
  ListBench bench;
  const std::vector<std::string> lines = bench.linesFor(10);
  ASSERT_THAT(lines, SizeIs(10));
  EXPECT_THAT(lines[8], StartsWith("#09 - ["));
  EXPECT_THAT(lines[9], StartsWith("#10 - ["));
}

TEST(ActiveProcessList, HundredthLineReadsNumber100) {
  ListBench bench;
  const std::vector<std::string> lines = bench.linesFor(100);
  ASSERT_THAT(lines, SizeIs(100));
  EXPECT_THAT(lines[98], StartsWith("#99 - ["));
  EXPECT_THAT(lines[99], StartsWith("#100 - ["));
}

TEST(ActiveProcessList, StartIsLocalTime) {
  ListBench bench;
  tests::setTimeZone("IST-5:30");
  EXPECT_THAT(bench.linesFor(3)[0], HasSubstr("]  started 2024-03-01 15:30:00"));
}

TEST(ActiveProcessList, NameThatIsAbsentReadsNull) {
  ListBench bench;
  bench.machine.processes.push_back({4, "caf\xC3", 0, "/bin/cafe", false, false});
  bench.linesFor(3);
  EXPECT_THAT(tests::contentsOf(listFile), HasSubstr(" - [(null)]  started "));
}

TEST(ActiveProcessList, SecondRequestReplacesTheFirst) {
  ListBench bench;
  bench.linesFor(20);
  for (int id = 4; id <= 20; ++id) bench.machine.end(id);
  EXPECT_THAT(bench.linesFor(3), SizeIs(3));
}

TEST(ActiveProcessList, EmptyTableLeavesAnEmptyFile) {
  MeteringBench bench;
  std::filesystem::create_directory("records");
  tests::writeFile(listFile, "of yesterday\n");
  MeteringManager engine(&bench.store);
  engine.receiveListNotification();
  ASSERT_TRUE(std::filesystem::exists(listFile));
  EXPECT_EQ(std::filesystem::file_size(listFile), 0U);
}

TEST(ActiveProcessList, TableEmptiedByANewDayLeavesAnEmptyFile) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.waits.emplace_back([&machine] { machine.date += std::chrono::hours(24); });
  machine.waits.emplace_back([&machine] { machine.postFromOutside(Notification::list); });
  MeteringManager(&bench.store).startMetering();
  ASSERT_TRUE(std::filesystem::exists(listFile));
  EXPECT_EQ(std::filesystem::file_size(listFile), 0U);
}

TEST(ActiveProcessList, NotificationBringsTheListAndMeteringGoesOn) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  std::string text;
  machine.waits.emplace_back([&machine] { machine.postFromOutside(Notification::list); });
  machine.waits.emplace_back([&text] { text = tests::contentsOf(listFile); });
  MeteringManager(&bench.store).startMetering();
  EXPECT_THAT(tests::linesOf(text), SizeIs(3));
  EXPECT_EQ(machine.fetches, 3);
}

TEST(ActiveProcessList, ListOfAnotherUserIsNotHeard) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.waits.emplace_back(
      [&machine] { machine.postFromOutside(Notification::list, FakeMachine::Poster::stranger); });
  MeteringManager(&bench.store).startMetering();
  EXPECT_FALSE(std::filesystem::exists(listFile));
}

TEST(ActiveProcessList, RequestPollsNothingAndWritesNoRecord) {
  ListBench bench;
  bench.machine.end(3);
  bench.engine.receiveListNotification();
  EXPECT_EQ(bench.machine.fetches, 1);
  EXPECT_THAT(tests::contentsOf(listFile), HasSubstr("[vim]"));
  EXPECT_THAT(bench.records(), SizeIs(3)) << "the ones of the loop's end";
}

TEST(ActiveProcessList, RunThatWasListedIsWrittenWithItsRealEnd) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.run(4, "less");
  machine.waits.emplace_back([&machine] {
    machine.pass(minutes(1));
    machine.postFromOutside(Notification::list);
  });
  machine.waits.emplace_back([&machine] {
    machine.pass(minutes(1));
    machine.end(4);
  });
  machine.waits.emplace_back([] {});
  MeteringManager(&bench.store).startMetering();
  EXPECT_THAT(bench.records(),
              Contains("less;;;;/usr/bin;root;;2024-03-01 10:00:00;2024-03-01 10:02:00;0;120"));
}

TEST(ActiveProcessList, EachRequestIsLoggedWithItsPath) {
  ListBench bench;
  tests::logEverything();
  bench.engine.receiveListNotification();
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Info]\tTrying to write a list with all active processes into [" +
                          bench.path(listFile) + "]."));
}

TEST(ActiveProcessList, MissingStorageDirectoryIsAnErrorAndNoFileIsMade) {
  ListBench bench;
  tests::logEverything();
  std::filesystem::remove_all("records");
  bench.engine.receiveListNotification();
  EXPECT_THAT(tests::logLines(), ElementsAre(StartsWith("[Info]\tTrying to write"),
                                             "[Error]\tFailed to open file for writing [" +
                                                 bench.path(listFile) + "]."));
  EXPECT_FALSE(std::filesystem::exists("records"));
}

TEST(ActiveProcessList, StorageDirectoryThatMayNotBeWrittenIsAnError) {
  ListBench bench;
  const tests::ClosedFolder closed("records");
  bench.engine.receiveListNotification();
  EXPECT_TRUE(
      bench.machine.logged("Failed to open file for writing [" + bench.path(listFile) + "]."));
  EXPECT_FALSE(std::filesystem::exists(listFile));
}

TEST(ActiveProcessList, MeteringGoesOnAfterAListThatCouldNotBeWritten) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.waits.emplace_back([&machine] {
    std::filesystem::remove_all("records");
    machine.postFromOutside(Notification::list);
  });
  machine.waits.emplace_back([] {});
  MeteringManager(&bench.store).startMetering();
  EXPECT_EQ(machine.fetches, 3);
}

TEST(ActiveProcessList, StorageDirectoryWithoutASettingReadsNull) {
  MeteringBench bench;
  tests::logEverything();
  bench.store.removeConfiguration("storagedirectory");
  MeteringManager(&bench.store).receiveListNotification();
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Info]\tTrying to write a list with all active processes into [(null)].",
                          "[Error]\tFailed to open file for writing [(null)]."));
}

TEST(ActiveProcessList, LinkInItsPlaceIsReplacedAndNotFollowed) {
  ListBench bench;
  tests::writeFile("victim", "precious");
  std::filesystem::create_symlink(bench.path("victim"), listFile);
  bench.engine.receiveListNotification();
  EXPECT_EQ(tests::contentsOf("victim"), "precious");
  EXPECT_FALSE(std::filesystem::is_symlink(listFile));
  EXPECT_THAT(tests::linesOf(tests::contentsOf(listFile)), SizeIs(3));
}

TEST(ActiveProcessList, DanglingLinkInItsPlaceMakesNoFileElsewhere) {
  ListBench bench;
  std::filesystem::create_symlink(bench.path("victim"), listFile);
  bench.engine.receiveListNotification();
  EXPECT_FALSE(std::filesystem::exists("victim"));
  EXPECT_THAT(tests::linesOf(tests::contentsOf(listFile)), SizeIs(3));
}

TEST(ActiveProcessList, LinkThatCannotBeReplacedIsNotFollowed) {
  ListBench bench;
  tests::writeFile("victim", "precious");
  std::filesystem::permissions("victim", std::filesystem::perms::all);
  std::filesystem::create_symlink(bench.path("victim"), listFile);
  const tests::ClosedFolder closed("records");
  bench.engine.receiveListNotification();
  EXPECT_EQ(tests::contentsOf("victim"), "precious");
  EXPECT_TRUE(
      bench.machine.logged("Failed to open file for writing [" + bench.path(listFile) + "]."));
}

TEST(ActiveProcessList, FileInAClosedFolderIsReplacedInItsPlace) {
  ListBench bench;
  tests::writeFile(listFile, std::string(1000, 'x'));
  std::filesystem::permissions(listFile, std::filesystem::perms::all);
  const tests::ClosedFolder closed("records");
  bench.engine.receiveListNotification();
  EXPECT_THAT(tests::linesOf(tests::contentsOf(listFile)), SizeIs(3));
}

TEST(ActiveProcessList, OtherNameOfAFileInItsPlaceIsReplacedAlone) {
  ListBench bench;
  tests::writeFile("victim", "precious");
  std::filesystem::create_hard_link("victim", listFile);
  bench.engine.receiveListNotification();
  EXPECT_EQ(tests::contentsOf("victim"), "precious");
  EXPECT_THAT(tests::linesOf(tests::contentsOf(listFile)), SizeIs(3));
}

TEST(ActiveProcessList, DirectoryInItsPlaceIsAnError) {
  ListBench bench;
  std::filesystem::create_directory(listFile);
  bench.engine.receiveListNotification();
  EXPECT_TRUE(
      bench.machine.logged("Failed to open file for writing [" + bench.path(listFile) + "]."));
  EXPECT_TRUE(std::filesystem::is_empty(listFile));
}

TEST(ActiveProcessList, ListForWhichThereIsNoRoomIsLoggedAndLeftEmpty) {
  ListBench bench;
  {
    const tests::FileSizeLimit noRoom(10);
    bench.engine.receiveListNotification();
  }
  EXPECT_TRUE(
      bench.machine.logged("Failed to write the whole list into [" + bench.path(listFile) + "]."));
  EXPECT_EQ(tests::contentsOf(listFile), "");
}

}  // namespace
}  // namespace ombrix
