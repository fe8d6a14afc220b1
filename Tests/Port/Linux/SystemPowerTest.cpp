#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>

#include "Platform/SystemPower.h"
#include "Tests/Port/Linux/Resources.h"

namespace ombrix::tests {

namespace {

void ignore(void* /*reference*/, platform::PowerConnection /*connection*/, std::uint32_t /*type*/,
            void* /*argument*/) {}

void registerOnce() {
  platform::PowerNotifier notifier = 0;
  platform::closePowerConnection(platform::registerForSystemPower(nullptr, ignore, notifier));
  std::ignore = platform::deregisterForSystemPower(notifier);
  platform::releasePowerNotifier(notifier);
}

}  // namespace

TEST(SystemPowerOnLinux, RegistrationKeepsNoDescriptorWhenItHasEnded) {
  registerOnce();  // makes the event loop, which stays
  const std::ptrdiff_t before = openDescriptors();
  for (int registration = 0; registration < 5; ++registration) registerOnce();
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace ombrix::tests
