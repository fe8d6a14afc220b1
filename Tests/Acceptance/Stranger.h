#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>

#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Program.h"

// Other users of the machine, and what they are up to.

namespace ombrix::tests {

// Does the same deed over and over, as another user, until it is destroyed.
class Pest {
 public:
  Pest(uid_t user, const std::function<void()>& deed);
  ~Pest();
  Pest(const Pest&) = delete;
  Pest& operator=(const Pest&) = delete;

  [[nodiscard]] long rounds() const { return *done; }
  // True when it has done so many more rounds from now on.
  [[nodiscard]] bool waitForMoreRounds(long count) const;

 private:
  std::atomic<long>* done;  // shared with the child
  pid_t child;
};

}  // namespace ombrix::tests
