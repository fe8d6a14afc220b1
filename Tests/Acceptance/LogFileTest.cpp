#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "Tests/Acceptance/Agent.h"

// The log file: its lines, its turning over to the old copy, and what others put in its place.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* oldLog = "/tmp/home/log/metering.log.old";

// A home whose log turns over beyond so many KiB and is written to at every opportunity.
Home homeWithLimit(const std::string& kibibytes) {
  Home home;
  Settings settings = home.settings();
  settings.maxSize = kibibytes;
  settings.level = "trace";
  home.configure(configurationText(settings));
  return home;
}

void expectWholeLines(const std::string& log) {
  const std::regex shape(
      "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d - \\[(Alert|Error|Warning|Notice|Info|Debug)\\]"
      "\t.+");
  EXPECT_TRUE(log.empty() || log.ends_with("\n"));
  for (const std::string& line : linesOf(log)) EXPECT_TRUE(std::regex_match(line, shape)) << line;
}

// Runs an agent and asks for so many lists.
void runAgent(const Home& home, int lists) {
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  for (int i = 0; i < lists; ++i) ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace

TEST(LogFile, EveryLineHasItsTimeAndLevel) {
  const Home home = homeWithLimit("512");
  runAgent(home, 3);
  EXPECT_GT(linesOf(home.log()).size(), 5U);
  expectWholeLines(home.log());
}

TEST(LogFile, LaterAgentAppends) {
  const Home home;
  runAgent(home, 0);
  runAgent(home, 0);
  EXPECT_EQ(occurrences(home.log(), "\tStarting Ombrix\n"), 2U);
}

TEST(LogFile, TurnsOverToOneOldCopyBeyondItsLimit) {
  const Home home = homeWithLimit("1");
  runAgent(home, 20);
  const std::string old = contentsOf(oldLog);
  EXPECT_GT(old.size(), 1024U);
  EXPECT_LT(old.size(), 1024U + 200U);
  EXPECT_LE(home.log().size(), 1024U);
  expectWholeLines(old);
  expectWholeLines(home.log());
  EXPECT_LE(namesIn("/tmp/home/log").size(), 2U);
}

TEST(LogFile, StaysWithinItsLimitWithoutACopy) {
  const Home home = homeWithLimit("512");
  runAgent(home, 3);
  EXPECT_FALSE(fs::exists(oldLog));
}

TEST(LogFile, LimitOfZeroLeavesOnlyTheLastLineInTheCopy) {
  const Home home = homeWithLimit("abc");  // no number at all counts as zero
  runAgent(home, 2);
  EXPECT_FALSE(fs::exists(home.logFile()));
  EXPECT_EQ(linesOf(contentsOf(oldLog)).size(), 1U);
}

TEST(LogFile, LimitBeyondFourGibibytesBeginsAnewAtZero) {
  const Home home = homeWithLimit("4194304");
  runAgent(home, 2);
  EXPECT_FALSE(fs::exists(home.logFile()));
}

TEST(LogFile, IsMadeAnewWhenItWasRemoved) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  fs::remove(home.logFile());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(linesOf(home.log()).size(), 1U);
  EXPECT_EQ(agent.stop(), 0);
}

TEST(LogFile, LostFolderCostsTheLinesAndNothingElse) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  fs::remove_all("/tmp/home/log");
  ASSERT_TRUE(agent.poll());
  EXPECT_TRUE(contains(agent.errors(), "Failed to open file for writing.\n"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.records().size(), 3U);
}

TEST(LogFile, LinkInItsPlaceIsNotFollowed) {
  writeFile("/tmp/victim", "precious");
  const Home home;
  fs::create_directory("/tmp/home/log");
  fs::create_symlink("/tmp/victim", home.logFile());
  runAgent(home, 1);
  EXPECT_EQ(contentsOf("/tmp/victim"), "precious");
  EXPECT_EQ(home.records().size(), 3U);
}

TEST(LogFile, LinkToNowhereInItsPlaceMakesNothingThere) {
  const Home home;
  fs::create_directory("/tmp/home/log");
  fs::create_symlink("/tmp/victim", home.logFile());
  runAgent(home, 1);
  EXPECT_FALSE(fs::exists("/tmp/victim"));
}

TEST(LogFile, LinkInItsPlaceIsNotMovedAside) {
  writeFile("/tmp/victim", std::string(4096, 'x'));
  const Home home = homeWithLimit("0");  // a link is longer
  fs::create_directory("/tmp/home/log");
  fs::create_symlink("/tmp/victim", home.logFile());
  runAgent(home, 3);
  EXPECT_TRUE(fs::is_symlink(home.logFile()));
  EXPECT_FALSE(fs::exists(fs::symlink_status(oldLog)));
}

TEST(LogFile, LinkInThePlaceOfTheCopyIsReplacedAndNotFollowed) {
  writeFile("/tmp/victim", "precious");
  const Home home = homeWithLimit("1");
  fs::create_directory("/tmp/home/log");
  fs::create_symlink("/tmp/victim", oldLog);
  runAgent(home, 20);
  EXPECT_EQ(contentsOf("/tmp/victim"), "precious");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(oldLog)));
}

TEST(LogFile, LinkToAFolderInThePlaceOfTheCopyIsReplacedAndNotFollowed) {
  fs::create_directory("/tmp/victim");
  const Home home = homeWithLimit("1");
  fs::create_directory("/tmp/home/log");
  fs::create_symlink("/tmp/victim", oldLog);
  runAgent(home, 20);
  EXPECT_TRUE(fs::is_empty("/tmp/victim"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(oldLog)));
}

TEST(LogFile, PipeInItsPlaceIsNotWaitedFor) {
  const Home home;
  fs::create_directory("/tmp/home/log");
  ASSERT_EQ(::mkfifo(home.logFile().c_str(), 0666), 0);
  runAgent(home, 1);
  EXPECT_EQ(home.records().size(), 3U);
}

TEST(LogFile, ReaderOfAPipeInItsPlaceGetsNothing) {
  const Home home;
  fs::create_directory("/tmp/home/log");
  ASSERT_EQ(::mkfifo(home.logFile().c_str(), 0666), 0);
  const platform::FileDescriptor reader(
      ::open(home.logFile().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  runAgent(home, 1);
  char byte = 0;
  EXPECT_EQ(::read(reader.get(), &byte, 1), 0);
}

TEST(LogFile, FolderInItsPlaceCostsTheLinesAndNothingElse) {
  const Home home = homeWithLimit("1");
  fs::create_directories(home.logFile() + "/kept");
  runAgent(home, 1);
  EXPECT_TRUE(fs::is_directory(home.logFile() + "/kept"));
  EXPECT_EQ(home.records().size(), 3U);
}

}  // namespace ombrix::tests
