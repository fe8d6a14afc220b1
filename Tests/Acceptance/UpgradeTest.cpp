#include <gtest/gtest.h>
#include <strings.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "Tests/Acceptance/Files.h"
#include "Tests/Acceptance/Program.h"

// The repair of the applications folder, under a root folder of the test's own.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

bool isLeftOut(const fs::path& entry) {
  const std::string name = entry.filename().string();
  return name == "tmp" || ::strncasecmp(name.c_str(), "applications", 12) == 0;
}

// A root folder with everything that a program needs, and nothing yet of what is to be repaired.
class Upgrade : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root);
    ASSERT_EQ(::mount("tmpfs", root, "tmpfs", 0, "mode=755"), 0);
    for (const auto& entry : fs::directory_iterator("/")) {
      if (!isLeftOut(entry.path())) borrow(entry);
    }
  }

  static void borrow(const fs::directory_entry& entry) {
    const fs::path here = fs::path(root) / entry.path().filename();
    if (entry.is_symlink()) {
      fs::copy_symlink(entry.path(), here);
    } else if (entry.is_directory()) {
      fs::create_directory(here);
      ASSERT_EQ(::mount(entry.path().c_str(), here.c_str(), nullptr, MS_BIND | MS_REC, nullptr), 0);
    }
  }

  static fs::path at(const std::string& name) { return fs::path(root) / name; }

  static void makeFolderWithAFile(const std::string& name) {
    fs::create_directories(at(name));
    writeFile(at(name) / "file", "kept");
  }

  static void expectFileIn(const std::string& name) {
    EXPECT_EQ(contentsOf(at(name) / "file"), "kept") << name;
  }

  static void prepareForUpgrade() {
    Launch launch = ombrix({"-PrepForUpgrade"});
    launch.beforeExec = [] {
      if (::chroot(root) != 0 || ::chdir("/") != 0) ::_exit(124);
    };
    const Outcome outcome = run(launch);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output + outcome.errors, "");
  }

 private:
  static constexpr const char* root = "/tmp/root";
};

}  // namespace

TEST_F(Upgrade, FolderWithTheRightSpellingStays) {
  makeFolderWithAFile("Applications");
  prepareForUpgrade();
  expectFileIn("Applications");
}

TEST_F(Upgrade, FolderThatTheRightSpellingDoesNotFindStays) {
  makeFolderWithAFile("applications");
  prepareForUpgrade();
  expectFileIn("applications");
  EXPECT_FALSE(fs::exists(at("Applications")));
}

TEST_F(Upgrade, TwoFoldersBothStay) {
  makeFolderWithAFile("applications");
  fs::create_directory(at("Applications"));
  prepareForUpgrade();
  expectFileIn("applications");
  EXPECT_TRUE(fs::is_empty(at("Applications")));
}

TEST_F(Upgrade, MachineWithoutApplicationsGetsNone) {
  prepareForUpgrade();
  EXPECT_FALSE(fs::exists(at("applications")) || fs::exists(at("Applications")));
}

TEST_F(Upgrade, LinkElsewhereStays) {
  makeFolderWithAFile("opt-applications");
  fs::create_symlink("opt-applications", at("Applications"));
  prepareForUpgrade();
  EXPECT_TRUE(fs::is_symlink(at("Applications")));
  expectFileIn("Applications");
}

// A case-sensitive disk shows the two steps apart: the second finds its target taken.
TEST_F(Upgrade, FolderFoundInLowerCaseGoesByTheNameInBetween) {
  makeFolderWithAFile("applications");
  fs::create_symlink("applications", at("Applications"));
  prepareForUpgrade();
  EXPECT_FALSE(fs::exists(at("applications")));
  expectFileIn("applications_");
  EXPECT_TRUE(fs::is_symlink(at("Applications")));
}

TEST_F(Upgrade, NameInBetweenThatIsTakenStopsTheFirstStep) {
  makeFolderWithAFile("applications");
  makeFolderWithAFile("applications_");
  fs::create_symlink("applications", at("Applications"));
  prepareForUpgrade();
  expectFileIn("applications");
  expectFileIn("applications_");
  EXPECT_TRUE(fs::is_symlink(at("Applications")));
}

}  // namespace ombrix::tests
