#include "Tests/Fuzz/Support/BusDouble.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "Tests/Fuzz/Support/Require.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

FileDescriptor listenAt(const std::string& path) {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const bool listens =
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
      ::listen(socket.get(), SOMAXCONN) == 0;
  require(listens, "there is a bus");
  return socket;
}

// Descriptors of nothing in particular: more of the connection itself.
void attachDescriptors(msghdr& message, int descriptor, unsigned count) {
  if (count == 0) return;
  message.msg_controllen = CMSG_SPACE(sizeof(int) * count);
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(sizeof(int) * count);
  const std::array<int, 4> luggage = {descriptor, descriptor, descriptor, descriptor};
  std::memcpy(CMSG_DATA(part), luggage.data(), sizeof(int) * count);
}

void say(const FileDescriptor& connection, BusScript::Piece piece, int descriptor) {
  if (piece.bytes.empty()) return;
  iovec buffer{piece.bytes.data(), piece.bytes.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * 4)> control{};
  msghdr message{nullptr, 0, &buffer, 1, control.data(), 0, 0};
  attachDescriptors(message, descriptor, piece.descriptors % 5);
  const ssize_t sent = ::sendmsg(connection.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  // The listener may have gone because of what it has heard so far.
  require(sent < 0 || sent == static_cast<ssize_t>(piece.bytes.size()), "a script is not long");
}

}  // namespace

BusDouble::BusDouble() : listening(listenAt(folder.path("bus"))), thread([this] { work(); }) {
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + folder.path("bus")).c_str(), 1);
}

BusDouble::~BusDouble() {
  {
    const std::lock_guard lock(mutex);
    ending = true;
  }
  changed.notify_all();
  thread.join();
}

void BusDouble::serveFirst(const BusScript& script) {
  {
    const std::lock_guard lock(mutex);
    first = &script;
  }
  changed.notify_all();
}

void BusDouble::finishFirst() {
  std::unique_lock lock(mutex);
  changed.wait(lock, [this] { return first == nullptr; });
}

void BusDouble::work() {
  constexpr int patience = 5000;  // milliseconds
  std::unique_lock lock(mutex);
  for (;;) {
    changed.wait(lock, [this] { return first != nullptr || ending; });
    if (ending) return;
    pollfd request{listening.get(), POLLIN, 0};
    require(::poll(&request, 1, patience) == 1 && serveNext(*first), "the agent seeks the bus");
    first = nullptr;
    changed.notify_all();
  }
}

bool BusDouble::serveNext(const BusScript& script) {
  FileDescriptor connection(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection.valid()) return false;
  serve(std::move(connection), script);
  return true;
}

void BusDouble::serve(FileDescriptor connection, const BusScript& script) {
  for (const BusScript::Piece& piece : script.pieces) say(connection, piece, listening.get());
  if (script.hangsUp) ::shutdown(connection.get(), SHUT_WR);
  connections.push_back(std::move(connection));
}

}  // namespace ombrix::tests
