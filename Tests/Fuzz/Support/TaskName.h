#pragma once

#include <string>
#include <string_view>

namespace ombrix::tests {

// The name of a process as the kernel writes it into its status file (proc_task_name() in
// fs/proc/array.c).
inline std::string escapedTaskName(std::string_view name) {
  std::string text;
  for (const char c : name) {
    if (c == '\n') {
      text += "\\n";
    } else if (c == '\\') {
      text += "\\\\";
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace ombrix::tests
