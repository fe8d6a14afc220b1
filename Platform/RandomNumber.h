#pragma once

#include <cstdint>
#include <optional>

namespace ombrix::platform {

// 32 bits that nobody can predict; nothing when the machine has none to give.
[[nodiscard]] std::optional<std::uint32_t> randomNumber();

}  // namespace ombrix::platform
