#pragma once

#include <string_view>

namespace ombrix::platform {

// Sends one message to the machine's own log: NSLog on macOS, standard error on Linux, where a
// service manager files it. Adds neither time nor level. A reader that stalls or has gone costs
// the message, never the caller's time.
void systemLog(std::string_view message);

}  // namespace ombrix::platform
