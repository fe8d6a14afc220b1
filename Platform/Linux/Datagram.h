#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string_view>

// What a datagram of the notification service says and from whom it comes. Pure: nothing is
// received here.

namespace ombrix::platform {

struct Datagram {
  std::string_view text;
  bool whole = false;           // false when the end of the text was cut off
  std::optional<uid_t> sender;  // in the kernel's word; nothing when it gave none
};

// Takes apart what recvmsg(2) has filled into `message`, whose text has one buffer and is `length`
// bytes long. The text stays in that buffer.
[[nodiscard]] Datagram datagramIn(msghdr& message, std::size_t length);

// True when `datagram` says `expected` and nothing else, and comes from anyone or else from root or
// from `ownUser`.
[[nodiscard]] bool isHeeded(const Datagram& datagram, std::string_view expected, bool fromAnyone,
                            uid_t ownUser);

}  // namespace ombrix::platform
