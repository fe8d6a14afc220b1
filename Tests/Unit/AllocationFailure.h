#pragma once

#include <cstddef>
#include <functional>

namespace ombrix::tests {

// Makes one allocation of this program fail, as on a machine without memory. While the object
// lives, `meant` is asked before each allocation; the first one for which it answers true fails,
// and none after it. A `meant` that never does so makes a look at the program in mid-course. Its
// own allocations are neither asked about nor fail.
class AllocationFailure {
 public:
  using Meant = std::function<bool(std::size_t bytes)>;

  explicit AllocationFailure(Meant meant);
  ~AllocationFailure();
  AllocationFailure(const AllocationFailure&) = delete;
  AllocationFailure& operator=(const AllocationFailure&) = delete;

  [[nodiscard]] bool happened() const { return failed; }

 private:
  Meant meant;
  bool failed = false;
};

// Allocations that are recognised by their size.
[[nodiscard]] AllocationFailure::Meant ofExactly(std::size_t bytes);
[[nodiscard]] AllocationFailure::Meant ofAtLeast(std::size_t bytes);

// The allocation that is the `number`th from now, counted from 1.
[[nodiscard]] AllocationFailure::Meant theNth(std::size_t number);

}  // namespace ombrix::tests
