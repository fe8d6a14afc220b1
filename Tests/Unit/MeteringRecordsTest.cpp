#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include "Source/Core/MeteringManager.h"
#include "Tests/Unit/CoreTestSupport.h"
#include "Utilities/Logging/LogManager.h"

// The arithmetic of run times, and the record files.

namespace ombrix {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::field;
using tests::utc;

constexpr std::uint64_t secondInNanoseconds = 1'000'000'000;

// An engine whose storage directory exists.
struct RecordBench : tests::MeteringBench {
  RecordBench() { std::filesystem::create_directory("records"); }

  [[nodiscard]] MeteringManager engine() const { return MeteringManager(&store); }

  // The only record there is.
  [[nodiscard]] std::string record() const {
    const std::vector<std::string> all = records();
    return all.size() == 1 ? all[0] : std::to_string(all.size()) + " records";
  }
};

// vim, run by alice from 10:00:00 to 10:05:30.
std::shared_ptr<ProcessData> runOfVim() {
  auto record = std::make_shared<ProcessData>();
  record->setProcessName("vim");
  record->setPath("/usr/bin");
  record->setUserName("alice");
  record->setStartTime(utc(2024, 3, 1, 10));
  record->setStopTime(utc(2024, 3, 1, 10, 5, 30));
  record->setStartTick(7 * secondInNanoseconds);
  record->setStopTick(337 * secondInNanoseconds);
  return record;
}

// The run time of a run from `startTick` to `stopTick` on a machine of that time base.
std::uint64_t runTime(platform::TimeBase base, std::uint64_t startTick, std::uint64_t stopTick) {
  RecordBench bench;
  bench.machine.timeBase = base;
  ProcessData record;
  record.setStartTick(startTick);
  record.setStopTick(stopTick);
  return bench.engine().processRunTimeInSeconds(record);
}

TEST(MeteringRecords, RunTimeIsTruncatedToWholeSeconds) {
  EXPECT_EQ(runTime({1, 1}, 0, 0), 0U);
  EXPECT_EQ(runTime({1, 1}, 0, 999'999'999), 0U);
  EXPECT_EQ(runTime({1, 1}, 5, 5 + 1'999'999'999), 1U);
  EXPECT_EQ(runTime({1, 1}, 5, 5 + 2'000'000'000), 2U);
}

TEST(MeteringRecords, TicksAreConvertedWithTheTimeBaseOfTheMachine) {
  EXPECT_EQ(runTime({125, 3}, 0, 24'000'000), 1U);
  EXPECT_EQ(runTime({125, 3}, 0, 23'999'999), 0U);
  EXPECT_EQ(runTime({125, 3}, 1'000, 1'000 + 24'000'000ULL * 3600), 3600U);
}

TEST(MeteringRecords, StopTickBelowTheStartTickWraps) {
  // 2 to the 64th ticks less one, as a double 2 to the 64th.
  EXPECT_EQ(runTime({1, 1}, 1, 0), 18'446'744'073U);
}

TEST(MeteringRecords, RunTimeFrom2ToThe63rdUpwardIsUnsigned) {
  constexpr std::uint64_t high = 0x8000000000000000;
  EXPECT_EQ(runTime({1'000'000'000, 1}, 0, high), high);
  EXPECT_EQ(runTime({1'000'000'000, 1}, 0, high + 0x4000000000000000), 0xC000000000000000);
}

TEST(MeteringRecords, PausedMinutesAreNotDeductedFromTheRunTime) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setPausedMinutes(5);
  EXPECT_EQ(bench.engine().processRunTimeInSeconds(*record), 330U);
}

TEST(MeteringRecords, RecordIsOneLineOfElevenFieldsWithoutALineEnd) {
  const RecordBench bench;
  bench.engine().writeMeteringData({runOfVim()});
  EXPECT_EQ(bench.record(), "vim;;;;/usr/bin;alice;;2024-03-01 10:00:00;2024-03-01 10:05:30;0;330");
}

TEST(MeteringRecords, FileNameIs40HexadecimalDigitsAndMet) {
  const RecordBench bench;
  bench.engine().writeMeteringData({runOfVim(), runOfVim()});
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("records")) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, SizeIs(2));
  EXPECT_THAT(names, Each(MatchesRegex("[0-9a-f]{40}[.]met")));
}

TEST(MeteringRecords, TimesAreLocal) {
  const RecordBench bench;
  tests::setTimeZone("IST-5:30");
  bench.engine().writeMeteringData({runOfVim()});
  EXPECT_EQ(field(bench.record(), 8), "2024-03-01 15:30:00");
  EXPECT_EQ(field(bench.record(), 9), "2024-03-01 15:35:30");
}

TEST(MeteringRecords, RunOverTheStartOfSummerTimeHasTheTimesOfTheWall) {
  const RecordBench bench;
  tests::setTimeZone(tests::centralEurope);
  const auto record = runOfVim();
  record->setStartTime(utc(2024, 3, 31, 0, 59));
  record->setStopTime(utc(2024, 3, 31, 1, 4, 30));
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(bench.record(), "vim;;;;/usr/bin;alice;;2024-03-31 01:59:00;2024-03-31 03:04:30;0;330");
}

TEST(MeteringRecords, PauseOfARunOverTheEndOfSummerTimeIsHeldAgainstItsRealLength) {
  const RecordBench bench;
  tests::setTimeZone(tests::centralEurope);
  const auto record = runOfVim();
  record->setStartTime(utc(2024, 10, 27, 0, 30));
  record->setStopTime(utc(2024, 10, 27, 1, 29));
  record->setPausedMinutes(5);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(bench.record(), "vim;;;;/usr/bin;alice;;2024-10-27 02:30:00;2024-10-27 02:29:00;5;330");
}

TEST(MeteringRecords, NoFieldIsQuoted) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setProcessName("a;b \"c\"\n");
  record->setPath("/opt/x;y");
  record->setUserName("DOMAIN\\al;ice");
  bench.engine().writeMeteringData({record});
  EXPECT_THAT(bench.record(), StartsWith("a;b \"c\"\n;;;;/opt/x;y;DOMAIN\\al;ice;;2024"));
}

TEST(MeteringRecords, AbsentFieldsReadNull) {
  const RecordBench bench;
  bench.engine().writeMeteringData({std::make_shared<ProcessData>()});
  EXPECT_EQ(bench.record(), "(null);;;;(null);(null);;(null);(null);0;0");
  EXPECT_THAT(bench.machine.systemLog, IsEmpty());
}

TEST(MeteringRecords, RunOfZeroSecondsIsWritten) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setStopTime(record->startTime());
  record->setStopTick(record->startTick());
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(bench.record(), "vim;;;;/usr/bin;alice;;2024-03-01 10:00:00;2024-03-01 10:00:00;0;0");
}

TEST(MeteringRecords, PauseOfMoreMinutesThanTheRunHasSecondsIsDroppedAndTold) {
  const RecordBench bench;
  LogManager::setLogLevel(LogLevel::emergency);
  const auto record = runOfVim();
  record->setStopTime(*record->startTime() + seconds(4));
  record->setPausedMinutes(5);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "0");
  EXPECT_EQ(record->pausedMinutes(), 0U);
  EXPECT_THAT(bench.machine.systemLog, ElementsAre("Diff: 4.000000\tPaused: 5"));
}

TEST(MeteringRecords, DroppedPauseIsNoMatterOfTheLogFile) {
  const RecordBench bench;
  tests::logEverything();
  const auto record = runOfVim();
  record->setPausedMinutes(331);
  bench.engine().writeMeteringData({record});
  EXPECT_TRUE(bench.machine.logged("Diff: 330.000000\tPaused: 331"));
  EXPECT_THAT(tests::logLines(), Each(StartsWith("[Debug]\tWriting met file [")));
}

TEST(MeteringRecords, PauseThatMayBeTrueStays) {
  const RecordBench bench;
  LogManager::setLogLevel(LogLevel::emergency);
  const auto record = runOfVim();
  record->setStopTime(*record->startTime() + seconds(300));
  record->setPausedMinutes(5);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "5");
  EXPECT_THAT(bench.machine.systemLog, IsEmpty());
}

TEST(MeteringRecords, PauseOfAsManyMinutesAsTheRunHasSecondsStays) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setPausedMinutes(330);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "330");
}

TEST(MeteringRecords, FractionsOfASecondCountForThePause) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setStopTime(*record->startTime() + milliseconds(4'999));
  record->setPausedMinutes(5);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "0");
  EXPECT_TRUE(bench.machine.logged("Diff: 4.999000\tPaused: 5"));
}

TEST(MeteringRecords, ClockSetBackMakesEvenNoPauseImplausible) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setStopTime(*record->startTime() - hours(1));
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "0");
  EXPECT_TRUE(bench.machine.logged("Diff: -3600.000000\tPaused: 0"));
}

TEST(MeteringRecords, PauseBelowZeroIsComparedAsUnsignedAndToldAsSigned) {
  const RecordBench bench;
  const auto record = runOfVim();
  record->setPausedMinutes(0xFFFFFFFE);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "0");
  EXPECT_TRUE(bench.machine.logged("Diff: 330.000000\tPaused: -2"));
}

TEST(MeteringRecords, PauseIsWrittenAsSigned) {
  const RecordBench bench;
  const auto record = runOfVim();
  // Long enough for a pause of 2 to the 32nd minutes to be plausible.
  record->setStartTime(utc(1900, 1, 1));
  record->setStopTime(utc(2100, 1, 1));
  record->setPausedMinutes(0xFFFFFFFE);
  bench.engine().writeMeteringData({record});
  EXPECT_EQ(field(bench.record(), 10), "-2");
}

TEST(MeteringRecords, ImplausiblePauseOfOneRecordLeavesTheOthersAlone) {
  const RecordBench bench;
  const auto implausible = runOfVim();
  implausible->setPausedMinutes(1000);
  const auto plausible = runOfVim();
  plausible->setPausedMinutes(3);
  bench.engine().writeMeteringData({implausible, plausible});
  const std::vector<std::string> records = bench.records();
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_EQ(field(records[0], 10), "0");
  EXPECT_EQ(field(records[1], 10), "3");
}

TEST(MeteringRecords, EmptyCollectionWritesAndLogsNothing) {
  const RecordBench bench;
  LogManager::setLogLevel(LogLevel::debugPlus);
  bench.engine().writeMeteringData({});
  EXPECT_THAT(bench.records(), IsEmpty());
  EXPECT_THAT(bench.machine.systemLog, IsEmpty());
}

TEST(MeteringRecords, EachFileIsLoggedWithItsPath) {
  const RecordBench bench;
  tests::logEverything();
  bench.engine().writeMeteringData({runOfVim()});
  const auto file = std::filesystem::directory_iterator("records")->path().filename().string();
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Debug]\tWriting met file [" + bench.path("records/") + file + "]"));
}

TEST(MeteringRecords, MissingFileNameEndsTheSet) {
  RecordBench bench;
  tests::logEverything();
  bench.machine.randomFails = true;
  bench.engine().writeMeteringData({runOfVim(), runOfVim(), runOfVim()});
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Error]\tCould not generate filename. Met file not saved."));
  EXPECT_THAT(bench.records(), IsEmpty());
}

TEST(MeteringRecords, MissingStorageDirectoryIsLoggedForEachRecord) {
  const RecordBench bench;
  tests::logEverything();
  std::filesystem::remove("records");
  bench.engine().writeMeteringData({runOfVim(), runOfVim()});
  const std::string path = "\\[" + bench.path("records/") + "[0-9a-f]{40}[.]met\\]";
  EXPECT_THAT(tests::logLines(),
              ElementsAre(MatchesRegex("\\[Debug\\].Writing met file " + path),
                          MatchesRegex("\\[Error\\].Could not write met file " + path),
                          MatchesRegex("\\[Debug\\].Writing met file " + path),
                          MatchesRegex("\\[Error\\].Could not write met file " + path)));
  EXPECT_FALSE(std::filesystem::exists("records"));
}

TEST(MeteringRecords, StorageDirectoryThatMayNotBeWrittenIsLoggedForEachRecord) {
  const RecordBench bench;
  const tests::ClosedFolder closed("records");
  bench.engine().writeMeteringData({runOfVim(), runOfVim()});
  EXPECT_THAT(bench.machine.systemLog, SizeIs(2));
  EXPECT_THAT(bench.machine.systemLog, Each(StartsWith("Could not write met file [")));
}

TEST(MeteringRecords, StorageDirectoryWithoutASettingIsLoggedAsNull) {
  RecordBench bench;
  tests::logEverything();
  bench.store.removeConfiguration("storagedirectory");
  bench.engine().writeMeteringData({runOfVim()});
  EXPECT_THAT(tests::logLines(), ElementsAre("[Debug]\tWriting met file [(null)]",
                                             "[Error]\tCould not write met file [(null)]"));
}

TEST(MeteringRecords, ExistingFileIsNeverReplaced) {
  RecordBench bench;
  bench.machine.nextRandomNumber = 1;
  bench.engine().writeMeteringData({runOfVim()});
  const std::string first = bench.record();
  const auto later = runOfVim();
  later->setProcessName("emacs");
  bench.machine.nextRandomNumber = 1;
  bench.engine().writeMeteringData({later});
  EXPECT_EQ(bench.record(), first);
}

TEST(MeteringRecords, RecordIsNotWrittenThroughALink) {
  RecordBench bench;
  bench.machine.nextRandomNumber = 1;
  bench.engine().writeMeteringData({runOfVim()});
  const auto file = std::filesystem::directory_iterator("records")->path();
  std::filesystem::remove(file);
  std::filesystem::create_symlink(bench.path("victim"), file);
  bench.machine.nextRandomNumber = 1;
  bench.engine().writeMeteringData({runOfVim()});
  EXPECT_FALSE(std::filesystem::exists("victim"));
}

TEST(MeteringRecords, RecordForWhichThereIsNoRoomIsRemovedAgainAndLogged) {
  const RecordBench bench;
  {
    const tests::FileSizeLimit noRoom(10);
    bench.engine().writeMeteringData({runOfVim()});
  }
  EXPECT_TRUE(std::filesystem::is_empty("records"));
  ASSERT_THAT(bench.machine.systemLog, SizeIs(1));
  EXPECT_THAT(bench.machine.systemLog[0], StartsWith("Could not write met file ["));
}

}  // namespace
}  // namespace ombrix
