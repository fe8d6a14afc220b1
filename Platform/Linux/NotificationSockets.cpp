#include "Platform/Linux/NotificationSockets.h"

#include <unistd.h>

#include <cstdint>

namespace ombrix::platform {

namespace {

constexpr std::string_view strangersSuffix = ".public";

// Takes the last piece after a dot off `text`; false when there is none.
bool dropLastPiece(std::string_view& text) {
  const std::size_t dot = text.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return false;
  text = text.substr(0, dot);
  return true;
}

}  // namespace

// NOTIFICATION.PID.SALT or NOTIFICATION.PID.SALT.public. The process id is for people; the salt
// makes the name unique where two containers share the directory.
std::string socketFileName(const SocketName& name, std::uint32_t salt) {
  std::string fileName(name.notification);
  fileName += "." + std::to_string(::getpid()) + "." + std::to_string(salt);
  if (name.forStrangers) fileName += strangersSuffix;
  return fileName;
}

std::optional<SocketName> parseSocketFileName(std::string_view fileName) {
  SocketName name;
  name.forStrangers = fileName.ends_with(strangersSuffix);
  if (name.forStrangers) fileName.remove_suffix(strangersSuffix.size());
  const bool hasSalt = dropLastPiece(fileName);
  const bool hasProcessId = dropLastPiece(fileName);
  if (!hasSalt || !hasProcessId) return std::nullopt;
  name.notification = fileName;
  return name;
}

}  // namespace ombrix::platform
