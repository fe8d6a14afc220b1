#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

// What whole programs cost in processor time, theirs and the kernel's for them. Each argument is a
// title, "=" and a command, which is taken apart at its blanks.

namespace ombrix::benchmarks {

namespace {

class Command {
 public:
  explicit Command(const std::string& line) {
    std::istringstream stream(line);
    words.assign(std::istream_iterator<std::string>(stream), {});
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_init(&files);
    for (const int descriptor : {0, 1, 2}) {
      posix_spawn_file_actions_addopen(&files, descriptor, "/dev/null", O_RDWR, 0);
    }
  }
  ~Command() { posix_spawn_file_actions_destroy(&files); }
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Runs it; the processor time in seconds, or less than nothing when it failed.
  double run() {
    pid_t child = 0;
    char* noEnvironment[] = {nullptr};
    if (::posix_spawnp(&child, arguments[0], &files, nullptr, arguments.data(), noEnvironment) !=
        0) {
      return -1.0;
    }
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    return status == 0 ? seconds(usage.ru_utime) + seconds(usage.ru_stime) : -1.0;
  }

 private:
  static double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  }

  std::vector<std::string> words;
  std::vector<char*> arguments;
  posix_spawn_file_actions_t files{};
};

void wholeProcess(benchmark::State& state, const std::string& line) {
  Command command(line);
  for (auto _ : state) {
    const double time = command.run();
    if (time < 0) {
      state.SkipWithError("the command failed");
      break;
    }
    state.SetIterationTime(time);
  }
}

}  // namespace

}  // namespace ombrix::benchmarks

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const std::size_t titleEnd = argument.find('=');
    if (titleEnd == std::string::npos) return 2;
    benchmark::RegisterBenchmark(argument.substr(0, titleEnd).c_str(),
                                 ombrix::benchmarks::wholeProcess, argument.substr(titleEnd + 1))
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
  benchmark::RunSpecifiedBenchmarks();
}
