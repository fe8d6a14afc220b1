#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// How sockets of the notification service are named. Each observer has one that only root and its
// own user may write to (the kernel sees to it, unix(7)) and, if it hears everyone, a second one
// for strangers, so that no stranger can ever fill the first.

namespace ombrix::platform {

struct SocketName {
  std::string_view notification;
  bool forStrangers = false;
};

// The file name of a socket of this process; `salt` tells apart those of one notification.
[[nodiscard]] std::string socketFileName(const SocketName& name, std::uint32_t salt);

// The moment until which answers to what this process has posted may still come; long past when
// nothing that it posted has reached anybody.
[[nodiscard]] std::chrono::steady_clock::time_point answersExpectedUntil();

// Takes a file name apart; nothing when it is no socket's.
[[nodiscard]] std::optional<SocketName> parseSocketFileName(std::string_view fileName);

}  // namespace ombrix::platform
