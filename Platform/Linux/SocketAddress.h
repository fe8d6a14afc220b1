#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <string>

namespace ombrix::platform {

// The address of a socket by way of a descriptor, /proc/self/fd/N or /proc/self/fd/N/NAME: it fits
// in the 108 bytes of an address however deep the directory lies (unix(7)), and it names the very
// directory or file that was examined before, whatever has been put at its path since.
class SocketAddress {
 public:
  explicit SocketAddress(const std::string& suffixOfProcSelfFd) {
    const std::string path = "/proc/self/fd/" + suffixOfProcSelfFd;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  }

  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
  [[nodiscard]] static socklen_t size() { return sizeof(sockaddr_un); }

 private:
  sockaddr_un address{};
};

}  // namespace ombrix::platform
