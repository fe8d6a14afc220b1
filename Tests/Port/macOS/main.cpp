#include <gtest/gtest.h>
#include <unistd.h>

#include "Platform/ProcessList.h"
#include "Tests/Port/POSIX/RealDriver.h"
#include "Tests/Port/PortDriver.h"
#include "Tests/Support/TestMain.h"

namespace ombrix::tests {

std::string thisProgram() {
  platform::ExecutablePath path{};
  if (platform::executablePath(::getpid(), path) != platform::PathResult::found) return {};
  return path.data();
}

PortTraits portTraits() { return {false, false, false}; }

}  // namespace ombrix::tests

int main(int argumentCount, char** arguments) {
  using namespace ombrix::tests;
  if (actedAsPoster(argumentCount, arguments)) return 0;
  return testMain(argumentCount, arguments, [] { return RUN_ALL_TESTS(); });
}
