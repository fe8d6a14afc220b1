#pragma once

#include <string>

namespace ombrix::platform {

// The name of this computer as its user would read it; empty when it has none.
[[nodiscard]] std::string hostName();

}  // namespace ombrix::platform
