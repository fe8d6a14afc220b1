#pragma once

#include <chrono>

// What the kernel's clocks know of sleep: CLOCK_BOOTTIME counts it, CLOCK_MONOTONIC does not
// (clock_gettime(2)), whoever sent the machine to sleep and whether or not anybody said so.

namespace ombrix::platform {

// How long the machine has slept since it was booted.
[[nodiscard]] std::chrono::nanoseconds timeSuspended();

// While one of these lives, absoluteTime() is that long ago: for a message that comes late.
class Belated {
 public:
  explicit Belated(std::chrono::nanoseconds ago);
  ~Belated();
  Belated(const Belated&) = delete;
  Belated& operator=(const Belated&) = delete;
};

// Hands on the messages of a sleep that the clocks show and nobody announced. The run loop calls it
// at the end of each wait, before the next poll.
void deliverUnannouncedSleep();

}  // namespace ombrix::platform
