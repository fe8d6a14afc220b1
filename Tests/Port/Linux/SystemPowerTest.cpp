#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <tuple>

#include "Platform/FileDescriptor.h"
#include "Platform/RunLoop.h"
#include "Platform/SystemPower.h"
#include "Tests/Port/Linux/Resources.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

void ignore(void* /*reference*/, platform::PowerConnection /*connection*/, std::uint32_t /*type*/,
            void* /*argument*/) {}

void registerOnce() {
  platform::PowerNotifier notifier = 0;
  platform::closePowerConnection(platform::registerForSystemPower(nullptr, ignore, notifier));
  std::ignore = platform::deregisterForSystemPower(notifier);
  platform::releasePowerNotifier(notifier);
}

// A system bus that hangs up on everybody at once, and counts them.
class HangingUpBus {
 public:
  HangingUpBus() : listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    constexpr std::string_view path = "/run/bus";
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    EXPECT_EQ(::listen(listening.get(), 16), 0);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/bus", 1);
    answering = std::thread([this] { answer(); });
  }
  ~HangingUpBus() {
    ::shutdown(listening.get(), SHUT_RDWR);
    answering.join();
  }
  HangingUpBus(const HangingUpBus&) = delete;
  HangingUpBus& operator=(const HangingUpBus&) = delete;

  // How often it has been called, but for the calls of this function: each waits until it has been
  // hung up on itself, which comes after everybody who called before.
  int calls() {
    const FileDescriptor caller(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(caller.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    char nothing = 0;
    EXPECT_EQ(::read(caller.get(), &nothing, 1), 0);
    return answered - ++ownCalls;
  }

 private:
  void answer() {
    for (;;) {
      const FileDescriptor caller(::accept(listening.get(), nullptr, nullptr));
      if (!caller.valid()) return;
      ++answered;
    }
  }

  sockaddr_un address{};
  FileDescriptor listening;
  std::atomic<int> answered{0};
  int ownCalls = 0;
  std::thread answering;
};

}  // namespace

TEST(SystemPowerOnLinux, RegistrationKeepsNoDescriptorWhenItHasEnded) {
  registerOnce();  // makes the event loop, which stays
  const std::ptrdiff_t before = openDescriptors();
  for (int registration = 0; registration < 5; ++registration) registerOnce();
  EXPECT_EQ(openDescriptors(), before);
}

TEST(SystemPowerOnLinux, BrokenLineIsMadeAgainAfterASecondForAsLongAsItIsWanted) {
  constexpr std::chrono::milliseconds longerThanThePause{1500};
  HangingUpBus bus;
  platform::PowerNotifier notifier = 0;
  std::ignore = platform::registerForSystemPower(nullptr, ignore, notifier);
  EXPECT_TRUE(platform::runLoopRunOnce(longerThanThePause));
  const int calls = bus.calls();
  EXPECT_GE(calls, 2);

  std::ignore = platform::deregisterForSystemPower(notifier);
  EXPECT_TRUE(platform::runLoopRunOnce(longerThanThePause));
  EXPECT_EQ(bus.calls(), calls);
}

}  // namespace ombrix::tests
