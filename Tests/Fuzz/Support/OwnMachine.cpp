#include "Tests/Fuzz/Support/OwnMachine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Tests/Port/Linux/PrivateMachine.h"

namespace ombrix::tests {

void enterOwnMachine() {
  constexpr int skipped = 77;  // SKIP_RETURN_CODE
  ::unsetenv("XDG_RUNTIME_DIR");
  if (enterPrivateNamespaces() && mountMemory("/run", "mode=755")) return;
  std::fputs("This machine gives nobody namespaces of his own.\n", stderr);
  std::_Exit(skipped);
}

}  // namespace ombrix::tests
