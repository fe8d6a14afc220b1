#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <type_traits>

#include "Platform/Digest.h"
#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/FileUtils.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using tests::namesIn;
using tests::somethingAt;
using tests::Watchdog;
using tests::WithoutPrivileges;
using tests::writeFile;

static_assert(!std::is_default_constructible_v<FileUtils>);

class FileUtilsTest : public tests::ScratchFolderTest {};

// --- Paths ---------------------------------------------------------------------------------------

TEST_F(FileUtilsTest, APathThatDoesNotExistIsReturnedUnchanged) {
  const std::string longName(5000, 'x');
  for (const std::string& path : {std::string("./missing/../file"), std::string("missing"),
                                  std::string("/nowhere/at//all/"), std::string(), longName}) {
    EXPECT_EQ(FileUtils::caseSensitiveFilePath(path), path);
  }
}

TEST_F(FileUtilsTest, AnExistingPathBecomesAbsoluteAndPlain) {
  std::filesystem::create_directories("a/b");
  writeFile("a/file", "");

  EXPECT_EQ(FileUtils::caseSensitiveFilePath("./a/b/..//./file"), folder.path() + "/a/file");
  EXPECT_EQ(FileUtils::caseSensitiveFilePath("a/b/"), folder.path() + "/a/b");
  EXPECT_EQ(FileUtils::caseSensitiveFilePath("."), folder.path());
  EXPECT_EQ(FileUtils::caseSensitiveFilePath("/"), "/");
}

TEST_F(FileUtilsTest, APathThroughALinkIsResolved) {
  std::filesystem::create_directory("real");
  writeFile("real/file", "");
  std::filesystem::create_directory_symlink("real", "link");
  std::filesystem::create_symlink("link/file", "second");

  EXPECT_EQ(FileUtils::caseSensitiveFilePath("link/file"), folder.path() + "/real/file");
  EXPECT_EQ(FileUtils::caseSensitiveFilePath("second"), folder.path() + "/real/file");
}

TEST_F(FileUtilsTest, ALinkThatLeadsNowhereIsReturnedUnchanged) {
  std::filesystem::create_symlink("missing", "link");
  std::filesystem::create_symlink("loop", "loop");

  EXPECT_EQ(FileUtils::caseSensitiveFilePath("./link"), "./link");
  EXPECT_EQ(FileUtils::caseSensitiveFilePath("./loop"), "./loop");
}

TEST_F(FileUtilsTest, APathThatMayNotBeSearchedIsReturnedUnchanged) {
  std::filesystem::create_directory("closed");
  writeFile("closed/file", "");
  ::chmod("closed", 0);

  const WithoutPrivileges asAnyUser;
  EXPECT_EQ(FileUtils::caseSensitiveFilePath("./closed/file"), "./closed/file");
}

// --- Readable files ------------------------------------------------------------------------------

TEST_F(FileUtilsTest, FilesFoldersAndLinksToThemAreReadable) {
  writeFile("file", "");
  std::filesystem::create_directory("folder");
  std::filesystem::create_symlink("file", "link");

  for (const char* path : {"file", "./file", "folder", "folder/", "link", "/"}) {
    EXPECT_TRUE(FileUtils::fileExistsAndReadable(path)) << path;
  }
}

TEST_F(FileUtilsTest, WhatDoesNotExistIsNotReadable) {
  std::filesystem::create_symlink("missing", "link");
  writeFile("file", "");

  for (const char* path : {"missing", "link", "file/below", ""}) {
    EXPECT_FALSE(FileUtils::fileExistsAndReadable(path)) << path;
  }
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(FileUtilsTest, AFileThatMayNotBeReadIsNotReadable) {
  writeFile("closed", "text");
  ::chmod("closed", 0);
  writeFile("writable", "text");
  ::chmod("writable", 0222);

  const WithoutPrivileges asAnyUser;
  EXPECT_FALSE(FileUtils::fileExistsAndReadable("closed"));
  EXPECT_FALSE(FileUtils::fileExistsAndReadable("writable"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

// --- Lines ---------------------------------------------------------------------------------------

TEST_F(FileUtilsTest, AFileIsSplitAtEachLineFeed) {
  struct Case {
    const char* text;
    std::vector<std::string> pieces;
  };
  for (const Case& c :
       {Case{"x\ny\n", {"x", "y", ""}}, Case{"x\ny", {"x", "y"}}, Case{"x\r\ny", {"x\r", "y"}},
        Case{"", {""}}, Case{"\n", {"", ""}}, Case{"\n\nä", {"", "", "ä"}}}) {
    writeFile("text", c.text);
    EXPECT_EQ(FileUtils::fileToStringArray("text"), c.pieces) << c.text;
  }
}

TEST_F(FileUtilsTest, ALongFileIsReadWhole) {
  const std::string line(100'000, 'x');
  writeFile("text", line + "\n" + line);

  EXPECT_EQ(FileUtils::fileToStringArray("text"), std::vector<std::string>({line, line}));
}

TEST_F(FileUtilsTest, LinesAreReadThroughALink) {
  writeFile("text", "x");
  std::filesystem::create_symlink("text", "link");

  EXPECT_EQ(FileUtils::fileToStringArray("link"), std::vector<std::string>{"x"});
}

TEST_F(FileUtilsTest, AFileThatCannotBeReadIsOneEmptyPiece) {
  std::filesystem::create_directory("folder");
  ASSERT_EQ(::mkfifo("pipe", 0666), 0);
  writeFile("closed", "text");
  ::chmod("closed", 0);

  const WithoutPrivileges asAnyUser;
  const Watchdog watchdog;
  for (const char* path : {"missing", "folder", "pipe", "closed", ""}) {
    EXPECT_EQ(FileUtils::fileToStringArray(path), std::vector<std::string>{""}) << path;
  }
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(FileUtilsTest, AFileThatIsNotUtf8HasNoLines) {
  writeFile("text", "fine\nnot\xFF fine\n");

  EXPECT_EQ(FileUtils::fileToStringArray("text"), std::nullopt);
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

// --- Directories ---------------------------------------------------------------------------------

TEST_F(FileUtilsTest, ADirectoryIsMadeWithItsMissingParents) {
  std::filesystem::create_directory("a");

  EXPECT_TRUE(FileUtils::makeSureDirExist("a/b/c"));
  EXPECT_TRUE(std::filesystem::is_directory("a/b/c"));
  EXPECT_TRUE(FileUtils::makeSureDirExist(folder.path() + "/d/e/"));
  EXPECT_TRUE(std::filesystem::is_directory("d/e"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(FileUtilsTest, AnExistingDirectoryIsLeftAlone) {
  std::filesystem::create_directories("a/b");
  std::filesystem::create_directory_symlink("a", "link");

  for (const char* path : {"a", "a/", "link", ".", "/"}) {
    EXPECT_TRUE(FileUtils::makeSureDirExist(path)) << path;
  }
  EXPECT_THAT(namesIn("a"), ElementsAre("b"));
}

TEST_F(FileUtilsTest, AnOrdinaryFileCountsAsTheDirectory) {
  writeFile("file", "text");

  EXPECT_TRUE(FileUtils::makeSureDirExist("file"));
  EXPECT_TRUE(FileUtils::makeSureDirExist("./file/"));

  EXPECT_TRUE(std::filesystem::is_regular_file("file"));
  EXPECT_THAT(namesIn("."), ElementsAre("file"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(FileUtilsTest, ADirectoryThatCannotBeMadeIsReportedToTheSystemOnly) {
  LogManager::setLogFilePath("./");
  writeFile("file", "");
  std::filesystem::create_symlink("missing", "link");

  EXPECT_FALSE(FileUtils::makeSureDirExist("file/below/it"));
  EXPECT_FALSE(FileUtils::makeSureDirExist("link"));
  EXPECT_FALSE(FileUtils::makeSureDirExist(""));
  EXPECT_FALSE(FileUtils::makeSureDirExist(std::nullopt));

  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("Error: Create folder failed file/below/it", "Error: Create folder failed link",
                  "Error: Create folder failed ", "Error: Create folder failed (null)"));
  EXPECT_FALSE(somethingAt("metering.log"));
}

// --- Unique names --------------------------------------------------------------------------------

std::string hexadecimal(const platform::Sha1Digest& digest) {
  std::string text;
  char byteText[3];
  for (const unsigned byte : digest) {
    std::snprintf(byteText, sizeof byteText, "%02x", byte);
    text += byteText;
  }
  return text;
}

TEST_F(FileUtilsTest, AUniqueNameIsFortyDigitsAndTheSuffix) {
  const auto name = FileUtils::generateUniqueFilename(".met");

  ASSERT_TRUE(name);
  EXPECT_EQ(name->size(), 44U);
  EXPECT_THAT(name->substr(0, 40), MatchesRegex("[0-9a-f]+"));
  EXPECT_EQ(name->substr(40), ".met");
}

TEST_F(FileUtilsTest, TwoNamesOfTheSameSecondDiffer) {
  EXPECT_NE(FileUtils::generateUniqueFilename(".met"), FileUtils::generateUniqueFilename(".met"));
}

TEST_F(FileUtilsTest, TheDigitsAreTheDigestOfTimeHostAndNumber) {
  machine.hostName = "My Mac-Mini";
  machine.nextRandomNumber = 0xFFFFFFFE;

  EXPECT_EQ(FileUtils::generateUniqueFilename(".met"),
            hexadecimal(*platform::sha1("1709287200My Mac-Mini-2")) + ".met");
}

TEST_F(FileUtilsTest, AComputerWithoutANameHasUniqueNamesToo) {
  machine.hostName = "";

  EXPECT_EQ(FileUtils::generateUniqueFilename(""), hexadecimal(*platform::sha1("17092872001")));
}

TEST_F(FileUtilsTest, UnwantedCharactersOfTheSuffixAreRemoved) {
  const auto name = FileUtils::generateUniqueFilename("-a/b:c+d=e f_-.met");

  ASSERT_TRUE(name);
  EXPECT_EQ(name->substr(40), "abcdef_.met");
}

TEST_F(FileUtilsTest, WithoutADigestTheNameIsUnhashedAndReported) {
  machine.digestFails = true;
  machine.hostName = "-a/b:c+d=e f";
  machine.nextRandomNumber = 0x80000000;

  EXPECT_EQ(FileUtils::generateUniqueFilename(".m e-t"), "1709287200abcdef2147483648.met");

  EXPECT_THAT(machine.systemLog, ElementsAre("FileUtils::generateUniqueFilename failed."));
}

TEST_F(FileUtilsTest, AFailedDigestIsAnError) {
  machine.digestFails = true;

  LogManager::setLogLevel(LogLevel::critical);
  EXPECT_NE(FileUtils::generateUniqueFilename(""), std::nullopt);
  EXPECT_THAT(machine.systemLog, IsEmpty());

  LogManager::setLogLevel(LogLevel::error);
  EXPECT_NE(FileUtils::generateUniqueFilename(""), std::nullopt);
  EXPECT_THAT(machine.systemLog, ElementsAre("FileUtils::generateUniqueFilename failed."));
}

TEST_F(FileUtilsTest, TheSecondsOfANameAreTruncatedTowardZeroToThirtyTwoBits) {
  using std::chrono::milliseconds;
  const std::pair<milliseconds, const char*> table[] = {
      {milliseconds(1'999), "1"},
      {milliseconds(-1'999), "1"},  // "-1" without its sign
      {milliseconds(2'147'483'647'999), "2147483647"},
      {milliseconds(2'147'483'648'000), "2147483648"},  // the lowest of 32 bits, without its sign
      {milliseconds(4'294'967'299'000), "3"},
  };
  machine.digestFails = true;
  machine.hostName = "h";
  for (const auto& [since1970, seconds] : table) {
    machine.date = platform::Date(since1970);
    machine.nextRandomNumber = 7;
    EXPECT_EQ(FileUtils::generateUniqueFilename(""), std::string(seconds) + "h7");
  }
}

TEST_F(FileUtilsTest, WithoutARandomNumberThereIsNoUniqueName) {
  machine.randomFails = true;

  EXPECT_EQ(FileUtils::generateUniqueFilename(".met"), std::nullopt);
}

}  // namespace
}  // namespace ombrix
