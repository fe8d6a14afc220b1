#include "Benchmarks/Population.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace ombrix::benchmarks {

void Population::grow(std::size_t count) {
  // Each holds the writing end until it has become another program, so that the reading end tells
  // when the last one has.
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return;
  for (std::size_t i = 0; i < count; ++i) {
    const pid_t child = ::vfork();
    if (child == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::execl("/bin/sleep", "sleep", "infinity", nullptr);
      ::_exit(127);
    }
    if (child > 0) processes.push_back(child);
  }
  ::close(ends[1]);
  char byte = 0;
  while (::read(ends[0], &byte, 1) > 0) continue;
  ::close(ends[0]);
}

void Population::shrink(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    ::kill(processes.at(i), SIGKILL);
    ::waitpid(processes.at(i), nullptr, 0);
  }
  processes.erase(processes.begin(), processes.begin() + static_cast<std::ptrdiff_t>(count));
}

}  // namespace ombrix::benchmarks
