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

  // How many there are; fewer than were asked for where the machine lets no more live.
  [[nodiscard]] std::size_t size() const { return processesNow() - before; }

 private:
  std::size_t before;
  Program first;
};

}  // namespace ombrix::tests
