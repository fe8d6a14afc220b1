#pragma once

#include <string>
#include <string_view>

#include "Platform/macOS/Owners.h"

// Between UTF-8 in std::string and CFString.

namespace ombrix::platform {

// Null when `bytes` are not in that encoding, or there is no memory.
[[nodiscard]] CFOwner<CFStringRef> stringOf(std::string_view bytes,
                                            CFStringEncoding encoding = kCFStringEncodingUTF8);

// `string` in UTF-8.
[[nodiscard]] std::string utf8Of(CFStringRef string);

}  // namespace ombrix::platform
