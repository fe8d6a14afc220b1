#include "Platform/ProcessEnvironment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

namespace ombrix::platform {

namespace {

// open(2) gives the lowest free number, so each call fills the first gap, until there is none.
void fillStandardDescriptors() {
  int opened = 0;
  do {
    opened = ::open("/dev/null", O_RDWR);
  } while (opened >= 0 && opened <= STDERR_FILENO);
  if (opened >= 0) ::close(opened);
}

// A mask that denied this user what it makes itself would cost every directory and line of the log.
void letOnlyThisUserWrite() {
  const mode_t inherited = ::umask(S_IWGRP | S_IWOTH) & (S_IRWXG | S_IRWXO);
  ::umask(inherited | S_IWGRP | S_IWOTH);
}

// A script may have begun other programs before it became the agent, and an agent that is the first
// process of a container inherits everybody's. Nobody waits for them: each would remain listed, and
// be metered as if it ran on.
void letChildrenVanish() {
  std::ignore = std::signal(SIGCHLD, SIG_IGN);
  while (::waitpid(-1, nullptr, WNOHANG) > 0) continue;  // those that had ended before
}

}  // namespace

void secureProcessEnvironment() {
  fillStandardDescriptors();
  letOnlyThisUserWrite();
  // What these would end the process for, the failing call reports as well.
  std::ignore = std::signal(SIGPIPE, SIG_IGN);
  std::ignore = std::signal(SIGXFSZ, SIG_IGN);
  // A message to a terminal that takes none from the background (TOSTOP, termios(3)) would stop it.
  std::ignore = std::signal(SIGTTOU, SIG_IGN);
  letChildrenVanish();
}

}  // namespace ombrix::platform
