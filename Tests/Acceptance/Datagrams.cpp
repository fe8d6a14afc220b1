#include "Tests/Acceptance/Datagrams.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "Platform/FileDescriptor.h"
#include "Tests/Acceptance/Files.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

FileDescriptor datagramSocket() {
  return FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

int send(const std::string& path, const std::string& bytes, void* control, std::size_t size) {
  const FileDescriptor sender = datagramSocket();
  sockaddr_un address = addressOf(path);
  std::string copy = bytes;
  iovec buffer{copy.data(), copy.size()};
  msghdr message{};
  message.msg_name = &address;
  message.msg_namelen = sizeof(address);
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = size;
  return ::sendmsg(sender.get(), &message, MSG_NOSIGNAL) < 0 ? errno : 0;
}

}  // namespace

std::string notificationNamed(const std::string& shortName) {
  return "com.velkworks.Ombrix2." + shortName;
}

std::vector<std::string> socketsOf(const std::string& notification, const std::string& folder) {
  std::vector<std::string> paths;
  for (const std::string& name : namesIn(folder)) {
    if (!name.starts_with(notificationNamed(notification) + ".")) continue;
    paths.push_back(folder);
    paths.back().append("/").append(name);
  }
  return paths;
}

int sendDatagram(const std::string& path, const std::string& bytes) {
  return send(path, bytes, nullptr, 0);
}

int sendDatagramWithDescriptor(const std::string& path, const std::string& bytes, int descriptor) {
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  auto* const header = reinterpret_cast<cmsghdr*>(control.data());
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof(int));
  return send(path, bytes, control.data(), control.size());
}

int bindSocket(const std::string& path) {
  FileDescriptor bound = datagramSocket();
  const sockaddr_un address = addressOf(path);
  if (::bind(bound.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    return -1;
  }
  return bound.release();
}

std::optional<std::string> takeDatagram(int descriptor) {
  std::array<char, 256> bytes{};
  const ssize_t length = ::recv(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (length < 0) return std::nullopt;
  return std::string(bytes.data(), static_cast<std::size_t>(length));
}

}  // namespace ombrix::tests
