#include "Tests/Acceptance/Crowd.h"

#include <stdexcept>

#include "Tests/Acceptance/Files.h"
#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

std::size_t processesNow() {
  std::size_t count = 0;
  for (const std::string& name : namesIn("/proc")) {
    if (name.find_first_not_of("0123456789") == std::string::npos) ++count;
  }
  return count;
}

Crowd::Crowd(std::size_t count, const std::string& name)
    : before(processesNow()),
      first(idler("/tmp/tools/" + name, {"crowd", std::to_string(count - 1)})) {
  const bool grown = eventually([this] { return contains(first.output(), "grown") || refused(); });
  if (!grown) throw std::runtime_error("the crowd takes too long to grow");
}

bool Crowd::refused() const { return contains(first.output(), "refused"); }

}  // namespace ombrix::tests
