#include "Platform/SystemLog.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <string>

namespace ombrix::platform {

namespace {

bool takesWithoutWaiting(int descriptor) {
  pollfd request{descriptor, POLLOUT, 0};
  return ::poll(&request, 1, 0) == 1 && (request.revents & POLLOUT) != 0;
}

}  // namespace

void systemLog(std::string_view message) {
  const std::string line = std::string(message) + "\n";
  std::string_view rest = line;
  // A pipe that polls as writable takes PIPE_BUF bytes without blocking (pipe(7)).
  while (!rest.empty() && takesWithoutWaiting(STDERR_FILENO)) {
    const ssize_t written =
        ::write(STDERR_FILENO, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
    if (written <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace ombrix::platform
