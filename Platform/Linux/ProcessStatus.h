#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/ProcessList.h"

// Parsers of the files that the kernel keeps of each process (proc(5)). They take bytes as read,
// which may be cut off anywhere.

namespace ombrix::platform {

// What /proc/PID/status tells.
struct ProcessStatus {
  std::string commandName;
  UserId effectiveUserId = 0;
  // Absent where the file does not tell: older kernels have no "Kthread" line, and a process
  // without memory of its own is then either a thread of the kernel's or dead.
  std::optional<bool> kernelThread;
};

// Nothing when the name or the user id is missing.
[[nodiscard]] std::optional<ProcessStatus> parseProcessStatus(std::string_view status);

// Whether the flags of /proc/PID/stat have the kernel's PF_KTHREAD; false when they are missing.
[[nodiscard]] bool hasKernelThreadFlag(std::string_view stat);

}  // namespace ombrix::platform
