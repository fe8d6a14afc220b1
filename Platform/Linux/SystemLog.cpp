#include "Platform/SystemLog.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <climits>

namespace ombrix::platform {

namespace {

bool takesWithoutWaiting(int descriptor) {
  pollfd request{descriptor, POLLOUT, 0};
  return ::poll(&request, 1, 0) == 1 && (request.revents & POLLOUT) != 0;
}

}  // namespace

void systemLog(std::string_view message) {
  // Not on the heap: what is told may be that there is no memory. A pipe that polls as writable
  // takes PIPE_BUF bytes without blocking (pipe(7)).
  std::array<char, PIPE_BUF> piece{};
  bool lineEnded = false;
  while (!lineEnded && takesWithoutWaiting(STDERR_FILENO)) {
    std::size_t size = message.copy(piece.data(), piece.size());
    message.remove_prefix(size);
    lineEnded = size < piece.size();
    if (lineEnded) piece.at(size++) = '\n';
    if (::write(STDERR_FILENO, piece.data(), size) != static_cast<ssize_t>(size)) return;
  }
}

}  // namespace ombrix::platform
