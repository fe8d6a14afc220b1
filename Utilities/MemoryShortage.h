#pragma once

#include <cstddef>
#include <memory>

// What becomes of the agent when the machine gives it no more memory: it brings to an end what it
// has begun, writes what it knows, says so and ends.

namespace ombrix {

// From now on a failed allocation that nobody bears ends the process with a message in the system
// log and status 1, and not as a program does that has gone wrong.
void endInOrderWithoutMemory();

// Memory that is put by. The allocation that first fails is given a part of it, so that it succeeds
// after all; the next one that fails throws as usual. Untouched it costs addresses and no memory.
// One at most in a process.
class MemoryReserve {
 public:
  MemoryReserve();
  ~MemoryReserve();
  MemoryReserve(const MemoryReserve&) = delete;
  MemoryReserve& operator=(const MemoryReserve&) = delete;

  // False once an allocation has been given its part, until restore() has succeeded.
  [[nodiscard]] bool isReady() const;
  // Puts as much of that part by again as the machine gives; false when that is next to nothing.
  [[nodiscard]] bool restore();
  // Gives up all of it, for the last things to be done.
  void release();

 private:
  static void giveFirstPart();

  std::unique_ptr<std::byte[]> firstPart;
  std::unique_ptr<std::byte[]> lastPart;
};

}  // namespace ombrix
