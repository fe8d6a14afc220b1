#include "Utilities/DateFormatter.h"

#include <array>
#include <chrono>
#include <ctime>

namespace ombrix {

// localtime_r() alone may keep the zone that it read first; tzset() looks whether the zone's file
// has changed (tzset(3)).
DateFormatter::DateFormatter(Pattern pattern) : pattern(pattern) { tzset(); }

std::string DateFormatter::string(platform::Date date) const {
  // Downwards also before 1970, as a calendar does.
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  const auto time = static_cast<std::time_t>(seconds);
  std::tm local{};
  if (localtime_r(&time, &local) == nullptr) return {};
  std::array<char, 64> text{};
  const std::size_t length =
      pattern == Pattern::day
          ? std::strftime(text.data(), text.size(), "%Y-%m-%d", &local)
          : std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  return {text.data(), length};
}

std::optional<std::string> DateFormatter::string(const std::optional<platform::Date>& date) const {
  if (!date) return std::nullopt;
  return string(*date);
}

}  // namespace ombrix
