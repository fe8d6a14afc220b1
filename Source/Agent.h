#pragma once

#include <optional>
#include <string>

namespace ombrix {

// Builds the agent in its fixed order and meters until it is to stop. Returns the exit status of
// the process; ends the process itself where there is no going on.
[[nodiscard]] int runAgent(const std::optional<std::string>& configurationFilePath);

}  // namespace ombrix
