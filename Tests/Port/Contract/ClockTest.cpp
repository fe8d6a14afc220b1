#include <gtest/gtest.h>

#include "Platform/Clock.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds epochOfAbsoluteTime{978'307'200};  // 2001-01-01 UTC since 1970

double inAbsoluteSeconds(platform::Date date) {
  return std::chrono::duration<double>(date.time_since_epoch() - epochOfAbsoluteTime).count();
}

std::chrono::nanoseconds lengthOf(std::uint64_t ticks) {
  const platform::TimeBase base = platform::tickTimeBase();
  return std::chrono::nanoseconds{ticks * base.numerator / base.denominator};
}

}  // namespace

TEST(Clock, AbsoluteTimeIsTheDateInSecondsSince2001) {
  constexpr double rounding = 0.001;
  const PortDriver driver;

  const double before = inAbsoluteSeconds(platform::currentDate());
  const double absolute = platform::absoluteTime();
  const double after = inAbsoluteSeconds(platform::currentDate());

  EXPECT_GE(absolute, before - rounding);
  EXPECT_LE(absolute, after + rounding);
}

TEST(Clock, TheDateMovesOnWithTime) {
  PortDriver driver;

  const platform::Date before = platform::currentDate();
  driver.spend(100ms);

  // Less, since the clock may just then be adjusted.
  EXPECT_GE(platform::currentDate() - before, 90ms);
}

TEST(Clock, TicksMoveOnWithTime) {
  constexpr auto coarseness = 20ms;
  PortDriver driver;

  const std::uint64_t before = platform::approximateTicks();
  driver.spend(100ms);
  const std::uint64_t after = platform::approximateTicks();

  EXPECT_GE(lengthOf(after - before), 100ms - coarseness);
  EXPECT_LE(lengthOf(after - before), 60s);
}

TEST(Clock, TicksNeverGoBack) {
  const PortDriver driver;
  std::uint64_t last = platform::approximateTicks();
  for (int look = 0; look < 10'000; ++look) {
    const std::uint64_t now = platform::approximateTicks();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(Clock, ATickLastsSomeTime) {
  const PortDriver driver;
  EXPECT_GT(platform::tickTimeBase().numerator, 0U);
  EXPECT_GT(platform::tickTimeBase().denominator, 0U);
}

}  // namespace ombrix::tests
