#pragma once

#include <string>
#include <string_view>

// Unicode is the system's business: both functions follow the whole standard and no locale.

namespace ombrix::platform {

// `text` in lower case. Bytes that are not UTF-8 are kept as they are.
[[nodiscard]] std::string lowercase(std::string_view text);

// True when `bytes` are well-formed UTF-8; so are no bytes at all.
[[nodiscard]] bool isUtf8(std::string_view bytes);

}  // namespace ombrix::platform
