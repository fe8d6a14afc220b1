#pragma once

#include <cstddef>
#include <string>

#include "Tests/Acceptance/Program.h"

// Many processes at once, all of one program.

namespace ombrix::tests {

[[nodiscard]] std::size_t processesNow();

// Its processes live until the test's machine ends.
class Crowd {
 public:
  explicit Crowd(std::size_t count, const std::string& name = "crowd");

  [[nodiscard]] std::size_t size() const { return processesNow() - before; }
  // True when the kernel lets no more of them live than there are now.
  [[nodiscard]] bool refused() const;

 private:
  std::size_t before;
  Program first;
};

}  // namespace ombrix::tests
