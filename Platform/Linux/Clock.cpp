#include "Platform/Clock.h"

#include <ctime>

#include "Platform/Linux/SuspendClock.h"

namespace ombrix::platform {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

std::int64_t nanoseconds(clockid_t clock) {
  timespec time{};
  // Fails only for a clock that the kernel does not have (clock_gettime(2)); these it has.
  ::clock_gettime(clock, &time);
  return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
}

// How long ago the power message that is being delivered should have come.
std::chrono::nanoseconds belated{0};

}  // namespace

Belated::Belated(std::chrono::nanoseconds ago) { belated = ago; }

Belated::~Belated() { belated = std::chrono::nanoseconds{0}; }

std::chrono::nanoseconds timeSuspended() {
  return std::chrono::nanoseconds(nanoseconds(CLOCK_BOOTTIME) - nanoseconds(CLOCK_MONOTONIC));
}

Date currentDate() { return std::chrono::system_clock::now(); }

double absoluteTime() {
  constexpr double epoch = 978307200.0;  // 2001-01-01 UTC in seconds since 1970
  const std::chrono::duration<double> since1970 = currentDate().time_since_epoch() - belated;
  return since1970.count() - epoch;
}

std::uint64_t approximateTicks() {
  return static_cast<std::uint64_t>(nanoseconds(CLOCK_MONOTONIC_COARSE));
}

TimeBase tickTimeBase() { return {1, 1}; }

}  // namespace ombrix::platform
