#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Namespaces.h"

// Which configuration file the agent takes, and what it makes of its settings.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* unreadable =
    "Could not find a readable configuration file. Make sure we got read access. Quitting.\n";
constexpr const char* noPath = "ConfigurationFilePath is empty. Quitting.\n";

Outcome runIn(const std::string& folder, Launch launch) {
  launch.directory = folder;
  return run(launch);
}

void expectQuits(const Outcome& outcome, const std::string& message) {
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, message);
  EXPECT_EQ(outcome.output, "");
}

std::string emptyFolder() {
  fs::create_directories("/tmp/empty");
  return "/tmp/empty";
}

}  // namespace

TEST(Configuration, DefaultFileIsThatOfTheWorkingDirectory) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.records().size(), 3U);
}

TEST(Configuration, NoFileAtAllEndsTheAgent) {
  expectQuits(runIn(emptyFolder(), ombrix()), noPath);
  EXPECT_TRUE(fs::is_empty(emptyFolder()));
}

TEST(Configuration, MissingFileEndsTheAgent) {
  expectQuits(runIn(emptyFolder(), ombrix({"-c", "/tmp/none.config"})), unreadable);
  EXPECT_TRUE(fs::is_empty(emptyFolder()));
}

TEST(Configuration, EmptyPathIsAnUnreadableOne) {
  expectQuits(runIn(emptyFolder(), ombrix({"-c", ""})), unreadable);
}

TEST(Configuration, PathOfDashesIsAnEmptyOne) {
  expectQuits(runIn(emptyFolder(), ombrix({"-c", "--"})), unreadable);
}

TEST(Configuration, FileThatTheUserMayNotReadEndsTheAgent) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "root reads every file, and there is no other user here";
  const Home home("/tmp/home", stranger);
  ::chmod("/tmp/home/velkagent.config", 0600);
  Launch named = ombrixOf(stranger, {"-c", "/tmp/home/velkagent.config"});
  expectQuits(runIn("/tmp", named), unreadable);
  expectQuits(runIn("/tmp/home", ombrixOf(stranger)), noPath);
}

TEST(Configuration, DefaultDirectoriesBelongToTheDefaultFile) {
  const Home home;
  home.configure(configurationText({{}, {}, {}, {}, "info"}));
  fs::create_directory("/tmp/home/data");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(contentsOf("/tmp/home/data/metering.log"), "Starting Ombrix"));
  EXPECT_EQ(namesIn("/tmp/home/data").size(), 4U);  // the log and three records
  EXPECT_TRUE(fs::is_directory("/tmp/velk"));
}

TEST(Configuration, FileElsewhereHasNoDefaultDirectories) {
  writeFile("/tmp/other.config", configurationText({{}, {}, {}, {}, "info"}));
  const Home home;
  fs::remove("/tmp/home/velkagent.config");
  Agent agent(home, ombrix({"-c", "/tmp/other.config"}));
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(namesIn("/tmp/home"), std::vector<std::string>{"(null)metering.log"});
  EXPECT_EQ(occurrences(agent.errors(), "Error: Create folder failed (null)\n"), 3U);
  const std::string log = contentsOf("/tmp/home/(null)metering.log");
  EXPECT_TRUE(contains(log, "[Error]\tMissing configuration setting [setstoragedirectory]\n"));
  EXPECT_EQ(occurrences(log, "[Error]\tCould not create selected .\n"), 3U);
  EXPECT_EQ(occurrences(log, "[Error]\tCould not write met file [(null)]\n"), 3U);
}

TEST(Configuration, FileElsewhereSetsAllDirectoriesItself) {
  const Home home;
  fs::rename("/tmp/home/velkagent.config", "/tmp/other.config");
  Agent agent(home, ombrix({"-c", "/tmp/other.config"}));
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.records().size(), 3U);
  EXPECT_FALSE(home.log().empty());
}

TEST(Configuration, DirectoriesAreMadeWithAllTheirParents) {
  const Home home;
  home.configure(configurationText({"/tmp/a/b/c", "/tmp/d/e/", "/tmp/f/g/h", {}, "info"}));
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(namesIn("/tmp/a/b/c").size(), 3U);
  EXPECT_TRUE(fs::is_directory("/tmp/d/e"));
  EXPECT_FALSE(contentsOf("/tmp/f/g/h/metering.log").empty());
}

TEST(Configuration, WhatTheAgentMakesIsNobodyElsesToWrite) {
  const Home home;
  Launch launch = ombrix();
  launch.beforeExec = [] { ::umask(0); };
  Agent agent(home, launch);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  for (const auto& entry : fs::recursive_directory_iterator("/tmp/home")) {
    if (entry.path().filename() == "velkagent.config") continue;
    const fs::perms others = fs::perms::group_write | fs::perms::others_write;
    EXPECT_EQ(entry.status().permissions() & others, fs::perms::none) << entry.path();
  }
}

TEST(Configuration, StorageThatIsAFileIsReportedAndMeteringGoesOn) {
  const Home home;
  writeFile("/tmp/home/records", "a file");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(home.log(),
                       "This is not a valid path. [setstoragedirectory=" + home.storage() + "/]"));
  EXPECT_EQ(occurrences(home.log(), "Could not write met file ["), 3U);
  EXPECT_EQ(contentsOf("/tmp/home/records"), "a file");
}

TEST(Configuration, AbsentValueMakesTheFolderNamedNull) {
  const Home home;
  home.configure(
      "<Configuration><SystemSettings><Setting key=\"env.data_dir\"/></SystemSettings>"
      "</Configuration>");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(namesIn("/tmp/home/(null)").size(), 3U);
}

TEST(Configuration, EmptyValueIsReportedAndKeepsTheDefault) {
  const Home home;
  home.configure(configurationText({"", {}, {}, {}, {}}));
  fs::create_directory("/tmp/home/data");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(
      contains(contentsOf("/tmp/home/data/metering.log"),
               "[Warning]\tConfigurationManager: Could not parse: [/VelkQuantavoConfig/Client/"
               "LocalStorage]\n"));
  EXPECT_EQ(namesIn("/tmp/home/data").size(), 4U);
}

TEST(Configuration, SettingGivenTwiceKeepsTheDefault) {
  const Home home;
  home.configure(
      "<Configuration><SystemSettings><Setting key=\"env.data_dir\" value=\"/tmp/a\"/>"
      "<Setting key=\"env.data_dir\" value=\"/tmp/b\"/></SystemSettings></Configuration>");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(fs::exists("/tmp/a") || fs::exists("/tmp/b"));
  EXPECT_FALSE(namesIn("/tmp/home/data").empty());
}

TEST(Configuration, FileOfTheFormerShapeSetsNothing) {
  const Home home;
  home.configure(
      "<VelkQuantavoConfig><SystemSettings><Setting key=\"env.data_dir\" value=\"/tmp/a\"/>"
      "</SystemSettings><Client><LocalStorage>/tmp/b</LocalStorage></Client>"
      "</VelkQuantavoConfig>");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(fs::exists("/tmp/a") || fs::exists("/tmp/b"));
}

TEST(Configuration, DamagedFileIsUsedAsFarAsItCanBeRepaired) {
  const Home home;
  home.configure(
      "<Configuration><SystemSettings><Setting key=\"env.data_dir\" value=\"/tmp/repaired\"/>"
      "</SystemSettings><Logging>");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(namesIn("/tmp/repaired").size(), 3U);
}

}  // namespace ombrix::tests
