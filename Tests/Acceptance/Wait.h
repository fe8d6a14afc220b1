#pragma once

#include <chrono>
#include <thread>

namespace ombrix::tests {

// Far longer than anything takes on a loaded machine, and far shorter than the minute between two
// of the agent's own polls: what happens within it was brought about and did not just come round.
inline constexpr std::chrono::seconds deadline{25};

// Looks again and again until `condition` holds; false when it does not within the deadline.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace ombrix::tests
