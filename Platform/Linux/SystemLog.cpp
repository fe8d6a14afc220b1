#include "Platform/SystemLog.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "Platform/FileDescriptor.h"

namespace ombrix::platform {

namespace {

bool takesWithoutWaiting(int descriptor) {
  pollfd request{descriptor, POLLOUT, 0};
  return ::poll(&request, 1, 0) == 1 && (request.revents & POLLOUT) != 0;
}

// A terminal polls as writable when it has room for less than a message, and the rest would wait
// for whoever has stopped reading. The inherited description of it is not to be told otherwise: it
// is shared with a shell. One of its own is; there is none for the terminal of another user.
FileDescriptor terminalThatNeverWaits() {
  if (::isatty(STDERR_FILENO) == 0) return {};
  return FileDescriptor(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

void systemLog(std::string_view message) {
  // Not on the heap: what is told may be that there is no memory. A pipe that polls as writable
  // takes PIPE_BUF bytes without blocking (pipe(7)).
  std::array<char, PIPE_BUF> piece{};
  const FileDescriptor terminal = terminalThatNeverWaits();
  const int log = terminal.valid() ? terminal.get() : STDERR_FILENO;
  bool lineEnded = false;
  while (!lineEnded && takesWithoutWaiting(log)) {
    std::size_t size = message.copy(piece.data(), piece.size());
    message.remove_prefix(size);
    lineEnded = size < piece.size();
    if (lineEnded) piece.at(size++) = '\n';
    if (::write(log, piece.data(), size) != static_cast<ssize_t>(size)) return;
  }
}

}  // namespace ombrix::platform
