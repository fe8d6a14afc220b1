#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "Platform/ProcessList.h"

namespace ombrix::platform {

// "PREFIX" + process id + "SUFFIX" without an allocation: at a first poll thousands are needed.
class ProcPath {
 public:
  ProcPath(std::string_view prefix, ProcessId processId, std::string_view suffix) {
    char* end = std::copy(prefix.begin(), prefix.end(), text.data());
    end = std::to_chars(end, text.data() + text.size(), processId).ptr;
    *std::copy(suffix.begin(), suffix.end(), end) = '\0';
  }

  [[nodiscard]] const char* c_str() const { return text.data(); }

 private:
  std::array<char, 40> text{};  // "/proc/", at most eleven characters of a number, a short name
};

}  // namespace ombrix::platform
