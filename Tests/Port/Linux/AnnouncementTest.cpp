#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "Platform/FileDescriptor.h"
#include "Platform/NotificationCenter.h"
#include "Tests/Port/POSIX/ChildProcess.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;
using platform::postNotification;

}  // namespace

// What is announced in there is the word of the user whom root has appointed.
TEST(Announcement, IsNotMadeByRootInTheNameOfTheMachinesAgent) {
  constexpr const char* folder = "/run/ombrix/agent";
  std::filesystem::create_directories(folder);
  if (::chown(folder, strangerUser, 0) != 0) GTEST_SKIP() << "needs several users";
  const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(::inotify_add_watch(watch.get(), folder, IN_CREATE), 0);
  const auto announced = [&watch] {
    std::array<char, 1024> events{};
    return ::read(watch.get(), events.data(), events.size()) > 0;
  };

  exitStatusInChild([] {
    if (becomeUser(strangerUser)) postNotification("Call");
    return 0;
  });
  EXPECT_TRUE(announced());
  postNotification("Call");
  EXPECT_FALSE(announced());
}

}  // namespace ombrix::tests
