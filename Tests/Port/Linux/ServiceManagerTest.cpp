#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>

#include "Platform/FileDescriptor.h"
#include "Platform/ServiceManager.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;
using platform::reportReady;

// A call that waits for its reader ends the test's process after this time.
constexpr unsigned secondsUntilStuck = 20;

// The socket on which a service manager hears its services.
class Manager {
 public:
  explicit Manager(const std::string& name)
      : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    if (name.front() == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    ::alarm(secondsUntilStuck);
  }

  [[nodiscard]] std::optional<std::string> read() const {
    std::array<char, 64> bytes{};
    const ssize_t length = ::recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (length < 0) return std::nullopt;
    return std::string(bytes.data(), static_cast<std::size_t>(length));
  }

  // Sends itself messages until no more fit.
  void fillQueue() const {
    sockaddr_un address{};
    socklen_t size = sizeof(address);
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    const FileDescriptor sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    while (::sendto(sender.get(), "x", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address),
                    size) == 1) {
    }
  }

 private:
  FileDescriptor socket;
};

}  // namespace

TEST(ServiceManager, IsToldWhereverItListens) {
  const std::string longest = "/run/" + std::string(sizeof(sockaddr_un::sun_path) - 5, 'm');
  for (const std::string& name : {std::string("/run/manager"), std::string("@manager"), longest}) {
    EXPECT_EXIT(
        {
          const Manager manager(name);
          reportReady();
          ::_exit(manager.read() == "READY=1" ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "")
        << name;
  }
}

TEST(ServiceManager, IsToldOnce) {
  const Manager manager("/run/manager");
  reportReady();
  reportReady();
  EXPECT_EQ(manager.read(), "READY=1");
  EXPECT_EQ(manager.read(), std::nullopt);
}

TEST(ServiceManager, IsNotWaitedForAndToldWhenItReadsAgain) {
  const Manager manager("/run/manager");
  manager.fillQueue();
  reportReady();
  while (manager.read() == "x") {
  }
  reportReady();
  EXPECT_EQ(manager.read(), "READY=1");
}

TEST(ServiceManager, OfAnImpossibleNameIsNobody) {
  const std::string tooLong = "/run/" + std::string(sizeof(sockaddr_un::sun_path) - 4, 'm');
  for (const std::string& name :
       {std::string(), std::string("/"), std::string("@"), std::string("run/manager"), tooLong}) {
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    reportReady();
  }
  const Manager manager("/run/manager");
  reportReady();
  EXPECT_EQ(manager.read(), "READY=1");
}

}  // namespace ombrix::tests
