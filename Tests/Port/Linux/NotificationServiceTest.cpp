#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Platform/FileDescriptor.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RunLoop.h"
#include "Tests/Port/Linux/PrivateMachine.h"
#include "Tests/Port/Linux/Resources.h"
#include "Tests/Port/POSIX/ChildProcess.h"

// What is particular to the sockets behind the notifications of Linux.

namespace ombrix::tests {

namespace {

using namespace std::chrono_literals;
using platform::FileDescriptor;
using platform::NotificationObserver;
using platform::Posters;
using platform::postNotification;
using platform::runLoopRunOnce;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto longEnough = 20s;
constexpr const char* directory = "/run/ombrix";

class Listener {
 public:
  explicit Listener(const char* name, Posters posters = Posters::rootAndOwnUser)
      : observer(name, posters, [this] { ++heard; }) {}
  int heard = 0;

 private:
  NotificationObserver observer;
};

std::vector<std::string> socketNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

std::string pathOfOnlySocket() {
  const auto names = socketNames();
  return names.size() == 1 ? std::string(directory) + "/" + names.front() : "";
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

// A socket that was bound by somebody who has never heard of notifications.
FileDescriptor receiverAt(const std::string& path) {
  FileDescriptor receiver(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = addressOf(path);
  EXPECT_EQ(::bind(receiver.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            0);
  return receiver;
}

// Sends bytes of the test's choice to a socket, by the way of somebody who has never heard of
// notifications, and a descriptor with them if it is a valid one.
bool sendRaw(const std::string& path, std::string text, int attached = -1) {
  const FileDescriptor sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = addressOf(path);
  iovec part{text.data(), text.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof(address);
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (attached >= 0) {
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &attached, sizeof(attached));
  }
  return ::sendmsg(sender.get(), &message, 0) >= 0;
}

std::string logOf(const std::function<void()>& piece) {
  ::testing::internal::CaptureStderr();
  piece();
  return ::testing::internal::GetCapturedStderr();
}

// Leaves its sockets' names behind, as a process does that is killed.
void observeAndDie(const char* name) {
  ASSERT_EQ(exitStatusInChild([name] {
              const NotificationObserver observer(name, Posters::everyone, [] {});
              ::_exit(0);
              return 1;
            }),
            0);
}

}  // namespace

TEST(NotificationService, EqualPostsThatWaitTogetherAreOne) {
  const Listener listener("Stop");
  for (int post = 0; post < 3; ++post) postNotification("Stop");

  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_TRUE(runLoopRunOnce(10ms));

  EXPECT_EQ(listener.heard, 1);
}

TEST(NotificationService, OnlyOwnersMayWriteToTheFirstSocketAndEveryoneToTheSecond) {
  const NotificationObserver observer("LaunchCall", Posters::everyone, [] {});
  const auto names = socketNames();
  ASSERT_EQ(names.size(), 2U);
  for (const std::string& name : names) {
    const mode_t expected = name.ends_with(".public") ? 0666 : 0600;
    EXPECT_EQ(modeOf(std::string(directory) + "/" + name), expected) << name;
  }
}

TEST(NotificationService, WhoHearsHisOwnHasNoSocketForStrangers) {
  const NotificationObserver observer("Stop", Posters::rootAndOwnUser, [] {});
  EXPECT_EQ(modeOf(pathOfOnlySocket()), 0600U);
}

TEST(NotificationService, LocksItsDirectoryAgainstWhoeverClearsAwayWhatIsOld) {
  const Listener listener("example.Name");
  const FileDescriptor folder(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_EQ(::flock(folder.get(), LOCK_EX | LOCK_NB), -1);
}

TEST(NotificationService, RemovesItsSocketsWithTheObserver) {
  {
    const NotificationObserver observer("LaunchCall", Posters::everyone, [] {});
  }
  EXPECT_THAT(socketNames(), IsEmpty());
}

TEST(NotificationService, RemovesItsSocketsAlsoWhenTheProcessExitsAmidItsObservers) {
  ASSERT_EQ(exitStatusInChild([] {
              static NotificationObserver* observer = nullptr;
              observer = new NotificationObserver("Stop", Posters::everyone, [] {});
              std::exit(observer == nullptr ? 1 : 0);
              return 1;
            }),
            0);
  EXPECT_THAT(socketNames(), IsEmpty());
}

TEST(NotificationService, RemovesSocketsThatADeadObserverLeftBehind) {
  observeAndDie("Stop");
  ASSERT_EQ(socketNames().size(), 2U);

  EXPECT_EQ(logOf([] { postNotification("Stop"); }), "");

  EXPECT_THAT(socketNames(), IsEmpty());
}

TEST(NotificationService, LeavesOtherFilesInItsDirectoryAlone) {
  {
    const NotificationObserver observer("Stop", Posters::everyone, [] {});
  }
  std::ofstream("/tmp/file") << "precious";
  std::ofstream("/run/ombrix/Stop.1.1") << "precious";
  ASSERT_EQ(::symlink("/tmp/file", "/run/ombrix/Stop.1.2"), 0);

  postNotification("Stop");

  EXPECT_EQ(socketNames().size(), 2U);
  EXPECT_TRUE(std::filesystem::exists("/tmp/file"));
}

TEST(NotificationService, NeverPostsThroughALink) {
  {
    const NotificationObserver observer("Stop", Posters::rootAndOwnUser, [] {});
  }
  const FileDescriptor victim = receiverAt("/tmp/victim");
  ASSERT_EQ(::symlink("/tmp/victim", "/run/ombrix/Stop.1.1"), 0);

  postNotification("Stop");

  char byte = 0;
  EXPECT_LT(::recv(victim.get(), &byte, 1, MSG_DONTWAIT), 0);
}

TEST(NotificationService, PostsToWhateverSocketHasTheRightName) {
  {
    const NotificationObserver observer("Stop", Posters::rootAndOwnUser, [] {});
  }
  const FileDescriptor receiver = receiverAt("/run/ombrix/Stop.1.1");

  postNotification("Stop");

  std::array<char, 64> bytes{};
  EXPECT_EQ(::recv(receiver.get(), bytes.data(), bytes.size(), MSG_DONTWAIT), 4);
  EXPECT_STREQ(bytes.data(), "Stop");
}

TEST(NotificationService, PostsToNoSocketThatIsNotOfTheDirectorysOwner) {
  {
    const NotificationObserver observer("Stop", Posters::rootAndOwnUser, [] {});
  }
  const FileDescriptor receiver = receiverAt("/run/ombrix/Stop.1.1");
  if (::chown("/run/ombrix/Stop.1.1", strangerUser, 0) != 0) GTEST_SKIP() << "needs several users";

  postNotification("Stop");

  char byte = 0;
  EXPECT_LT(::recv(receiver.get(), &byte, 1, MSG_DONTWAIT), 0);
}

// Who waits for an answer is to hear it before the questions that others ask.
TEST(NotificationService, WhoHearsEveryoneHearsHimAfterAllOthers) {
  std::string order;
  const NotificationObserver call("Call", Posters::everyone, [&order] { order += "call "; });
  const NotificationObserver answer("Answer", Posters::trustedAgents,
                                    [&order] { order += "answer "; });
  postNotification("Call");
  postNotification("Answer");

  while (order.size() < 12) ASSERT_TRUE(runLoopRunOnce(longEnough));

  EXPECT_EQ(order, "answer call ");
}

TEST(NotificationService, WhoStillAwaitsAnswersHearsNoQuestions) {
  const Listener other("Call");
  postNotification("Call");  // has reached somebody, who could answer
  const Listener asked("Call", Posters::everyone);
  postNotification("Call");

  for (int run = 0; run < 5; ++run) EXPECT_TRUE(runLoopRunOnce(20ms));

  EXPECT_GE(other.heard, 1);
  EXPECT_EQ(asked.heard, 0);
}

TEST(NotificationService, IgnoresWhatIsNotItsNotification) {
  const Listener listener("Stop");
  const std::string socket = pathOfOnlySocket();
  for (const char* text : {"", "List", "Sto", "Stop ", "Stopp"}) {
    ASSERT_TRUE(sendRaw(socket, text)) << text;
  }
  ASSERT_TRUE(sendRaw(socket, "Stop" + std::string(10'000, '\0')));

  EXPECT_TRUE(runLoopRunOnce(10ms));

  EXPECT_EQ(listener.heard, 0);
}

TEST(NotificationService, HeedsARawDatagramOfTheRightName) {
  const Listener listener("Stop");
  ASSERT_TRUE(sendRaw(pathOfOnlySocket(), "Stop"));
  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_EQ(listener.heard, 1);
}

// The mode of the socket keeps strangers out; this is for those who found a way around it.
TEST(NotificationService, HeedsNoStrangerWhoReachedTheFirstSocketAllTheSame) {
  const Listener listener("Stop");
  const std::string socket = pathOfOnlySocket();
  ASSERT_EQ(::chmod(socket.c_str(), 0666), 0);
  const int result = exitStatusInChild([socket] {
    if (!becomeUser(strangerUser)) return 77;
    return sendRaw(socket, "Stop") ? 0 : 1;
  });
  if (result == 77) GTEST_SKIP() << "needs several users";
  ASSERT_EQ(result, 0);

  EXPECT_TRUE(runLoopRunOnce(10ms));

  EXPECT_EQ(listener.heard, 0);
}

TEST(NotificationService, DropsDescriptorsThatComeAlong) {
  const Listener listener("Stop");
  EXPECT_TRUE(runLoopRunOnce(0ms));
  const std::ptrdiff_t before = openDescriptors();

  ASSERT_TRUE(sendRaw(pathOfOnlySocket(), "Stop", STDOUT_FILENO));
  EXPECT_TRUE(runLoopRunOnce(10ms));

  EXPECT_EQ(openDescriptors(), before);
}

TEST(NotificationService, SaysThatAnObserverDoesNotRead) {
  const Listener listener("Stop");
  std::string log;
  for (int post = 0; post < 1000 && log.empty(); ++post) {
    log = logOf([] { postNotification("Stop"); });
  }
  EXPECT_THAT(log, HasSubstr("Stop did not reach 1 of its observers"));
}

TEST(NotificationService, StrangersCannotFillTheQueueOfOthers) {
  const Listener listener("LaunchCall", Posters::everyone);
  const int result = exitStatusInChild([] {
    if (!becomeUser(strangerUser)) return 77;
    std::string log;
    for (int post = 0; post < 1000 && log.empty(); ++post) {
      log = logOf([] { postNotification("LaunchCall"); });
    }
    return log.empty() ? 1 : 0;
  });
  if (result == 77) GTEST_SKIP() << "needs several users";
  ASSERT_EQ(result, 0);

  EXPECT_EQ(logOf([] { postNotification("LaunchCall"); }), "");
}

TEST(NotificationService, StrangersWakeTheirListenersSeldom) {
  Listener listener("LaunchCall", Posters::everyone);
  const int result = exitStatusInChild([] { return becomeUser(strangerUser) ? 0 : 77; });
  if (result == 77) GTEST_SKIP() << "needs several users";

  for (int attempt = 0; attempt < 12; ++attempt) {
    exitStatusInChild([] {
      std::ignore = becomeUser(strangerUser);
      postNotification("LaunchCall");
      return 0;
    });
    EXPECT_TRUE(runLoopRunOnce(1ms));
  }

  EXPECT_GE(listener.heard, 1);
  EXPECT_LE(listener.heard, 5);
}

TEST(NotificationService, RootReachesTheAgentsOfOtherUsers) {
  std::array<int, 2> ready{};
  ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
  const pid_t agent = ::fork();
  if (agent == 0) {
    if (!becomeUser(strangerUser)) ::_exit(77);
    const Listener listener("Stop");
    ::close(ready[1]);
    std::ignore = runLoopRunOnce(longEnough);
    ::_exit(listener.heard);
  }
  ::close(ready[1]);
  char nothing = 0;
  while (::read(ready[0], &nothing, 1) > 0) {
  }

  postNotification("Stop");

  int status = 0;
  ASSERT_EQ(::waitpid(agent, &status, 0), agent);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "needs several users";
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST(NotificationService, SaysOnceThatNothingCanBeReceived) {
  ASSERT_TRUE(mountMemory("/run", "mode=755", MS_RDONLY));
  ASSERT_TRUE(mountMemory("/tmp", "mode=1777"));
  ASSERT_EQ(::symlink("/", "/tmp/ombrix-0"), 0);

  const std::string log = logOf([] {
    const NotificationObserver first("Stop", Posters::everyone, [] {});
    const NotificationObserver second("List", Posters::everyone, [] {});
  });

  EXPECT_THAT(log, HasSubstr("No notifications can be received"));
  EXPECT_EQ(log.find("No notifications"), log.rfind("No notifications"));
}

}  // namespace ombrix::tests
