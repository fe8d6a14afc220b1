#include "Tests/Port/POSIX/ChildProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <utility>

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) return {};
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

int exitStatusOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

[[noreturn]] void become(const std::string& program, std::vector<std::string>& arguments,
                         const FileDescriptor& input, std::optional<uid_t> user) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  ::dup2(input.get(), STDIN_FILENO);
  if (!user || becomeUser(*user)) ::execv(program.c_str(), pointers.data());
  ::_exit(127);
}

// A descriptor that is closed on exec tells its reader when that has come about.
void waitForExec(Pipe& execution) {
  execution.writeEnd.close();
  char nothing = 0;
  while (::read(execution.readEnd.get(), &nothing, 1) > 0) {
  }
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, std::vector<std::string> arguments,
                           std::optional<uid_t> user) {
  Pipe inputPipe = makePipe();
  Pipe execution = makePipe();
  child = ::fork();
  if (child == 0) become(program, arguments, inputPipe.readEnd, user);
  waitForExec(execution);
  input = std::move(inputPipe.writeEnd);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : child(std::exchange(other.child, -1)), input(std::move(other.input)) {}

ChildProcess::~ChildProcess() {
  if (child <= 0) return;
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

int ChildProcess::wait() { return exitStatusOf(std::exchange(child, -1)); }

int exitStatusInChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  return exitStatusOf(child);
}

bool becomeUser(uid_t user) {
  return ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
}

}  // namespace ombrix::tests
