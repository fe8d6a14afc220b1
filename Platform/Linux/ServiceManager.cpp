#include "Platform/ServiceManager.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "Platform/FileDescriptor.h"

// The protocol of sd_notify(3). The library's own call would wait for a service manager that does
// not read its queue.

namespace ombrix::platform {

namespace {

// `path` begins with a slash, or with an at sign for the abstract name space (unix(7)).
bool send(std::string_view path, std::string_view message) {
  sockaddr_un address{};
  if (path.size() < 2 || path.size() > sizeof(address.sun_path)) return false;
  if (path.front() != '/' && path.front() != '@') return false;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  if (path.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());

  const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return socket.valid() && ::sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL,
                                    reinterpret_cast<const sockaddr*>(&address), size) >= 0;
}

}  // namespace

void reportReady() {
  static bool told = false;
  const char* const path = std::getenv("NOTIFY_SOCKET");
  if (!told && path != nullptr) told = send(path, "READY=1");
}

}  // namespace ombrix::platform
