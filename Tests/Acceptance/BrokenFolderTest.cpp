#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <tuple>

#include "Tests/Acceptance/Agent.h"

// Each of the three folders in each of the states in which nothing can be written to it, at the
// start of the agent and later, and what becomes of the agent when the folder is back.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* notWritten = " - [Error]\tCould not write met file [/tmp/home/records/";
constexpr const char* noLog = "Failed to open file for writing.\n";
constexpr const char* notCreated = "Could not create selected .\n";

enum class Folder { storage, log, temporary };
enum class Fault { missing, readOnly, aFile };

std::string pathOf(Folder folder) {
  switch (folder) {
    case Folder::storage:
      return "/tmp/home/records";
    case Folder::log:
      return "/tmp/home/log";
    case Folder::temporary:
      break;
  }
  return "/tmp/home/temporary";
}

void mountOver(const std::string& path, unsigned long flags) {
  fs::create_directories(path);
  ASSERT_EQ(::mount("tmpfs", path.c_str(), "tmpfs", flags, nullptr), 0);
}

void inflict(Fault fault, const std::string& path) {
  if (fault == Fault::readOnly) return mountOver(path, MS_RDONLY);
  fs::remove_all(path);
  if (fault == Fault::aFile) writeFile(path, "a file");
}

void mend(Fault fault, const std::string& path) {
  if (fault == Fault::readOnly) {
    ASSERT_EQ(::umount2(path.c_str(), MNT_DETACH), 0);
    return;
  }
  fs::remove_all(path);
  fs::create_directory(path);
}

class BrokenFolder : public ::testing::TestWithParam<std::tuple<Folder, Fault>> {
 protected:
  static Folder folder() { return std::get<Folder>(GetParam()); }
  static Fault fault() { return std::get<Fault>(GetParam()); }
  static void breakIt() { inflict(fault(), pathOf(folder())); }
  static void mendIt() { mend(fault(), pathOf(folder())); }

  void expectRecord(const std::string& name, std::size_t count = 1) const {
    EXPECT_EQ(home.recordsOf(name).size(), count) << name;
  }

  // All that does not lie in the folder is as if nothing were the matter; what does is missing, and
  // that is said.
  void expectOnlyTheFoldersOwnToBeMissing(const Agent& agent, const std::string& name) const {
    expectRecord(name, folder() == Folder::storage ? 0 : 1);
    EXPECT_EQ(contains(home.log(), notWritten), folder() == Folder::storage);
    EXPECT_EQ(home.log().empty(), folder() == Folder::log);
    EXPECT_EQ(contains(agent.errors(), noLog), folder() == Folder::log);
  }

  const Home home;
};

// A folder that is merely missing is made at the start.
class BrokenFromTheStart : public BrokenFolder {};

const auto everyFolder = ::testing::Values(Folder::storage, Folder::log, Folder::temporary);

std::string nameOf(const ::testing::TestParamInfo<std::tuple<Folder, Fault>>& row) {
  const std::vector<std::string> folders = {"Storage", "Log", "Temporary"};
  const std::vector<std::string> faults = {"Missing", "ReadOnly", "AFile"};
  const auto [folder, fault] = row.param;
  return folders.at(static_cast<std::size_t>(folder)) + faults.at(static_cast<std::size_t>(fault));
}

}  // namespace

TEST_P(BrokenFolder, CostsARunningAgentOnlyWhatWouldLieInIt) {
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  breakIt();
  ASSERT_TRUE(agent.meterProgram("editor"));
  expectOnlyTheFoldersOwnToBeMissing(agent, "editor");
  EXPECT_EQ(agent.stop(), 0);
}

TEST_P(BrokenFolder, IsUsedAgainByARunningAgentWhenItIsBack) {
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  breakIt();
  ASSERT_TRUE(agent.meterProgram("before"));
  mendIt();
  ASSERT_TRUE(agent.meterProgram("after"));
  expectRecord("after");
  EXPECT_TRUE(contains(home.log(), "Trying to write a list"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(home.log(), "Shutting down Ombrix"));
  expectRecord("Ombrix");
  expectRecord("before", folder() == Folder::storage ? 0 : 1);
}

TEST_P(BrokenFromTheStart, FolderCostsOnlyWhatWouldLieInItAndIsUsedWhenItIsMended) {
  breakIt();
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted()) << agent.errors();
  ASSERT_TRUE(agent.meterProgram("before"));
  expectOnlyTheFoldersOwnToBeMissing(agent, "before");
  mendIt();
  ASSERT_TRUE(agent.meterProgram("after"));
  expectRecord("after");
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(home.log(), "Shutting down Ombrix"));
}

INSTANTIATE_TEST_SUITE_P(Each, BrokenFolder,
                         ::testing::Combine(everyFolder,
                                            ::testing::Values(Fault::missing, Fault::readOnly,
                                                              Fault::aFile)),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Each, BrokenFromTheStart,
                         ::testing::Combine(everyFolder,
                                            ::testing::Values(Fault::readOnly, Fault::aFile)),
                         nameOf);

// On a disk that is read-only when the machine starts, none of the folders can be made.
TEST(MissingParent, IsReportedForEachFolderAndMeteringGoesOn) {
  mountOver("/tmp/closed", MS_RDONLY);
  const Home home;
  home.configure(
      configurationText({"/tmp/closed/records", "/tmp/closed/temporary", {}, {}, "info"}));
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  const std::string log = contentsOf("/tmp/home/data/metering.log");
  EXPECT_EQ(occurrences(agent.errors(), notCreated), 2U);
  EXPECT_EQ(occurrences(log, "Could not write met file [/tmp/closed/records/"), 3U);
  EXPECT_TRUE(contains(agent.errors(), "Create folder failed /tmp/closed/records/\n"));
  EXPECT_TRUE(contains(agent.errors(), "Create folder failed /tmp/closed/temporary/\n"));
}

TEST(MissingParent, OfTheFolderThatIsMadeByHandLaterIsNoHindrance) {
  mountOver("/tmp/closed", MS_RDONLY);
  const Home home;
  Settings settings = home.settings();
  settings.storage = "/tmp/closed/records";
  home.configure(configurationText(settings));
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  ASSERT_EQ(::umount2("/tmp/closed", MNT_DETACH), 0);
  fs::create_directory("/tmp/closed/records");
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(namesIn("/tmp/closed/records").size(), 3U);
}

}  // namespace ombrix::tests
