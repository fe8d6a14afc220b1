#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/ProcessList.h"
#include "Tests/Port/Linux/PrivateMachine.h"
#include "Tests/Port/Linux/ProcessFixtures.h"
#include "Tests/Port/Linux/Resources.h"
#include "Tests/Port/POSIX/ChildProcess.h"

namespace ombrix::tests {

namespace {

using platform::ProcessEntry;
using platform::ProcessId;
using platform::ProcessList;

std::optional<std::size_t> indexOf(const ProcessList& list, ProcessId id) {
  const auto& ids = list.processIds();
  const auto position = std::find(ids.begin(), ids.end(), id);
  if (position == ids.end()) return std::nullopt;
  return static_cast<std::size_t>(position - ids.begin());
}

std::optional<ProcessEntry> entryOf(ProcessId id) {
  ProcessList list;
  if (!list.fetch()) return std::nullopt;
  const auto index = indexOf(list, id);
  return index ? list.entry(*index) : std::nullopt;
}

// A child that has done something to itself and then waits for its end.
class PreparedChild {
 public:
  explicit PreparedChild(const std::function<void()>& preparation) {
    std::array<int, 2> ready{};
    if (::pipe(ready.data()) != 0) return;
    child = ::fork();
    if (child < 0) throw std::runtime_error("no process");  // kill() takes -1 for everybody
    if (child == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      preparation();
      ::close(ready[1]);
      for (;;) ::pause();
    }
    ::close(ready[1]);
    char nothing = 0;
    while (::read(ready[0], &nothing, 1) > 0) {
    }
    ::close(ready[0]);
  }
  ~PreparedChild() {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  PreparedChild(const PreparedChild&) = delete;
  PreparedChild& operator=(const PreparedChild&) = delete;
  [[nodiscard]] pid_t id() const { return child; }

 private:
  pid_t child = -1;
};

// Takes away what a test has mounted over /proc; the sanitizers look into it at the end.
class MountOverProc {
 public:
  explicit MountOverProc(bool mounted) : mounted(mounted) {}
  ~MountOverProc() {
    if (mounted) ::umount2("/proc", MNT_DETACH);
  }
  MountOverProc(const MountOverProc&) = delete;
  MountOverProc& operator=(const MountOverProc&) = delete;
  explicit operator bool() const { return mounted; }

 private:
  bool mounted;
};

// Another user is to learn no more of a process than whose it is.
void expectNamelessForAStranger(ProcessId id, uid_t owner) {
  const int result = exitStatusInChild([&] {
    if (!becomeUser(strangerUser)) return 77;
    const auto entry = entryOf(id);
    if (!entry) return 1;
    if (entry->commandName) return 2;
    return entry->effectiveUserId == owner ? 0 : 3;
  });
  if (result == 77) GTEST_SKIP() << "needs several users";
  EXPECT_EQ(result, 0);
}

std::optional<ProcessId> someKernelThread() {
  for (ProcessId id = 2; id < 20; ++id) {
    std::ifstream status("/proc/" + std::to_string(id) + "/status");
    const std::string text{std::istreambuf_iterator<char>(status), {}};
    if (text.find("\nKthread:\t1\n") != std::string::npos) return id;
  }
  return std::nullopt;
}

}  // namespace

TEST(ProcessListOnLinux, TellsEveryNameAsTheKernelHasIt) {
  for (const char* name : {"a) R 1\n\\b c", "", " ", "\n", "\\n", "Uid:\t7", "fifteen_letters",
                           "caf\xE9", "(sd-pam)"}) {
    const PreparedChild child([name] { ::prctl(PR_SET_NAME, name); });
    const auto entry = entryOf(child.id());
    ASSERT_TRUE(entry) << name;
    EXPECT_EQ(entry->commandName, name);
  }
}

TEST(ProcessListOnLinux, TellsTheEffectiveUserAndNotTheOwnerOfTheFiles) {
  if (exitStatusInChild([] { return ::seteuid(strangerUser) == 0 ? 0 : 1; }) != 0) {
    GTEST_SKIP() << "needs several users";
  }
  // The kernel gives the files of a process to root when it has changed its user like that.
  const PreparedChild child([] { std::ignore = ::seteuid(strangerUser); });
  const auto entry = entryOf(child.id());
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->effectiveUserId, strangerUser);
}

TEST(ProcessListOnLinux, TellsTheNameOfTheDeadWhoAreNotBuried) {
  const pid_t zombie = ::fork();
  if (zombie == 0) {
    ::prctl(PR_SET_NAME, "departed");
    ::_exit(0);
  }
  siginfo_t end{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(zombie), &end, WEXITED | WNOWAIT), 0);

  const auto entry = entryOf(zombie);

  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->commandName, "departed");
  ::waitpid(zombie, nullptr, 0);
}

TEST(ProcessListOnLinux, HasNoEntryForAProcessThatEndedSinceTheFetch) {
  ProcessList list;
  std::optional<std::size_t> index;
  {
    const ChildProcess process("/bin/cat", {"cat"});
    ASSERT_TRUE(list.fetch());
    index = indexOf(list, process.id());
  }
  ASSERT_TRUE(index);
  EXPECT_FALSE(list.entry(*index));
}

TEST(ProcessListOnLinux, HasNoEntryForAKernelThreadAndListsItNoMore) {
  const auto thread = someKernelThread();
  if (!thread) GTEST_SKIP() << "this machine shows no kernel threads";
  ProcessList list;
  ASSERT_TRUE(list.fetch());
  const auto index = indexOf(list, *thread);
  ASSERT_TRUE(index);

  EXPECT_FALSE(list.entry(*index));

  for (int fetches = 0; fetches < 3; ++fetches) {
    ASSERT_TRUE(list.fetch());
    EXPECT_FALSE(indexOf(list, *thread));
  }
}

TEST(ProcessListOnLinux, HasANamelessEntryForAProcessWhoseFilesAreHidden) {
  const MountOverProc proc(::mount("proc", "/proc", "proc", 0, "hidepid=1") == 0);
  if (!proc) GTEST_SKIP() << "needs mounts";
  expectNamelessForAStranger(1, 0);
}

// A security module refuses with another error than a mount with hidepid does.
TEST(ProcessListOnLinux, HasANamelessEntryForAProcessWhoseFilesAreForbidden) {
  constexpr uid_t owner = 4321;
  const MountOverProc proc(mountMemory("/proc", "mode=755"));
  if (!proc || ::mkdir("/proc/77", 0755) != 0) GTEST_SKIP() << "needs mounts";
  std::ofstream("/proc/77/status") << kernelThreadStatus;
  if (::chmod("/proc/77/status", 0) != 0 || ::chown("/proc/77", owner, 0) != 0) {
    GTEST_SKIP() << "needs several users";
  }
  expectNamelessForAStranger(77, owner);
}

TEST(ProcessListOnLinux, IsFetchedAlsoWithoutAFreeDescriptor) {
  ProcessList list;
  const NoFreeDescriptor none;
  ASSERT_TRUE(list.fetch());
  EXPECT_TRUE(indexOf(list, ::getpid()));
}

TEST(ProcessListOnLinux, IsEmptyAfterAFetchThatFailedAndCanBeFetchedLater) {
  const auto list = [] {
    const NoFreeDescriptor none;
    auto made = std::make_unique<ProcessList>();
    EXPECT_FALSE(made->fetch());
    EXPECT_TRUE(made->processIds().empty());
    return made;
  }();
  ASSERT_TRUE(list->fetch());
  EXPECT_TRUE(indexOf(*list, ::getpid()));
}

TEST(ProcessListOnLinux, ListsAKernelThreadNoMoreUntilItsIdIsAnothers) {
  const MountOverProc proc(mountMemory("/proc", "mode=755"));
  if (!proc) GTEST_SKIP() << "needs mounts";
  std::filesystem::create_directory("/proc/2");
  std::ofstream("/proc/2/status") << kernelThreadStatus;
  ProcessList list;
  ASSERT_TRUE(list.fetch());
  ASSERT_TRUE(indexOf(list, 2));
  EXPECT_FALSE(list.entry(0));
  ASSERT_TRUE(list.fetch());
  EXPECT_FALSE(indexOf(list, 2));

  std::filesystem::remove_all("/proc/2");
  ASSERT_TRUE(list.fetch());
  std::filesystem::create_directory("/proc/2");
  ASSERT_TRUE(list.fetch());
  EXPECT_TRUE(indexOf(list, 2));
}

TEST(ProcessListOnLinux, TakesNoNameForAnIdThatIsOneOnlyAtItsBeginning) {
  const MountOverProc proc(mountMemory("/proc", "mode=755"));
  if (!proc) GTEST_SKIP() << "needs mounts";
  for (const char* name : {"1", "12", "12abc", "3.4", "abc", "+5"}) {
    ASSERT_TRUE(std::filesystem::create_directory(std::string("/proc/") + name));
  }
  ProcessList list;
  ASSERT_TRUE(list.fetch());
  EXPECT_EQ(list.processIds(), (std::vector<ProcessId>{1, 12}));
}

TEST(ProcessListOnLinux, FetchFailsWhenTheNamesCannotBeRead) {
  std::filesystem::create_directories("/tmp/proc/1");
  const MountOverProc proc(::mount("/tmp/proc", "/proc", nullptr, MS_BIND, nullptr) == 0);
  if (!proc) GTEST_SKIP() << "needs mounts";
  ProcessList list;
  ASSERT_TRUE(list.fetch());
  std::filesystem::remove_all("/tmp/proc");
  EXPECT_FALSE(list.fetch());
  EXPECT_TRUE(list.processIds().empty());
}

TEST(ProcessListOnLinux, HoldsNoMoreDescriptorsTheLongerItIsUsed) {
  ProcessList list;
  const std::ptrdiff_t before = openDescriptors();
  for (int poll = 0; poll < 10; ++poll) {
    ASSERT_TRUE(list.fetch());
    for (std::size_t index = 0; index < list.processIds().size(); ++index) {
      std::ignore = list.entry(index);
    }
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace ombrix::tests
