#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::contentsOf;
using tests::namesIn;
using tests::writeFile;

const std::string stamp = "2024-03-01 10:00:00 - [Error]\t";

class LogTrimmingTest : public tests::ScratchFolderTest {
 protected:
  LogTrimmingTest() {
    tests::setTimeZone("UTC0");
    LogManager::setLogFilePath("./");
  }
};

void logError(const std::string& message) { LogManager::writeLog(message, LogLevel::error); }

TEST_F(LogTrimmingTest, AFileOfExactlyTheMaximumIsKept) {
  LogManager::setMaxAllowedLogSizeInBytes(static_cast<std::uint32_t>(stamp.size() + 4));

  logError("one");

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

TEST_F(LogTrimmingTest, OneByteMoreMovesTheFileAside) {
  LogManager::setMaxAllowedLogSizeInBytes(static_cast<std::uint32_t>(stamp.size() + 3));

  logError("one");

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "one\n");
}

TEST_F(LogTrimmingTest, TheNextLineBeginsANewFile) {
  LogManager::setMaxAllowedLogSizeInBytes(static_cast<std::uint32_t>(stamp.size() + 4));

  logError("one");
  logError("two");
  logError("six");

  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "one\n" + stamp + "two\n");
  EXPECT_EQ(contentsOf("metering.log"), stamp + "six\n");
}

TEST_F(LogTrimmingTest, WithAMaximumOfNothingTheOldFileHoldsTheLastLine) {
  LogManager::setMaxAllowedLogSizeInBytes(0);

  logError("one");
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "one\n");

  logError("two");
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "two\n");
}

TEST_F(LogTrimmingTest, AtFirstHalfAMebibyteIsAllowed) {
  constexpr std::size_t initialMaximum = 524288;
  writeFile("metering.log", std::string(initialMaximum - stamp.size() - 4, '.'));
  logError("one");
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));

  ASSERT_TRUE(LogManager::writeLogToFile("."));
  LogManager::logSizeTrimmer();
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
}

TEST_F(LogTrimmingTest, ARefusedMessageTrimsNothing) {
  writeFile("metering.log", "grown by others");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  LogManager::writeLog("refused", LogLevel::info);

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

TEST_F(LogTrimmingTest, ALineWrittenDirectlyTrimsNothing) {
  LogManager::setMaxAllowedLogSizeInBytes(0);

  EXPECT_TRUE(LogManager::writeLogToFile("line\n"));

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

TEST_F(LogTrimmingTest, SizesBeyondThirtyTwoBitsAreSizes) {
  writeFile("metering.log", "");
  constexpr off_t fourGibibytes = off_t{1} << 32;
  if (::truncate("metering.log", fourGibibytes) != 0) GTEST_SKIP() << "no files of this size here";

  LogManager::logSizeTrimmer();

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
}

TEST_F(LogTrimmingTest, WithoutAFileThereIsNothingToTrim) {
  writeFile("metering.log.old", "earlier\n");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  LogManager::logSizeTrimmer();

  EXPECT_EQ(contentsOf("metering.log.old"), "earlier\n");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(LogTrimmingTest, ALinkInThePlaceOfTheOldFileIsReplacedAndItsTargetKept) {
  writeFile("victim", "precious");
  std::filesystem::create_symlink("victim", "metering.log.old");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  logError("one");

  EXPECT_EQ(contentsOf("victim"), "precious");
  EXPECT_FALSE(std::filesystem::is_symlink("metering.log.old"));
  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "one\n");
}

TEST_F(LogTrimmingTest, AnOldLinkThatLeadsNowhereMakesNoFileThere) {
  std::filesystem::create_symlink("victim", "metering.log.old");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  logError("one");

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "one\n");
}

TEST_F(LogTrimmingTest, ALogThatIsALinkIsNotMoved) {
  writeFile("victim", "precious");
  std::filesystem::create_symlink("victim", "metering.log");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  LogManager::logSizeTrimmer();

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log", "victim"));
}

TEST_F(LogTrimmingTest, ALogThatCannotBeMovedGoesOnGrowingInSilence) {
  std::filesystem::create_directories("metering.log.old/kept");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  logError("one");
  logError("two");

  EXPECT_EQ(contentsOf("metering.log"), stamp + "one\n" + stamp + "two\n");
  EXPECT_THAT(machine.systemLog, ElementsAre("one", "two"));
}

TEST(LogTrimming, EarlyLinesAreWrittenWithoutTrimming) {
  const tests::ScratchFolder folder;
  tests::FakeMachine machine;
  tests::setTimeZone("UTC0");
  LogManager::setMaxAllowedLogSizeInBytes(0);
  logError("one");
  logError("two");

  LogManager::setLogFilePath("./");
  EXPECT_EQ(contentsOf("metering.log"), stamp + "one\n" + stamp + "two\n");

  logError("six");
  EXPECT_THAT(namesIn("."), ElementsAre("metering.log.old"));
  EXPECT_EQ(contentsOf("metering.log.old"), stamp + "one\n" + stamp + "two\n" + stamp + "six\n");
}

TEST(LogTrimming, BeforeThePathIsKnownThereIsNothingToTrim) {
  const tests::ScratchFolder folder;
  writeFile("metering.log", "of others");
  LogManager::setMaxAllowedLogSizeInBytes(0);

  LogManager::logSizeTrimmer();

  EXPECT_THAT(namesIn("."), ElementsAre("metering.log"));
}

}  // namespace
}  // namespace ombrix
