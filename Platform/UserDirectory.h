#pragma once

#include <optional>
#include <string>

#include "Platform/ProcessList.h"

namespace ombrix::platform {

// The login name of a user, in the directory's own bytes. Nothing when the user has no password
// entry or the directory cannot be asked. May read files or ask a directory server: callers keep
// the answer for as long as it may be reused.
[[nodiscard]] std::optional<std::string> userName(UserId userId);

}  // namespace ombrix::platform
