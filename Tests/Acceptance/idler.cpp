#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

// A program to be metered. It waits until it is killed, alone or with a crowd of its own:
//   idler                  waits
//   idler COUNT            waits with COUNT copies of itself
//   idler crowd COUNT      waits with COUNT processes that share its memory and so cost little
//   idler churn PER_SECOND starts so many of those a second, each of which lives for one
//   idler name NAME        waits under this command name
//   idler exec PROGRAM     becomes PROGRAM as soon as its standard input ends

namespace {

[[noreturn]] void idle() {
  for (;;) ::pause();
}

void waitForEndOfInput() {
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) continue;
}

int idleForEver(void* /*unused*/) { idle(); }

int liveForASecond(void* /*unused*/) {
  const timespec second{1, 0};
  ::nanosleep(&second, nullptr);
  return 0;
}

// The stacks of processes that share this one's memory, each large enough for one system call.
class Stacks {
 public:
  explicit Stacks(std::size_t count) : memory(count * size) {}
  char* endOf(std::size_t index) { return memory.data() + (index + 1) * size; }

 private:
  static constexpr std::size_t size = 2048;
  std::vector<char> memory;
};

// A process of its own for the kernel: its own id and its own entry in /proc.
bool startSharing(int (*life)(void*), char* stackEnd) {
  constexpr int shared = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND;
  return ::clone(life, stackEnd, shared | SIGCHLD, nullptr) > 0;
}

[[noreturn]] void idleInACrowd(std::size_t count) {
  Stacks stacks(count);
  std::size_t started = 0;
  while (started < count && startSharing(idleForEver, stacks.endOf(started))) ++started;
  std::puts(started == count ? "grown" : "refused");
  std::fflush(stdout);
  idle();
}

[[noreturn]] void churn(int perSecond) {
  constexpr std::size_t secondsUntilAStackIsFree = 4;
  const std::size_t count = static_cast<std::size_t>(perSecond) * secondsUntilAStackIsFree;
  Stacks stacks(count);
  std::signal(SIGCHLD, SIG_IGN);  // nobody need bury them
  auto due = std::chrono::steady_clock::now();
  for (std::size_t i = 0;; ++i) {
    std::this_thread::sleep_until(due);
    due += std::chrono::nanoseconds(1'000'000'000 / perSecond);
    startSharing(liveForASecond, stacks.endOf(i % count));
  }
}

[[noreturn]] void idleWithCopies(int copies) {
  for (int copy = 0; copy < copies; ++copy) {
    if (::fork() == 0) idle();
  }
  idle();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::string word = argumentCount > 1 ? arguments[1] : "0";
  if (argumentCount < 3) idleWithCopies(std::atoi(word.c_str()));
  if (word == "crowd") idleInACrowd(std::strtoul(arguments[2], nullptr, 10));
  if (word == "churn") churn(std::atoi(arguments[2]));
  if (word == "name") {
    ::prctl(PR_SET_NAME, arguments[2]);
    idle();
  }
  waitForEndOfInput();
  ::execl(arguments[2], arguments[2], nullptr);
  return 1;
}
