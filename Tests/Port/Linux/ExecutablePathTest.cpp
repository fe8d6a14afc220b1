#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Platform/ProcessList.h"
#include "Tests/Port/Linux/PrivateMachine.h"
#include "Tests/Port/POSIX/ChildProcess.h"

namespace ombrix::tests {

namespace {

using platform::ExecutablePath;
using platform::PathResult;

// A call that waits for a file system ends the test's process after this time.
constexpr unsigned secondsUntilStuck = 20;

ExecutablePath filledPath() {
  ExecutablePath path;
  path.fill('#');
  return path;
}

// A program that waits for the end of its input, under a path of the test's choice.
void installAt(const std::string& path) {
  std::filesystem::copy_file("/bin/cat", path, std::filesystem::copy_options::overwrite_existing);
}

std::string pathOf(const ChildProcess& process) {
  ExecutablePath path = filledPath();
  EXPECT_EQ(platform::executablePath(process.id(), path), PathResult::found);
  return path.data();
}

// Goes down into `count` nested folders with the longest of names.
void descend(int count) {
  const std::string name(255, 'd');
  for (int depth = 0; depth < count; ++depth) {
    ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
    ASSERT_EQ(::chdir(name.c_str()), 0);
  }
}

}  // namespace

TEST(ExecutablePathOnLinux, IsTheFormerOneOfADeletedFile) {
  installAt("/tmp/tool");
  const ChildProcess process("/tmp/tool", {"tool"});
  std::filesystem::remove("/tmp/tool");
  EXPECT_EQ(pathOf(process), "/tmp/tool");
}

TEST(ExecutablePathOnLinux, IsTheSameAfterAnUpgradeHasReplacedTheFile) {
  installAt("/tmp/tool");
  const ChildProcess process("/tmp/tool", {"tool"});
  std::filesystem::remove("/tmp/tool");
  installAt("/tmp/tool");
  EXPECT_EQ(pathOf(process), "/tmp/tool");
}

TEST(ExecutablePathOnLinux, IsWholeForAFileThatIsNamedLikeADeletedOne) {
  installAt("/tmp/tool (deleted)");
  const ChildProcess process("/tmp/tool (deleted)", {"tool"});
  EXPECT_EQ(pathOf(process), "/tmp/tool (deleted)");
}

TEST(ExecutablePathOnLinux, LosesOneMarkOnlyWhenAFileNamedSoIsDeleted) {
  installAt("/tmp/tool (deleted)");
  const ChildProcess process("/tmp/tool (deleted)", {"tool"});
  std::filesystem::remove("/tmp/tool (deleted)");
  EXPECT_EQ(pathOf(process), "/tmp/tool (deleted)");
}

TEST(ExecutablePathOnLinux, IsNotThatOfAnotherFileWhichIsNamedLikeTheDeletedOne) {
  installAt("/tmp/tool");
  installAt("/tmp/tool (deleted)");
  const ChildProcess process("/tmp/tool", {"tool"});
  std::filesystem::remove("/tmp/tool");
  EXPECT_EQ(pathOf(process), "/tmp/tool");
}

TEST(ExecutablePathOnLinux, DoesNotWaitForAFileSystemInThePlaceOfTheDeletedFile) {
  std::filesystem::create_directory("/tmp/tools");
  installAt("/tmp/tools/tool");
  const ChildProcess process("/tmp/tools/tool", {"tool"});
  std::filesystem::remove("/tmp/tools/tool");
  const SilentFileSystem silent("/tmp/tools");
  if (!silent.mounted()) GTEST_SKIP() << "needs /dev/fuse";
  ::alarm(secondsUntilStuck);
  EXPECT_EQ(pathOf(process), "/tmp/tools/tool");
}

TEST(ExecutablePathOnLinux, MayBeLong) {
  ASSERT_EQ(::chdir("/tmp"), 0);
  descend(14);
  installAt("./tool");
  const ChildProcess process("./tool", {"tool"});
  EXPECT_EQ(pathOf(process).size(), std::string("/tmp").size() + 14 * 256 + 5);
}

TEST(ExecutablePathOnLinux, LeavesTheBufferAsItWasWhereItIsTooLong) {
  ASSERT_EQ(::chdir("/tmp"), 0);
  descend(17);
  installAt("./tool");
  const ChildProcess process("./tool", {"tool"});
  ExecutablePath path = filledPath();
  EXPECT_EQ(platform::executablePath(process.id(), path), PathResult::unreadable);
  EXPECT_EQ(path, filledPath());
}

TEST(ExecutablePathOnLinux, LeavesTheBufferAsItWasWhereItMayNotBeRead) {
  const pid_t ofAnotherUser = ::getpid();
  const int result = exitStatusInChild([ofAnotherUser] {
    if (!becomeUser(strangerUser)) return 77;
    ExecutablePath path = filledPath();
    if (platform::executablePath(ofAnotherUser, path) != PathResult::unreadable) return 1;
    return path == filledPath() ? 0 : 2;
  });
  if (result == 77) GTEST_SKIP() << "needs several users";
  EXPECT_EQ(result, 0);
}

TEST(ExecutablePathOnLinux, OfAHiddenProcessIsUnreadableAndTheProcessNotGone) {
  const int result = exitStatusInChild([] {
    if (::mount("proc", "/proc", "proc", 0, "hidepid=1") != 0) return 77;
    if (!becomeUser(strangerUser)) return 77;
    ExecutablePath path = filledPath();
    if (platform::executablePath(1, path) != PathResult::unreadable) return 1;
    return path == filledPath() ? 0 : 2;
  });
  if (result == 77) GTEST_SKIP() << "needs several users";
  EXPECT_EQ(result, 0);
}

TEST(ExecutablePathOnLinux, IsNoneForAProcessThatIsGone) {
  pid_t gone = 0;
  { gone = ChildProcess("/bin/cat", {"cat"}).id(); }
  ExecutablePath path = filledPath();
  EXPECT_EQ(platform::executablePath(gone, path), PathResult::processGone);
  EXPECT_EQ(path, filledPath());
}

TEST(ExecutablePathOnLinux, IsEmptyForAProcessWithoutAFile) {
  const pid_t zombie = ::fork();
  if (zombie == 0) ::_exit(0);
  siginfo_t end{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(zombie), &end, WEXITED | WNOWAIT), 0);
  ExecutablePath path = filledPath();

  EXPECT_EQ(platform::executablePath(zombie, path), PathResult::found);

  EXPECT_STREQ(path.data(), "");
  ::waitpid(zombie, nullptr, 0);
}

}  // namespace ombrix::tests
