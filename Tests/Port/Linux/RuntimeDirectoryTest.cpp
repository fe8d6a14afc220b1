#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "Platform/Linux/RuntimeDirectory.h"
#include "Tests/Port/Linux/PrivateMachine.h"
#include "Tests/Port/POSIX/ChildProcess.h"

// The tests are root in their own namespaces, with an empty /run and /tmp.

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;
using platform::machineAgentDirectory;
using platform::machineAgentPath;
using platform::namesIn;
using platform::ownRuntimeDirectory;
using platform::RuntimeDirectory;
using platform::searchedRuntimeDirectories;

constexpr const char* machineDirectory = "/run/ombrix";
constexpr const char* temporaryDirectory = "/tmp/ombrix-0";

// A call that waits for a file system ends the test's process after this time.
constexpr unsigned secondsUntilStuck = 20;

// The path of a directory that is open, as the kernel knows it.
std::string pathOf(const RuntimeDirectory& directory) {
  const std::string link = "/proc/self/fd/" + std::to_string(directory.descriptor.get());
  std::string path(4096, '\0');
  const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
  return path.substr(0, length < 0 ? 0 : static_cast<std::size_t>(length));
}

std::string ownPath() {
  const auto directory = ownRuntimeDirectory();
  return directory ? pathOf(*directory) : "none";
}

mode_t modeOf(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 ? status.st_mode & 07777U : 0;
}

void makeDirectory(const std::string& path, mode_t mode, uid_t owner = 0) {
  ASSERT_EQ(::mkdir(path.c_str(), mode), 0);
  ASSERT_EQ(::chmod(path.c_str(), mode), 0);
  ASSERT_TRUE(owner == 0 || ::chown(path.c_str(), owner, owner) == 0);
}

bool hasSeveralUsers() {
  return exitStatusInChild([] { return becomeUser(strangerUser) ? 0 : 1; }) == 0;
}

std::vector<std::string> searchedPaths() {
  std::vector<std::string> paths;
  for (const RuntimeDirectory& directory : searchedRuntimeDirectories()) {
    paths.push_back(pathOf(directory));
  }
  return paths;
}

}  // namespace

TEST(RuntimeDirectory, IsTheMachinesAndMadeWhenMissing) {
  EXPECT_EQ(ownPath(), machineDirectory);
  EXPECT_EQ(modeOf(machineDirectory), 0755U);
}

TEST(RuntimeDirectory, IsUsedAgainWhenItIsThere) {
  makeDirectory(machineDirectory, 0711);
  EXPECT_EQ(ownPath(), machineDirectory);
  EXPECT_EQ(modeOf(machineDirectory), 0711U);
}

TEST(RuntimeDirectory, IsNeverALink) {
  makeDirectory("/tmp/trap", 0755);
  ASSERT_EQ(::symlink("/tmp/trap", machineDirectory), 0);
  EXPECT_EQ(ownPath(), temporaryDirectory);
}

TEST(RuntimeDirectory, IsNeverAFile) {
  std::ofstream(machineDirectory) << "in the way";
  EXPECT_EQ(ownPath(), temporaryDirectory);
}

TEST(RuntimeDirectory, IsNeverAnothers) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  makeDirectory(machineDirectory, 0755, strangerUser);
  EXPECT_EQ(ownPath(), temporaryDirectory);
}

TEST(RuntimeDirectory, IsNeverOneThatOthersMayWriteTo) {
  for (const mode_t mode : {0775U, 0757U, 0777U, 01777U}) {
    makeDirectory(machineDirectory, mode);
    EXPECT_EQ(ownPath(), temporaryDirectory) << mode;
    ASSERT_EQ(::rmdir(machineDirectory), 0);
  }
}

TEST(RuntimeDirectory, IsNeverOneThatCannotBeWrittenTo) {
  makeDirectory(machineDirectory, 0755);
  ASSERT_TRUE(mountMemory(machineDirectory, "mode=755", MS_RDONLY));
  EXPECT_EQ(ownPath(), temporaryDirectory);
}

TEST(RuntimeDirectory, IsPrivateInTheTemporaryFolder) {
  std::ofstream(machineDirectory) << "in the way";
  EXPECT_EQ(ownPath(), temporaryDirectory);
  EXPECT_EQ(modeOf(temporaryDirectory), 0700U);
}

TEST(RuntimeDirectory, IsCheckedInTheTemporaryFolderToo) {
  std::ofstream(machineDirectory) << "in the way";
  makeDirectory("/tmp/trap", 0755);
  ASSERT_EQ(::symlink("/tmp/trap", temporaryDirectory), 0);
  EXPECT_EQ(ownPath(), "none");
}

TEST(RuntimeDirectory, IsInTheSessionsFolderBeforeTheTemporaryOne) {
  std::ofstream(machineDirectory) << "in the way";
  makeDirectory("/run/session", 0700);
  ::setenv("XDG_RUNTIME_DIR", "/run/session", 1);
  EXPECT_EQ(ownPath(), "/run/session/ombrix");
  EXPECT_EQ(modeOf("/run/session/ombrix"), 0700U);
}

TEST(RuntimeDirectory, IsInTheUsersFolderWhereTheSessionHasNoName) {
  std::ofstream(machineDirectory) << "in the way";
  makeDirectory("/run/user", 0755);
  makeDirectory("/run/user/0", 0700);
  EXPECT_EQ(ownPath(), "/run/user/0/ombrix");
}

// As of a root that was given the session of another by sudo(8).
TEST(RuntimeDirectory, IsNotInTheFolderOfAnothersSession) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  std::ofstream(machineDirectory) << "in the way";
  makeDirectory("/run/session", 0700, strangerUser);
  ::setenv("XDG_RUNTIME_DIR", "/run/session", 1);
  EXPECT_EQ(ownPath(), temporaryDirectory);
}

TEST(RuntimeDirectory, IsNotInAFolderWhereOthersMayReplaceIt) {
  std::ofstream(machineDirectory) << "in the way";
  makeDirectory("/run/session", 0777);
  ::setenv("XDG_RUNTIME_DIR", "/run/session", 1);
  EXPECT_EQ(ownPath(), temporaryDirectory);
}

TEST(RuntimeDirectory, IsNotInASessionsFolderWithoutAFullPath) {
  std::ofstream(machineDirectory) << "in the way";
  ASSERT_EQ(::chdir("/run"), 0);
  makeDirectory("/run/session", 0700);
  for (const char* path : {"session", "", "./session"}) {
    ::setenv("XDG_RUNTIME_DIR", path, 1);
    EXPECT_EQ(ownPath(), temporaryDirectory) << path;
  }
}

TEST(RuntimeDirectory, IsNoneWhereNothingCanBeWrittenTo) {
  ASSERT_TRUE(mountMemory("/run", "mode=755", MS_RDONLY));
  ASSERT_TRUE(mountMemory("/tmp", "mode=1777", MS_RDONLY));
  EXPECT_EQ(ownPath(), "none");
}

TEST(RuntimeDirectory, OfAnOrdinaryUserIsHisOwn) {
  const int result = exitStatusInChild([] {
    if (!becomeUser(strangerUser)) return 77;
    const auto directory = ownRuntimeDirectory();
    if (!directory || pathOf(*directory) != "/tmp/ombrix-65534") return 1;
    return directory->owner == strangerUser && directory->trusted ? 0 : 2;
  });
  if (result == 77) GTEST_SKIP() << "needs several users";
  EXPECT_EQ(result, 0);
}

// As a package sets it up: in the machine's directory, one for the user who runs its agent.
class MachineAgentDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
    makeDirectory(machineDirectory, 0755);
    makeDirectory(machineAgentPath, 0755, strangerUser);
  }
};

TEST_F(MachineAgentDirectory, IsUsedByItsOwner) {
  EXPECT_EQ(exitStatusInChild(
                [] { return becomeUser(strangerUser) && ownPath() == machineAgentPath ? 0 : 1; }),
            0);
}

TEST_F(MachineAgentDirectory, IsNotUsedByRootOrAnybodyElse) {
  EXPECT_EQ(ownPath(), machineDirectory);
  EXPECT_EQ(
      exitStatusInChild([] { return becomeUser(4711) && ownPath() == "/tmp/ombrix-4711" ? 0 : 1; }),
      0);
}

TEST_F(MachineAgentDirectory, IsSearchedByEverybodyAndTrustedByItsOwner) {
  for (const uid_t user : {uid_t{0}, uid_t{4711}, strangerUser}) {
    EXPECT_EQ(exitStatusInChild([user] {
                if (user != 0 && !becomeUser(user)) return 1;
                const auto directories = searchedRuntimeDirectories();
                if (directories.size() != 2 || pathOf(directories[1]) != machineAgentPath) return 2;
                if (!directories[1].ofMachineAgent || directories[0].ofMachineAgent) return 3;
                return directories[1].trusted == (user == strangerUser) ? 0 : 4;
              }),
              0)
        << user;
  }
}

TEST_F(MachineAgentDirectory, IsNoneThatSomebodyElseMayWriteTo) {
  for (const mode_t mode : {0775U, 0757U, 01777U}) {
    ASSERT_EQ(::chmod(machineAgentPath, mode), 0);
    EXPECT_FALSE(machineAgentDirectory()) << mode;
  }
}

TEST_F(MachineAgentDirectory, IsNoneInADirectoryThatIsNotRootsOwn) {
  ASSERT_EQ(::chown(machineDirectory, strangerUser, strangerUser), 0);
  EXPECT_FALSE(machineAgentDirectory());
}

TEST_F(MachineAgentDirectory, IsNoneInADirectoryThatOthersMayWriteTo) {
  ASSERT_EQ(::chmod(machineDirectory, 01777), 0);
  EXPECT_FALSE(machineAgentDirectory());
}

TEST_F(MachineAgentDirectory, IsNeverALink) {
  ASSERT_EQ(::rmdir(machineAgentPath), 0);
  makeDirectory("/tmp/trap", 0755, strangerUser);
  ASSERT_EQ(::symlink("/tmp/trap", machineAgentPath), 0);
  EXPECT_FALSE(machineAgentDirectory());
}

TEST(SearchedRuntimeDirectories, AreNoneWhereNobodyHasMadeAny) {
  EXPECT_TRUE(searchedPaths().empty());
}

TEST(SearchedRuntimeDirectories, AreTheMachinesAndTheOwn) {
  makeDirectory(machineDirectory, 0755);
  makeDirectory(temporaryDirectory, 0700);
  const std::vector<std::string> expected = {machineDirectory, temporaryDirectory};
  EXPECT_EQ(searchedPaths(), expected);
}

TEST(SearchedRuntimeDirectories, AreCheckedLikeTheOwn) {
  makeDirectory("/tmp/trap", 0755);
  ASSERT_EQ(::symlink("/tmp/trap", machineDirectory), 0);
  makeDirectory(temporaryDirectory, 0777);
  EXPECT_TRUE(searchedPaths().empty());
}

TEST(SearchedRuntimeDirectories, AreThoseOfOtherUsersTooForRoot) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  makeDirectory(machineDirectory, 0755);
  makeDirectory("/tmp/ombrix-65534", 0700, strangerUser);
  makeDirectory("/run/user", 0755);
  makeDirectory("/run/user/4711", 0700, 4711);
  makeDirectory("/run/user/4711/ombrix", 0700, 4711);

  const auto directories = searchedRuntimeDirectories();

  ASSERT_EQ(directories.size(), 3U);
  EXPECT_EQ(pathOf(directories[0]), machineDirectory);
  EXPECT_TRUE(directories[0].trusted);
  for (const std::size_t others : {1U, 2U}) {
    EXPECT_FALSE(directories[others].trusted);
    EXPECT_NE(directories[others].owner, 0U);
  }
}

TEST(SearchedRuntimeDirectories, AreNotThoseThatLieAboutTheirOwner) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  makeDirectory("/tmp/ombrix-4711", 0700, strangerUser);
  makeDirectory("/tmp/ombrix-", 0700, strangerUser);
  makeDirectory("/tmp/ombrix-x", 0700, strangerUser);
  makeDirectory("/tmp/ombrix-65534x", 0700, strangerUser);
  EXPECT_TRUE(searchedPaths().empty());
}

TEST(SearchedRuntimeDirectories, AreOfNoOtherUserForAnOrdinaryOne) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  makeDirectory(machineDirectory, 0755);
  makeDirectory("/tmp/ombrix-4711", 0755, 4711);
  const int found = exitStatusInChild([] {
    return becomeUser(strangerUser) ? static_cast<int>(searchedRuntimeDirectories().size()) : 77;
  });
  EXPECT_EQ(found, 1);
}

TEST(RuntimeDirectory, IsNotWaitedForWhereAUsersFileSystemDoesNotAnswer) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "needs several users";
  const std::string session = "/run/user/" + std::to_string(strangerUser);
  makeDirectory("/run/user", 0755);
  makeDirectory(session, 0700, strangerUser);
  makeDirectory(session + "/ombrix", 0700, strangerUser);
  for (const std::string& folder : {session, session + "/ombrix"}) {
    const SilentFileSystem silent(folder);
    if (!silent.mounted()) GTEST_SKIP() << "needs /dev/fuse";
    ::alarm(secondsUntilStuck);
    EXPECT_TRUE(searchedPaths().empty()) << folder;
  }
}

TEST(NamesIn, AreAllButTheDirectoryItselfAndItsParent) {
  makeDirectory("/tmp/folder", 0700);
  for (const char* name : {"one", ".two", "three four"}) {
    std::ofstream("/tmp/folder/" + std::string(name)) << name;
  }
  const FileDescriptor folder(::open("/tmp/folder", O_RDONLY | O_DIRECTORY | O_CLOEXEC));

  std::vector<std::string> names = namesIn(folder, 100);

  std::sort(names.begin(), names.end());
  const std::vector<std::string> expected = {".two", "one", "three four"};
  EXPECT_EQ(names, expected);
  EXPECT_EQ(namesIn(folder, 100).size(), 3U);
}

TEST(NamesIn, AreAsManyAsAskedForAtMost) {
  makeDirectory("/tmp/folder", 0700);
  for (int number = 0; number < 10; ++number) {
    std::ofstream("/tmp/folder/" + std::to_string(number)) << "";
  }
  const FileDescriptor folder(::open("/tmp/folder", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_EQ(namesIn(folder, 4).size(), 4U);
}

TEST(NamesIn, AreNoneWhereThereIsNoDirectory) {
  EXPECT_TRUE(namesIn(FileDescriptor(), 100).empty());
}

}  // namespace ombrix::tests
