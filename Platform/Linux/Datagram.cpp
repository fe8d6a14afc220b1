#include "Platform/Linux/Datagram.h"

namespace ombrix::platform {

namespace {

bool isCredentials(const cmsghdr& part) {
  // A part for which there was too little room has been cut off (unix(7)).
  return part.cmsg_level == SOL_SOCKET && part.cmsg_type == SCM_CREDENTIALS &&
         part.cmsg_len >= CMSG_LEN(sizeof(ucred));
}

// The user whom the kernel names as the sender of `message` (SCM_CREDENTIALS, unix(7)).
std::optional<uid_t> senderOf(msghdr& message) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (isCredentials(*part)) return reinterpret_cast<const ucred*>(CMSG_DATA(part))->uid;
  }
  return std::nullopt;
}

}  // namespace

Datagram datagramIn(msghdr& message, std::size_t length) {
  return {{static_cast<const char*>(message.msg_iov->iov_base), length},
          (message.msg_flags & MSG_TRUNC) == 0,
          senderOf(message)};
}

bool isHeeded(const Datagram& datagram, std::string_view expected, bool fromAnyone, uid_t ownUser) {
  if (!datagram.whole || datagram.text != expected || !datagram.sender) return false;
  return fromAnyone || *datagram.sender == 0 || *datagram.sender == ownUser;
}

}  // namespace ombrix::platform
