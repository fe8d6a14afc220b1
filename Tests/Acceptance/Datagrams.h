#pragma once

#include <optional>
#include <string>
#include <vector>

// Notifications by hand: what the agent's sockets are called, and what others may send to them.

namespace ombrix::tests {

// The bytes that a notification consists of.
[[nodiscard]] std::string notificationNamed(const std::string& shortName);

// The sockets of a notification that lie in a folder, by their paths.
[[nodiscard]] std::vector<std::string> socketsOf(const std::string& notification,
                                                 const std::string& folder = "/run/ombrix");

// Sends one datagram without waiting. Returns 0, or the system's error number.
int sendDatagram(const std::string& path, const std::string& bytes);
// The same with an open descriptor in it.
int sendDatagramWithDescriptor(const std::string& path, const std::string& bytes, int descriptor);

// Binds a socket at `path` that nobody reads but the caller. Returns its descriptor, which the
// caller lets lie, or -1.
int bindSocket(const std::string& path);

// The oldest datagram that waits on a bound socket; nothing when none does.
[[nodiscard]] std::optional<std::string> takeDatagram(int descriptor);

}  // namespace ombrix::tests
