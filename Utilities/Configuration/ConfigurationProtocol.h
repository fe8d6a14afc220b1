#pragma once

#include <string>
#include <vector>

#include "Utilities/Containers/KeyValuePair.h"

namespace ombrix {

// What a program promises about its settings. A configuration store asks each question once, when
// it is built, and keeps the answers.
class ConfigurationProtocol {
 public:
  virtual ~ConfigurationProtocol() = default;

  // Keys that must have a value after start-up.
  [[nodiscard]] virtual std::vector<std::string> getRequiredSettings() const = 0;
  // Keys that may have a value.
  [[nodiscard]] virtual std::vector<std::string> getOptionalSettings() const = 0;
  // Key: an alias source, in lower case. Value: the target that gets a copy of its value.
  [[nodiscard]] virtual std::vector<KeyValuePair> getAliases() const = 0;
  // Key: a setting. Value: what it is when nothing else sets it.
  [[nodiscard]] virtual std::vector<KeyValuePair> getDefaults() const = 0;
};

}  // namespace ombrix
