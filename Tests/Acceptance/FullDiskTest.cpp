#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>

#include "Tests/Acceptance/Agent.h"

// Disks that are full, and that have room again. What was lost stays lost; what follows is whole.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* notWritten = " - [Error]\tCould not write met file [/tmp/home/records/";

void mountSmall(const std::string& folder, const std::string& limit) {
  fs::create_directories(folder);
  ASSERT_EQ(::mount("tmpfs", folder.c_str(), "tmpfs", 0, limit.c_str()), 0);
}

void takeAllRoom(const std::string& folder) {
  std::ofstream file(folder + "/filler");
  const std::string block(4096, 'x');
  while (file << block << std::flush) continue;
}

// Every file that the file system can have takes one inode, however small it is.
void takeAllInodes(const std::string& folder) {
  fs::create_directory(folder + "/filler");
  for (int i = 0; std::ofstream(folder + "/filler/" + std::to_string(i)); ++i) continue;
}

void giveBack(const std::string& folder) { fs::remove_all(folder + "/filler"); }

struct Shortage {
  const char* name;
  const char* limit;
  void (*inflict)(const std::string&);
};

void PrintTo(const Shortage& shortage, std::ostream* stream) { *stream << shortage.name; }

class FullDisk : public ::testing::TestWithParam<Shortage> {
 protected:
  const Home home;
};

}  // namespace

TEST_P(FullDisk, OfTheRecordsCostsRecordsUntilItHasRoomAgain) {
  mountSmall(home.storage(), GetParam().limit);
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  GetParam().inflict(home.storage());
  ASSERT_TRUE(agent.meterProgram("before"));
  EXPECT_EQ(occurrences(home.log(), notWritten), 1U);
  EXPECT_TRUE(home.records().empty());
  giveBack(home.storage());
  ASSERT_TRUE(agent.meterProgram("after"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(home.recordsOf("before").empty());
  EXPECT_EQ(home.recordsOf("after").size(), 1U);
  for (const Record& record : home.records()) EXPECT_FALSE(record.start.empty()) << record.line;
}

TEST_P(FullDisk, LeavesNoPartOfTheListAndTakesTheNextOneWhole) {
  mountSmall(home.storage(), GetParam().limit);
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  GetParam().inflict(home.storage());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(home.list(), "");
  giveBack(home.storage());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(linesOf(home.list()).size(), 3U);
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(FullDisk, OfTheLogCostsLinesUntilItHasRoomAgain) {
  mountSmall("/tmp/home/log", GetParam().limit);
  GetParam().inflict("/tmp/home/log");
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(home.log(), "");
  giveBack("/tmp/home/log");
  ASSERT_TRUE(agent.meterProgram("editor"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_FALSE(contains(home.log(), "Starting Ombrix"));
  EXPECT_TRUE(contains(home.log(), "Shutting down Ombrix\n"));
  for (const std::string& line : linesOf(home.log())) EXPECT_TRUE(line.starts_with("20")) << line;
}

TEST_P(FullDisk, InTheTemporaryPlaceCostsNothing) {
  mountSmall("/tmp/home/temporary", GetParam().limit);
  GetParam().inflict("/tmp/home/temporary");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  ASSERT_TRUE(agent.meterProgram("editor"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_FALSE(contains(home.log(), "[Error]"));
}

TEST(FullDiskOfTheLog, ThatTurnsOverIsNoMoreThanTwoFiles) {
  const Home home;
  Settings settings = home.settings();
  settings.maxSize = "2";
  settings.level = "trace";
  home.configure(configurationText(settings));
  mountSmall("/tmp/home/log", "size=8k");
  Agent agent(home);
  for (int i = 0; i < 60; ++i) ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(namesIn("/tmp/home/log").size(), 2U);
  EXPECT_TRUE(contains(home.log(), "Shutting down Ombrix\n"));
}

INSTANTIATE_TEST_SUITE_P(Of, FullDisk,
                         ::testing::Values(Shortage{"Blocks", "size=64k", takeAllRoom},
                                           Shortage{"Inodes", "nr_inodes=12", takeAllInodes}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace ombrix::tests
