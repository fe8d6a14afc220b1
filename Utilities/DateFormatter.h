#pragma once

#include <optional>
#include <string>

#include "Platform/Clock.h"

namespace ombrix {

// Dates as local time. A formatter takes the machine's zone as it is when the formatter is made;
// one that lives for a cycle therefore follows a change of zone at the next cycle.
class DateFormatter {
 public:
  enum class Pattern {
    timeStamp,  // 2024-03-05 14:07:09
    day,        // 2024-03-05
  };

  explicit DateFormatter(Pattern pattern);

  [[nodiscard]] std::string string(platform::Date date) const;
  // Nothing for no date.
  [[nodiscard]] std::optional<std::string> string(const std::optional<platform::Date>& date) const;

 private:
  Pattern pattern;
};

}  // namespace ombrix
