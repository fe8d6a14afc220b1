#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace ombrix::benchmarks {

// Processes that do nothing, children of this one; ended with the object.
class Population {
 public:
  explicit Population(std::size_t count) { grow(count); }
  ~Population() { shrink(processes.size()); }
  Population(const Population&) = delete;
  Population& operator=(const Population&) = delete;

  // Begins that many, which are all asleep when it returns.
  void grow(std::size_t count);
  // Ends the oldest.
  void shrink(std::size_t count);

  [[nodiscard]] const std::vector<pid_t>& processIds() const { return processes; }

 private:
  std::vector<pid_t> processes;
};

}  // namespace ombrix::benchmarks
