#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <regex>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Crowd.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Wait.h"

// Machines and containers on which something that is there as a rule is missing or hidden.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

bool mountOption(const char* option) {
  return ::mount("proc", "/proc", "proc", MS_REMOUNT, option) == 0;
}

// An /etc of the test's own, in which nothing names a user, not even nsswitch.conf(5): a library
// that it names may know root without any file.
void hideEtc() {
  fs::create_directory("/tmp/etc");
  const fs::path libraries = "/etc/ld.so.cache";
  if (fs::exists(libraries)) fs::copy_file(libraries, "/tmp/etc/ld.so.cache");
  ASSERT_EQ(::mount("/tmp/etc", "/etc", nullptr, MS_BIND, nullptr), 0);
}

// No process is of a user who has a name, and the agent works all the same.
void expectNamelessUsers(uid_t user) {
  const Home home("/tmp/home", user);
  Agent agent(home, ombrixOf(user));
  ASSERT_TRUE(agent.meterProgram("editor"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  for (const Record& record : home.records()) EXPECT_EQ(record.user, "user name not found");
}

std::size_t countOf(const std::vector<Record>& records, const std::string& user) {
  std::size_t count = 0;
  for (const Record& record : records) count += record.user == user ? 1U : 0U;
  return count;
}

class HiddenProcesses : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
    if (!mountOption(GetParam())) GTEST_SKIP() << "this kernel does not know " << GetParam();
  }
};

}  // namespace

TEST_P(HiddenProcesses, AreNotHiddenFromRootsAgent) {
  Launch theirs = idler("/tmp/tools/theirs");
  theirs.user = stranger;
  const Program program(theirs);
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.records().size(), 4U);
  ASSERT_EQ(home.recordsOf("theirs").size(), 1U);
  EXPECT_EQ(home.recordsOf("theirs").front().path, "/tmp/tools");
}

TEST_P(HiddenProcesses, LeaveAnOrdinaryUsersAgentItsOwn) {
  Launch own = idler("/tmp/tools/own", {"5"});
  own.user = stranger;
  const std::size_t before = processesNow();
  const Program program(own);
  ASSERT_TRUE(eventually([before] { return processesNow() == before + 6; }));
  const Program hidden(idler("/tmp/tools/hidden"));
  const Home home("/tmp/home", stranger);
  Agent agent(home, ombrixOf(stranger));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("own").size(), 6U);
  EXPECT_TRUE(home.recordsOf("hidden").empty());
  EXPECT_EQ(countOf(home.records(), "user name not found"), 7U);
  EXPECT_FALSE(contains(home.log(), "[Error]")) << home.log();
}

INSTANTIATE_TEST_SUITE_P(By, HiddenProcesses, ::testing::Values("hidepid=1", "hidepid=2"),
                         [](const auto& row) {
                           return std::string("Hidepid") + std::string(row.param).back();
                         });

// Two processes are too few for a machine: all others are hidden.
TEST(HiddenProcess, ThatLeavesTooFewEndsAnOrdinaryUsersAgent) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  if (!mountOption("hidepid=2")) GTEST_SKIP() << "this kernel hides no processes";
  const Home home("/tmp/home", stranger);
  Settings settings = home.settings();
  settings.level = "trace";
  home.configure(configurationText(settings));
  Agent agent(home, ombrixOf(stranger));
  EXPECT_EQ(agent.waitForExit(), 1);
  EXPECT_TRUE(contains(home.log(), "Found a problem with the context in which Ombrix is run"));
}

TEST(NoPasswordEntry, OfAnyUserLeavesTheUsersNameless) {
  hideEtc();
  writeFile("/etc/passwd", "");
  expectNamelessUsers(0);
}

TEST(NoPasswordEntry, ForLackOfTheFileLeavesTheUsersNameless) {
  hideEtc();
  expectNamelessUsers(0);
}

TEST(NoPasswordEntry, OfItsOwnUserIsNoHindranceToAnAgent) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  hideEtc();
  expectNamelessUsers(stranger);
}

TEST(NoPasswordEntry, ThatComesLaterNamesTheUserOfLaterRuns) {
  hideEtc();
  writeFile("/etc/passwd", "");
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.meterProgram("before"));
  replaceFile("/etc/passwd", "administrator:x:0:0::/root:/bin/sh\n");
  ASSERT_TRUE(agent.meterProgram("after"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("before").at(0).user, "user name not found");
  EXPECT_EQ(home.recordsOf("after").at(0).user, "administrator");
}

TEST(NoHostName, LeavesRecordsWithNamesOfTheirOwn) {
  ASSERT_EQ(::unshare(CLONE_NEWUTS), 0);
  ASSERT_EQ(::sethostname("", 0), 0);
  const Crowd crowd(50);
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("crowd").size(), 50U);
  for (const std::string& name : namesIn(home.storage())) {
    EXPECT_TRUE(name == "processes.list" ||
                std::regex_match(name, std::regex("[0-9a-f]{40}\\.met")))
        << name;
  }
}

TEST(AnyHostName, OfTheGreatestLengthAndOfAnyBytesIsNoHindrance) {
  ASSERT_EQ(::unshare(CLONE_NEWUTS), 0);
  const std::string name = "../\xff/" + std::string(59, ';');
  ASSERT_EQ(::sethostname(name.data(), name.size()), 0);
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.records().size(), 3U);
}

}  // namespace ombrix::tests
