#include "Utilities/Text.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "Platform/Text.h"

namespace ombrix {

std::string textOrNull(const std::optional<std::string>& text) { return text.value_or("(null)"); }

std::optional<std::string> utf8OrNothing(std::string_view bytes) {
  if (!platform::isUtf8(bytes)) return std::nullopt;
  return std::string(bytes);
}

std::string removingAll(std::string text, std::string_view unwanted) {
  std::erase_if(text, [unwanted](char c) { return unwanted.find(c) != std::string_view::npos; });
  return text;
}

int leadingInteger(const std::string& text) {
  static_assert(sizeof(long) > sizeof(int), "out of range must be seen here, not in strtol");
  const long value = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<int>(
      std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

}  // namespace ombrix
