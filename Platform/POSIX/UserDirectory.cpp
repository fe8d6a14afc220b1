#include "Platform/UserDirectory.h"

#include <pwd.h>

namespace ombrix::platform {

std::optional<std::string> userName(UserId userId) {
  const passwd* entry = ::getpwuid(userId);
  if (entry == nullptr || entry->pw_name == nullptr) return std::nullopt;
  return entry->pw_name;
}

}  // namespace ombrix::platform
