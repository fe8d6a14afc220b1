#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <type_traits>
#include <utility>

#include "Platform/FileDescriptor.h"
#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::contentsOf;
using tests::FileSizeLimit;
using tests::namesIn;
using tests::somethingAt;
using tests::Watchdog;
using tests::WithoutPrivileges;
using tests::writeFile;

static_assert(!std::is_default_constructible_v<LogManager>);

constexpr const char* cannotOpen = "Failed to open file for writing.";

class LogManagerTest : public tests::ScratchFolderTest {
 protected:
  LogManagerTest() {
    tests::setTimeZone("EAST-4:07:09");
    machine.date = platform::Date(std::chrono::seconds(1'709'632'800));  // 10:00:00 UTC
  }
};

// What the message "text" looks like in the file when it is logged at the machine's first date.
std::string errorLine(const std::string& text) {
  return "2024-03-05 14:07:09 - [Error]\t" + text + "\n";
}

void logError(const std::string& message) { LogManager::writeLog(message, LogLevel::error); }

// --- Levels --------------------------------------------------------------------------------------

TEST_F(LogManagerTest, EveryLevelHasItsName) {
  const std::pair<std::uint32_t, const char*> table[] = {
      {0, "Emergency"}, {1, "Alert"},  {2, "Critical"},     {3, "Error"},
      {4, "Warning"},   {5, "Notice"}, {6, "Info"},         {7, "Debug"},
      {8, "Debug+"},    {9, "Log "},   {4294967295, "Log "}};
  for (const auto& [level, name] : table) EXPECT_EQ(LogManager::logLevelToString(level), name);
}

TEST_F(LogManagerTest, FiveWordsNameALevelAndAnyOtherSilencesTheLog) {
  const std::pair<const char*, std::uint32_t> table[] = {
      {"error", 3},    {"warning", 4},   {"info", 6},   {"trace", 7},  {"verbose", 8},
      {"Error", 0},    {"WARNING", 0},   {"Info", 0},   {"debug", 0},  {"Debug+", 0},
      {"notice", 0},   {"alert", 0},     {"", 0},       {" info ", 0}, {"infos", 0},
      {"critical", 0}, {"emergency", 0}, {"(null)", 0}, {"3", 0}};
  for (const auto& [word, level] : table) {
    EXPECT_EQ(LogManager::convertLogLevel(word), level) << word;
  }
}

TEST_F(LogManagerTest, AtFirstWarningsPassAndNoticesDoNot) {
  LogManager::setLogFilePath("./");

  LogManager::writeLog("information", LogLevel::info);
  LogManager::writeLog("a notice", LogLevel::notice);
  EXPECT_THAT(machine.systemLog, IsEmpty());
  EXPECT_FALSE(somethingAt("metering.log"));

  LogManager::writeLog("a warning", LogLevel::warning);
  EXPECT_THAT(machine.systemLog, ElementsAre("a warning"));
  EXPECT_EQ(contentsOf("metering.log"), "2024-03-05 14:07:09 - [Warning]\ta warning\n");
}

TEST_F(LogManagerTest, AfterAnUnknownWordOnlyEmergenciesPass) {
  LogManager::setLogLevel(LogManager::convertLogLevel("Info"));

  LogManager::writeLog("alert", LogLevel::alert);
  LogManager::writeLog("emergency", LogLevel::emergency);

  EXPECT_THAT(machine.systemLog, ElementsAre("emergency"));
}

TEST_F(LogManagerTest, ANumberThatIsNoLevelPassesWhenTheActiveOneIsAsHigh) {
  LogManager::setLogFilePath("./");
  LogManager::setLogLevel(9);

  LogManager::writeLog("ten", 10);
  LogManager::writeLog("nine", 9);

  EXPECT_EQ(contentsOf("metering.log"), "2024-03-05 14:07:09 - [Log ]\tnine\n");
}

TEST_F(LogManagerTest, LevelsHaveNoSign) {
  constexpr std::uint32_t highest = 0xFFFFFFFF;
  LogManager::writeLog("minus one, were there a sign", highest);
  EXPECT_THAT(machine.systemLog, IsEmpty());

  LogManager::setLogLevel(highest);
  LogManager::writeLog("debug", LogLevel::debugPlus);
  EXPECT_THAT(machine.systemLog, ElementsAre("debug"));
}

TEST_F(LogManagerTest, AChangedLevelAffectsLaterMessagesOnly) {
  LogManager::writeLog("kept", LogLevel::warning);

  LogManager::setLogLevel(LogLevel::alert);
  LogManager::writeLog("refused", LogLevel::warning);
  LogManager::setLogFilePath("./");

  EXPECT_EQ(contentsOf("metering.log"), "2024-03-05 14:07:09 - [Warning]\tkept\n");
}

// --- Lines ---------------------------------------------------------------------------------------

TEST_F(LogManagerTest, TheSystemLogGetsTheMessageAloneAndTheFileTheWholeLine) {
  LogManager::setLogFilePath("./");

  logError("message");

  EXPECT_THAT(machine.systemLog, ElementsAre("message"));
  EXPECT_EQ(contentsOf("metering.log"), "2024-03-05 14:07:09 - [Error]\tmessage\n");
}

TEST_F(LogManagerTest, MessagesAreNotEscaped) {
  LogManager::setLogFilePath("./");

  logError("one\n%@ %s\ttwo ä");

  EXPECT_EQ(contentsOf("metering.log"), errorLine("one\n%@ %s\ttwo ä"));
}

TEST_F(LogManagerTest, LinesAreAppendedToWhatTheFileHolds) {
  writeFile("metering.log", "of an earlier run\n");
  LogManager::setLogFilePath("./");

  logError("one");
  logError("two");

  EXPECT_EQ(contentsOf("metering.log"),
            "of an earlier run\n" + errorLine("one") + errorLine("two"));
}

TEST_F(LogManagerTest, ALineWrittenDirectlyIsWrittenAsItIs) {
  LogManager::setLogFilePath("./");

  EXPECT_TRUE(LogManager::writeLogToFile("bare"));

  EXPECT_EQ(contentsOf("metering.log"), "bare");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(LogManagerTest, NoLineCanBeWrittenBeforeThePathIsKnown) {
  EXPECT_FALSE(LogManager::writeLogToFile("line\n"));

  EXPECT_THAT(machine.systemLog, ElementsAre(cannotOpen));
}

// --- The path ------------------------------------------------------------------------------------

TEST_F(LogManagerTest, EarlyLinesComeFirstEachWithTheTimeOfItsLogging) {
  logError("first");
  machine.pass(std::chrono::seconds(51));
  logError("second");
  machine.pass(std::chrono::hours(1));

  LogManager::setLogFilePath(folder.path() + "/");
  EXPECT_EQ(contentsOf("metering.log"),
            "2024-03-05 14:07:09 - [Error]\tfirst\n2024-03-05 14:08:00 - [Error]\tsecond\n");
  logError("third");

  EXPECT_EQ(contentsOf("metering.log"),
            "2024-03-05 14:07:09 - [Error]\tfirst\n2024-03-05 14:08:00 - [Error]\tsecond\n"
            "2024-03-05 15:08:00 - [Error]\tthird\n");
  EXPECT_THAT(machine.systemLog, ElementsAre("first", "second", "third"));
}

TEST_F(LogManagerTest, ThePathAloneMakesNoFile) {
  LogManager::setLogFilePath("./");

  EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(LogManagerTest, EarlyLinesAreWrittenOnce) {
  std::filesystem::create_directory("other");
  logError("early");

  LogManager::setLogFilePath("./");
  LogManager::setLogFilePath("./other/");
  logError("late");

  EXPECT_EQ(contentsOf("metering.log"), errorLine("early"));
  EXPECT_EQ(contentsOf("other/metering.log"), errorLine("late"));
}

TEST_F(LogManagerTest, TheNameIsJoinedStraightToTheDirectory) {
  LogManager::setLogFilePath("./logs");

  logError("message");

  EXPECT_EQ(contentsOf("logsmetering.log"), errorLine("message"));
}

TEST_F(LogManagerTest, WithoutADirectoryTheNameBeginsWithNull) {
  LogManager::setLogFilePath(std::nullopt);

  logError("message");

  EXPECT_EQ(contentsOf("(null)metering.log"), errorLine("message"));
}

TEST_F(LogManagerTest, EveryEarlyLineThatIsLostIsReported) {
  logError("one");
  logError("two");
  machine.systemLog.clear();

  LogManager::setLogFilePath("missing/");

  constexpr const char* lost =
      "LogManager::setLogFilePath - Failed writing log to [missing/metering.log]";
  EXPECT_THAT(machine.systemLog, ElementsAre(cannotOpen, lost, cannotOpen, lost));
}

TEST_F(LogManagerTest, LostEarlyLinesAreNotKeptForAnotherPath) {
  logError("lost");
  LogManager::setLogFilePath("missing/");
  logError("lost too");

  LogManager::setLogFilePath("./");
  logError("written");

  EXPECT_EQ(contentsOf("metering.log"), errorLine("written"));
}

// --- Failures ------------------------------------------------------------------------------------

TEST_F(LogManagerTest, AFileThatCannotBeOpenedCostsTheLineAndNothingElse) {
  LogManager::setLogFilePath("later/");
  logError("lost");
  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));

  std::filesystem::create_directory("later");
  logError("written");

  EXPECT_EQ(contentsOf("later/metering.log"), errorLine("written"));
}

TEST_F(LogManagerTest, ADirectoryInThePlaceOfTheFileCostsTheLine) {
  std::filesystem::create_directory("metering.log");
  LogManager::setMaxAllowedLogSizeInBytes(0);
  LogManager::setLogFilePath("./");

  logError("lost");

  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

TEST_F(LogManagerTest, AFileThatMayNotBeWrittenCostsTheLine) {
  writeFile("metering.log", "closed\n");
  ::chmod("metering.log", 0444);
  LogManager::setLogFilePath("./");
  {
    const WithoutPrivileges asAnyUser;
    logError("lost");
  }
  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));
  EXPECT_EQ(contentsOf("metering.log"), "closed\n");
}

TEST_F(LogManagerTest, AFullDiskLeavesNoHalfLine) {
  LogManager::setLogFilePath("./");
  logError("whole");
  {
    const FileSizeLimit full(errorLine("whole").size() + 10);
    logError("lost");
  }
  EXPECT_EQ(contentsOf("metering.log"), errorLine("whole"));

  logError("written");
  EXPECT_EQ(contentsOf("metering.log"), errorLine("whole") + errorLine("written"));
}

TEST_F(LogManagerTest, AFileThatOpensHasTakenTheLineAlsoOnAFullDisk) {
  logError("early");
  const FileSizeLimit full(0);

  LogManager::setLogFilePath("./");

  EXPECT_TRUE(LogManager::writeLogToFile("line\n"));
  EXPECT_THAT(machine.systemLog, ElementsAre("early"));
}

TEST_F(LogManagerTest, ALogRemovedByOthersIsMadeAnew) {
  LogManager::setLogFilePath("./");
  logError("one");
  std::filesystem::remove("metering.log");

  logError("two");

  EXPECT_EQ(contentsOf("metering.log"), errorLine("two"));
}

// --- Planted files -------------------------------------------------------------------------------

TEST_F(LogManagerTest, ALinkInThePlaceOfTheLogIsNotFollowed) {
  writeFile("victim", "precious");
  std::filesystem::create_symlink("victim", "metering.log");
  LogManager::setMaxAllowedLogSizeInBytes(0);
  LogManager::setLogFilePath("./");

  logError("lost");

  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));
  EXPECT_EQ(contentsOf("victim"), "precious");
  EXPECT_TRUE(std::filesystem::is_symlink("metering.log"));
}

TEST_F(LogManagerTest, ALinkThatLeadsNowhereMakesNoFileThere) {
  std::filesystem::create_symlink("victim", "metering.log");
  LogManager::setMaxAllowedLogSizeInBytes(0);
  LogManager::setLogFilePath("./");

  logError("lost");

  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

TEST_F(LogManagerTest, APipeInThePlaceOfTheLogDoesNotBlock) {
  ASSERT_EQ(::mkfifo("metering.log", 0666), 0);
  LogManager::setLogFilePath("./");

  const Watchdog watchdog;
  logError("lost");

  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));
}

TEST_F(LogManagerTest, APipeThatIsReadGetsNothing) {
  ASSERT_EQ(::mkfifo("metering.log", 0666), 0);
  const platform::FileDescriptor reader(::open("metering.log", O_RDONLY | O_NONBLOCK));
  LogManager::setMaxAllowedLogSizeInBytes(0);
  LogManager::setLogFilePath("./");

  const Watchdog watchdog;
  logError("lost");

  char byte = 0;
  EXPECT_LE(::read(reader.get(), &byte, 1), 0);
  EXPECT_THAT(machine.systemLog, ElementsAre("lost", cannotOpen));
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

}  // namespace
}  // namespace ombrix
