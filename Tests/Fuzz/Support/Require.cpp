#include "Tests/Fuzz/Support/Require.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace ombrix::tests {

namespace {

// Taken before libFuzzer closes standard error, into which the agent logs.
const int messages = ::dup(STDERR_FILENO);

}  // namespace

void require(bool condition, const char* what) {
  if (condition) return;
  ::dprintf(messages, "\nNot true: %s\n", what);
  std::abort();
}

}  // namespace ombrix::tests
