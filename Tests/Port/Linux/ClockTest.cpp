#include <gtest/gtest.h>

#include <chrono>

#include "Platform/Clock.h"
#include "Platform/Linux/SuspendClock.h"

namespace ombrix::tests {

TEST(ClockOnLinux, IsBelatedOnlyWhileABelatedMessageIsDelivered) {
  const double before = platform::absoluteTime();
  {
    const platform::Belated belated(std::chrono::hours(1));
    EXPECT_LT(platform::absoluteTime(), before - 3500);
  }
  EXPECT_GE(platform::absoluteTime(), before);
}

}  // namespace ombrix::tests
