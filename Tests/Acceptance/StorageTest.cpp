#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Wait.h"

// Storage that is lost, full, closed, or prepared by somebody who means harm.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* notWritten = " - [Error]\tCould not write met file [/tmp/home/records/";
constexpr const char* noList =
    " - [Error]\tFailed to open file for writing [/tmp/home/records/processes.list].\n";

// A program that the agent has seen, and that has ended.
[[nodiscard]] bool runProgram(const Agent& agent, const std::string& name) {
  Program program(idler("/tmp/tools/" + name));
  return agent.poll();
}

bool fill(const std::string& folder) {
  std::ofstream file(folder + "/filler");
  const std::string block(4096, 'x');
  while (file << block << std::flush) continue;
  return fs::exists(folder + "/filler");
}

std::size_t recordFiles(const Home& home) { return home.records().size(); }

}  // namespace

TEST(Storage, LostFolderIsReportedAndMeteringGoesOn) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  fs::remove_all(home.storage());
  ASSERT_TRUE(runProgram(agent, "first"));
  ASSERT_TRUE(agent.pollUntil([&] { return contains(home.log(), notWritten); }));
  EXPECT_TRUE(contains(home.log(), noList));
  EXPECT_FALSE(fs::exists(home.storage()));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, FolderThatIsBackIsUsedAgain) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  fs::remove_all(home.storage());
  ASSERT_TRUE(runProgram(agent, "first"));
  ASSERT_TRUE(agent.pollUntil([&] { return contains(home.log(), notWritten); }));
  fs::create_directory(home.storage());
  ASSERT_TRUE(runProgram(agent, "second"));
  EXPECT_TRUE(agent.pollUntil([&] { return home.recordsOf("second").size() == 1; }));
  EXPECT_TRUE(home.recordsOf("first").empty());
  EXPECT_FALSE(home.list().empty());
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, FullDiskLeavesNoPartOfARecord) {
  const Home home;
  fs::create_directory(home.storage());
  ASSERT_EQ(::mount("tmpfs", home.storage().c_str(), "tmpfs", 0, "size=64k"), 0);
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  ASSERT_TRUE(fill(home.storage()));
  ASSERT_TRUE(runProgram(agent, "first"));
  ASSERT_TRUE(agent.pollUntil([&] { return contains(home.log(), notWritten); }));
  EXPECT_EQ(recordFiles(home), 0U);
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(recordFiles(home), 0U);
}

TEST(Storage, DiskThatHasRoomAgainTakesTheNextRecords) {
  const Home home;
  fs::create_directory(home.storage());
  ASSERT_EQ(::mount("tmpfs", home.storage().c_str(), "tmpfs", 0, "size=64k"), 0);
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  ASSERT_TRUE(fill(home.storage()));
  ASSERT_TRUE(runProgram(agent, "first"));
  ASSERT_TRUE(agent.pollUntil([&] { return contains(home.log(), notWritten); }));
  fs::remove(home.storage() + "/filler");
  ASSERT_TRUE(runProgram(agent, "second"));
  EXPECT_TRUE(agent.pollUntil([&] { return home.recordsOf("second").size() == 1; }));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(home.recordsOf("first").empty());
}

TEST(Storage, DiskWithoutRoomForAnotherFileIsReported) {
  const Home home;
  fs::create_directory(home.storage());
  ASSERT_EQ(::mount("tmpfs", home.storage().c_str(), "tmpfs", 0, "nr_inodes=3"), 0);
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(occurrences(home.log(), notWritten), 1U);
  EXPECT_EQ(home.records().size(), 2U);
}

TEST(Storage, FullDiskOfTheLogCostsOnlyItsLines) {
  const Home home;
  fs::create_directory("/tmp/home/log");
  ASSERT_EQ(::mount("tmpfs", "/tmp/home/log", "tmpfs", 0, "size=64k"), 0);
  ASSERT_TRUE(fill("/tmp/home/log"));
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.log(), "");
  EXPECT_EQ(home.records().size(), 3U);
}

TEST(Storage, FileSizeLimitIsAnErrorAndNotTheEnd) {
  const Home home;
  Launch launch = ombrix();
  launch.beforeExec = [] {
    const rlimit nothing{0, 0};
    ::setrlimit(RLIMIT_FSIZE, &nothing);
  };
  Agent agent(home, launch);
  ASSERT_TRUE(eventually([&] {
    return !agent.isRunning() ||
           (run(ombrix({"list"})).status == 0 && fs::exists(home.storage() + "/processes.list"));
  }));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(recordFiles(home), 0U);
}

TEST(Storage, RecordsAreNotReadOrRemovedAgain) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  EXPECT_EQ(first.stop(), 0);
  const auto before = fs::last_write_time(home.storage());
  std::vector<std::string> kept = namesIn(home.storage());
  Agent second(home);
  ASSERT_TRUE(second.poll());
  EXPECT_EQ(second.stop(), 0);
  EXPECT_LT(before, fs::last_write_time(home.storage()));
  for (const std::string& name : kept) {
    EXPECT_TRUE(fs::exists(home.storage() + "/" + name));
  }
  EXPECT_EQ(home.records().size(), 6U);
}

TEST(Storage, LinkInThePlaceOfTheListIsReplacedAndNotFollowed) {
  writeFile("/tmp/victim", "precious");
  const Home home;
  fs::create_directory(home.storage());
  fs::create_symlink("/tmp/victim", home.storage() + "/processes.list");
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(contentsOf("/tmp/victim"), "precious");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(home.storage() + "/processes.list")));
  EXPECT_TRUE(home.list().starts_with("#01 - ["));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, LinkToNowhereInThePlaceOfTheListMakesNothingThere) {
  const Home home;
  fs::create_directory(home.storage());
  fs::create_symlink("/tmp/victim", home.storage() + "/processes.list");
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_FALSE(fs::exists("/tmp/victim"));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, SecondNameOfAFileInThePlaceOfTheListLeavesTheFileAlone) {
  writeFile("/tmp/victim", "precious");
  const Home home;
  fs::create_directory(home.storage());
  fs::create_hard_link("/tmp/victim", home.storage() + "/processes.list");
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(contentsOf("/tmp/victim"), "precious");
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, PipeInThePlaceOfTheListIsNotWaitedFor) {
  const Home home;
  fs::create_directory(home.storage());
  ASSERT_EQ(::mkfifo((home.storage() + "/processes.list").c_str(), 0666), 0);
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_TRUE(home.list().starts_with("#01 - ["));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, FolderInThePlaceOfTheListIsReported) {
  const Home home;
  fs::create_directories(home.storage() + "/processes.list/kept");
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(occurrences(home.log(), noList), 1U);
  EXPECT_TRUE(fs::is_directory(home.storage() + "/processes.list/kept"));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Storage, FolderThatIsClosedToTheAgentIsReported) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "nothing is closed to root, and there is no other user";
  const Home home("/tmp/home", stranger);
  fs::create_directory(home.storage());  // root's own
  Agent agent(home, ombrixOf(stranger));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(occurrences(home.log(), notWritten), 3U);
  EXPECT_EQ(occurrences(home.log(), noList), 1U);
}

}  // namespace ombrix::tests
