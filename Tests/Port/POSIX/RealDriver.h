#pragma once

#include <string>

namespace ombrix::tests {

// A program to execute in order to run this very one once more.
[[nodiscard]] std::string thisProgram();

// True when this process was started by the driver, to post a notification; it has done so then.
[[nodiscard]] bool actedAsPoster(int argumentCount, char** arguments);

}  // namespace ombrix::tests
