#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/FileUtils.h"

namespace ombrix {
namespace {

using platform::FileDescriptor;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::contentsOf;
using tests::FileSizeLimit;
using tests::namesIn;
using tests::somethingAt;
using tests::Watchdog;
using tests::WithoutPrivileges;
using tests::writeFile;

class FileWritingTest : public tests::ScratchFolderTest {};

mode_t modeOf(const char* path) {
  struct stat status {};
  return ::lstat(path, &status) == 0 ? status.st_mode & 07777 : 0;
}

// --- New files -----------------------------------------------------------------------------------

TEST_F(FileWritingTest, ANewFileHoldsTheContentsAndNothingElse) {
  const std::string contents("line\nä\0\xFF", 9);

  EXPECT_TRUE(FileUtils::writeNewFile("new", contents));

  EXPECT_EQ(contentsOf("new"), contents);
}

TEST_F(FileWritingTest, ANewFileMayBeEmpty) {
  EXPECT_TRUE(FileUtils::writeNewFile("new", ""));

  EXPECT_EQ(contentsOf("new"), "");
}

TEST_F(FileWritingTest, ANewFileIsReadableByAllAsFarAsTheMaskLets) {
  ::umask(0022);
  EXPECT_TRUE(FileUtils::writeNewFile("shared", "text"));
  ::umask(0077);
  EXPECT_TRUE(FileUtils::writeNewFile("private", "text"));

  EXPECT_EQ(modeOf("shared"), 0644U);
  EXPECT_EQ(modeOf("private"), 0600U);
}

TEST_F(FileWritingTest, AnExistingFileIsNeitherReplacedNorRemoved) {
  writeFile("existing", "precious");

  EXPECT_FALSE(FileUtils::writeNewFile("existing", "text"));

  EXPECT_EQ(contentsOf("existing"), "precious");
}

TEST_F(FileWritingTest, ALinkIsNotWrittenThrough) {
  writeFile("victim", "precious");
  std::filesystem::create_symlink("victim", "link");
  std::filesystem::create_symlink("missing", "nowhere");

  EXPECT_FALSE(FileUtils::writeNewFile("link", "text"));
  EXPECT_FALSE(FileUtils::writeNewFile("nowhere", "text"));

  EXPECT_EQ(contentsOf("victim"), "precious");
  EXPECT_THAT(namesIn("."), ElementsAre("link", "nowhere", "victim"));
}

TEST_F(FileWritingTest, AnExistingPipeDoesNotBlock) {
  ASSERT_EQ(::mkfifo("pipe", 0666), 0);

  const Watchdog watchdog;
  EXPECT_FALSE(FileUtils::writeNewFile("pipe", "text"));
  EXPECT_TRUE(somethingAt("pipe"));
}

TEST_F(FileWritingTest, WithoutItsFolderThereIsNoNewFile) {
  EXPECT_FALSE(FileUtils::writeNewFile("missing/new", "text"));
  EXPECT_FALSE(FileUtils::writeNewFile("", "text"));

  EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(FileWritingTest, WhatDoesNotFitWholeIsRemoved) {
  {
    const FileSizeLimit full(3);
    EXPECT_FALSE(FileUtils::writeNewFile("half", "text"));
  }
  {
    const FileSizeLimit full(0);
    EXPECT_FALSE(FileUtils::writeNewFile("nothing", "text"));
  }
  EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(FileWritingTest, WhatJustFitsStays) {
  {
    const FileSizeLimit justEnough(4);
    EXPECT_TRUE(FileUtils::writeNewFile("whole", "text"));
  }
  EXPECT_EQ(contentsOf("whole"), "text");
}

// --- Empty files ---------------------------------------------------------------------------------

TEST_F(FileWritingTest, AMissingFileIsCreatedEmpty) {
  FileUtils::createFileIfMissing("new");

  EXPECT_EQ(contentsOf("new"), "");
}

TEST_F(FileWritingTest, WhatExistsIsNotCreatedAgain) {
  writeFile("existing", "precious");
  std::filesystem::create_symlink("missing", "link");

  FileUtils::createFileIfMissing("existing");
  FileUtils::createFileIfMissing("link");

  EXPECT_EQ(contentsOf("existing"), "precious");
  EXPECT_THAT(namesIn("."), ElementsAre("existing", "link"));
}

TEST_F(FileWritingTest, AnEmptyFileTakesThePlaceOfAFullOne) {
  writeFile("report", "earlier");

  FileUtils::createEmptyFile("report");
  FileUtils::createEmptyFile("new");

  EXPECT_EQ(contentsOf("report"), "");
  EXPECT_EQ(contentsOf("new"), "");
}

TEST_F(FileWritingTest, AnEmptyFileTakesThePlaceOfALinkAndItsTargetIsKept) {
  writeFile("victim", "precious");
  std::filesystem::create_symlink("victim", "link");
  std::filesystem::create_symlink("missing", "nowhere");

  FileUtils::createEmptyFile("link");
  FileUtils::createEmptyFile("nowhere");

  EXPECT_EQ(contentsOf("victim"), "precious");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status("link")));
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status("nowhere")));
  EXPECT_FALSE(somethingAt("missing"));
}

TEST_F(FileWritingTest, AnotherNameOfTheSameFileIsNotEmptied) {
  writeFile("victim", "precious");
  std::filesystem::create_hard_link("victim", "report");

  FileUtils::createEmptyFile("report");

  EXPECT_EQ(contentsOf("victim"), "precious");
  EXPECT_EQ(contentsOf("report"), "");
}

TEST_F(FileWritingTest, AFileInAClosedFolderIsEmptiedInItsPlace) {
  writeFile("report", "earlier");
  ::chmod("report", 0666);
  ::chmod(".", 0555);
  {
    const WithoutPrivileges asAnyUser;
    FileUtils::createEmptyFile("report");
  }
  ::chmod(".", 0755);
  EXPECT_EQ(contentsOf("report"), "");
}

TEST_F(FileWritingTest, ADirectoryIsNotReplacedByAnEmptyFile) {
  std::filesystem::create_directories("folder/kept");

  FileUtils::createEmptyFile("folder");

  EXPECT_THAT(namesIn("folder"), ElementsAre("kept"));
}

// --- Appending -----------------------------------------------------------------------------------

TEST_F(FileWritingTest, WhatIsAppendedGoesToTheEnd) {
  writeFile("log", "one\n");
  const FileDescriptor first = FileUtils::openForAppending("log");
  const FileDescriptor second = FileUtils::openForAppending("log");

  EXPECT_TRUE(FileUtils::append(first, "two\n"));
  EXPECT_TRUE(FileUtils::append(second, "three\n"));
  EXPECT_TRUE(FileUtils::append(first, ""));

  EXPECT_EQ(contentsOf("log"), "one\ntwo\nthree\n");
}

TEST_F(FileWritingTest, OnlyAnOrdinaryFileIsOpenedForAppending) {
  writeFile("file", "");
  std::filesystem::create_symlink("file", "link");
  std::filesystem::create_directory("folder");
  ASSERT_EQ(::mkfifo("pipe", 0666), 0);
  ASSERT_EQ(::mkfifo("readPipe", 0666), 0);
  const FileDescriptor reader(::open("readPipe", O_RDONLY | O_NONBLOCK));

  const Watchdog watchdog;
  for (const char* path : {"link", "folder", "pipe", "readPipe", "missing", "", "/dev/null"}) {
    EXPECT_FALSE(FileUtils::openForAppending(path).valid()) << path;
  }
  EXPECT_FALSE(somethingAt("missing"));
  EXPECT_TRUE(FileUtils::openForAppending("file").valid());
}

TEST_F(FileWritingTest, AFileWithAnotherNameIsNotOpenedForAppending) {
  writeFile("victim", "precious");
  std::filesystem::create_hard_link("victim", "log");

  EXPECT_FALSE(FileUtils::openForAppending("log").valid());
  std::filesystem::remove("victim");
  EXPECT_TRUE(FileUtils::openForAppending("log").valid());
}

TEST_F(FileWritingTest, AFileThatMayNotBeWrittenIsNotOpened) {
  writeFile("file", "");
  ::chmod("file", 0444);

  const WithoutPrivileges asAnyUser;
  EXPECT_FALSE(FileUtils::openForAppending("file").valid());
}

TEST_F(FileWritingTest, OpenedFilesAreNotLeftToOtherPrograms) {
  writeFile("file", "");

  const FileDescriptor file = FileUtils::openForAppending("file");

  EXPECT_NE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(FileWritingTest, WhatCannotBeAppendedWholeIsCutOffAgain) {
  writeFile("log", "one\n");
  const FileDescriptor file = FileUtils::openForAppending("log");
  {
    const FileSizeLimit full(6);
    EXPECT_FALSE(FileUtils::append(file, "two\n"));
  }
  EXPECT_EQ(contentsOf("log"), "one\n");
}

TEST_F(FileWritingTest, NothingIsAppendedToAClosedFile) {
  EXPECT_FALSE(FileUtils::append(FileDescriptor(), "text"));
}

// --- Reading and moving --------------------------------------------------------------------------

TEST_F(FileWritingTest, AFileOfTheGreatestSizeIsReadAndOneByteMoreIsNot) {
  writeFile("file", std::string(40'000, 'x'));

  EXPECT_EQ(FileUtils::readFile("file", 40'000), std::string(40'000, 'x'));
  EXPECT_EQ(FileUtils::readFile("file", 39'999), std::nullopt);
  EXPECT_EQ(FileUtils::readFile("file", 0), std::nullopt);
}

TEST_F(FileWritingTest, AnEmptyFileIsReadAsNoBytes) {
  writeFile("file", "");

  EXPECT_EQ(FileUtils::readFile("file", 0), "");
}

TEST_F(FileWritingTest, AFileThatTellsNoSizeIsReadToItsEnd) {
  constexpr const char* tellsNone = "/proc/self/status";
  if (!somethingAt(tellsNone)) GTEST_SKIP() << "no files of this kind here";

  EXPECT_NE(FileUtils::readFile(tellsNone, 1'000'000), "");
}

TEST_F(FileWritingTest, OnlyAnOrdinaryFileIsRead) {
  std::filesystem::create_directory("folder");
  ASSERT_EQ(::mkfifo("pipe", 0666), 0);

  const Watchdog watchdog;
  for (const char* path : {"folder", "pipe", "missing", "", "/dev/null", "/dev/zero"}) {
    EXPECT_EQ(FileUtils::readFile(path, 1'000'000), std::nullopt) << path;
  }
}

TEST_F(FileWritingTest, AnItemIsMovedWithWhatItHolds) {
  std::filesystem::create_directories("from/kept");

  FileUtils::moveItem("from", "to");

  EXPECT_THAT(namesIn("."), ElementsAre("to"));
  EXPECT_THAT(namesIn("to"), ElementsAre("kept"));
}

TEST_F(FileWritingTest, NothingIsMovedOverWhatExists) {
  writeFile("from", "new");
  writeFile("to", "precious");
  std::filesystem::create_symlink("missing", "link");

  FileUtils::moveItem("from", "to");
  FileUtils::moveItem("from", "link");

  EXPECT_EQ(contentsOf("to"), "precious");
  EXPECT_THAT(namesIn("."), ElementsAre("from", "link", "to"));
}

TEST_F(FileWritingTest, AMoveThatFailsIsSilent) {
  FileUtils::moveItem("missing", "to");

  EXPECT_THAT(namesIn("."), IsEmpty());
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

}  // namespace
}  // namespace ombrix
