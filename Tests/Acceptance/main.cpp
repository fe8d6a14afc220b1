#include <gtest/gtest.h>

#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Support/TestMain.h"

int main(int argumentCount, char** arguments) {
  using ombrix::tests::runOnOwnMachine;
  return ombrix::tests::testMain(argumentCount, arguments,
                                 [] { return runOnOwnMachine([] { return RUN_ALL_TESTS(); }); });
}
