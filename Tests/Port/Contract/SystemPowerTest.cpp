#include <gtest/gtest.h>

#include "Platform/SystemPower.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

namespace {

void ignoreMessage(void* /*reference*/, std::uint32_t /*service*/, std::uint32_t /*messageType*/,
                   void* /*argument*/) {}

}  // namespace

TEST(SystemPower, EndsARegistration) {
  const PortDriver driver;
  platform::PowerNotifier notifier = 0;
  const platform::PowerConnection connection =
      platform::registerForSystemPower(nullptr, ignoreMessage, notifier);

  EXPECT_EQ(platform::deregisterForSystemPower(notifier), connection != 0);
  platform::closePowerConnection(connection);
  platform::releasePowerNotifier(notifier);
}

TEST(SystemPower, EndsNoRegistrationThatNeverWas) {
  const PortDriver driver;
  platform::PowerNotifier notifier = 0;
  EXPECT_FALSE(platform::deregisterForSystemPower(notifier));
  platform::closePowerConnection(0);
  platform::releasePowerNotifier(notifier);
}

TEST(SystemPower, CanRegisterAgain) {
  const PortDriver driver;
  platform::PowerNotifier notifier = 0;
  const bool first = platform::registerForSystemPower(nullptr, ignoreMessage, notifier) != 0;
  EXPECT_EQ(platform::deregisterForSystemPower(notifier), first);

  platform::PowerNotifier again = 0;
  const bool second = platform::registerForSystemPower(nullptr, ignoreMessage, again) != 0;
  EXPECT_EQ(second, first);
  EXPECT_EQ(platform::deregisterForSystemPower(again), second);
}

TEST(SystemPower, TakesAnAnswerThatNobodyAskedFor) {
  const PortDriver driver;
  platform::PowerNotifier notifier = 0;
  const platform::PowerConnection connection =
      platform::registerForSystemPower(nullptr, ignoreMessage, notifier);

  platform::allowPowerChange(connection, nullptr);

  EXPECT_EQ(platform::deregisterForSystemPower(notifier), connection != 0);
}

}  // namespace ombrix::tests
