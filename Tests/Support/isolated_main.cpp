#include <gtest/gtest.h>

#include "Tests/Support/TestMain.h"

int main(int argumentCount, char** arguments) {
  return ombrix::tests::testMain(argumentCount, arguments, [] { return RUN_ALL_TESTS(); });
}
