#include "Tests/Support/TestMain.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace ombrix::tests {

namespace {

struct PipeCloser {
  void operator()(FILE* pipe) const { ::pclose(pipe); }
};

// The full names of the tests that the program's own filter selects.
std::vector<std::string> selectedTests(const std::string& program) {
  const std::string command =
      "'" + program + "' --gtest_list_tests --gtest_filter='" + ::testing::GTEST_FLAG(filter) + "'";
  const std::unique_ptr<FILE, PipeCloser> pipe(::popen(command.c_str(), "r"));
  std::vector<std::string> names;
  std::string suite;
  std::array<char, 4096> line{};
  while (pipe && std::fgets(line.data(), line.size(), pipe.get()) != nullptr) {
    std::string text(line.data());
    text.erase(text.find_last_not_of(" \n") + 1);
    if (text.empty() || text.starts_with("Running main()")) continue;
    if (text[0] != ' ') {
      suite = text.substr(0, text.find_first_of(" #"));
    } else {
      text.erase(0, text.find_first_not_of(' '));
      names.push_back(suite + text.substr(0, text.find_first_of(" #")));
    }
  }
  return names;
}

int runInChild(const std::string& program, const std::string& test) {
  const pid_t child = ::fork();
  if (child == 0) {
    const std::string filter = "--gtest_filter=" + test;
    ::execl(program.c_str(), program.c_str(), filter.c_str(), nullptr);
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

int testMain(int argumentCount, char** arguments, int (*runSelected)()) {
  ::testing::InitGoogleTest(&argumentCount, arguments);
  if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  const std::string program = arguments[0];
  const std::vector<std::string> tests = selectedTests(program);
  if (tests.size() <= 1) return runSelected();

  int failures = 0;
  for (const std::string& test : tests) failures += runInChild(program, test) == 0 ? 0 : 1;
  std::printf("%zu tests, %d of them failed\n", tests.size(), failures);
  return failures == 0 ? 0 : 1;
}

}  // namespace ombrix::tests
