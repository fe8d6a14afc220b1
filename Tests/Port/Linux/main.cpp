#include <gtest/gtest.h>

#include <cstdio>

#include "Tests/Port/Linux/PrivateMachine.h"
#include "Tests/Port/POSIX/RealDriver.h"
#include "Tests/Port/PortDriver.h"
#include "Tests/Support/TestMain.h"

namespace ombrix::tests {

namespace {

int runOnPrivateMachine() {
  if (enterPrivateMachine()) return RUN_ALL_TESTS();
  std::puts("[  SKIPPED ] this machine gives nobody namespaces of his own");
  return 0;
}

}  // namespace

// Not by its path, which the private /tmp may hide.
std::string thisProgram() { return "/proc/self/exe"; }

PortTraits portTraits() { return {true, true, true}; }

}  // namespace ombrix::tests

int main(int argumentCount, char** arguments) {
  using namespace ombrix::tests;
  if (actedAsPoster(argumentCount, arguments)) return 0;
  return testMain(argumentCount, arguments, runOnPrivateMachine);
}
