#pragma once

#include <chrono>
#include <cstdint>

// The machine's clocks. Dates say when something happened; ticks say how long it took, whatever
// happens to the date meanwhile.

namespace ombrix::platform {

using Date = std::chrono::system_clock::time_point;

// Now, by the wall clock, which an administrator may set at will.
[[nodiscard]] Date currentDate();

// Now, in seconds since 2001-01-01 00:00:00 UTC, by the same wall clock.
[[nodiscard]] double absoluteTime();

// The approximate monotonic clock, in the ticks of tickTimeBase(). Cheap, a few milliseconds
// coarse, never set back; it stands still while the machine sleeps.
[[nodiscard]] std::uint64_t approximateTicks();

// A tick lasts numerator / denominator nanoseconds; the denominator is never 0.
struct TimeBase {
  std::uint32_t numerator = 1;
  std::uint32_t denominator = 1;
};
[[nodiscard]] TimeBase tickTimeBase();

}  // namespace ombrix::platform
