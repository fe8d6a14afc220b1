#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ombrix::platform {

using Sha1Digest = std::array<std::uint8_t, 20>;

// The SHA-1 digest of `bytes`; nothing when the library reports a failure.
[[nodiscard]] std::optional<Sha1Digest> sha1(std::string_view bytes);

}  // namespace ombrix::platform
