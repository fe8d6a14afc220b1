#pragma once

#include <string>
#include <vector>

#include "Utilities/Configuration/ConfigurationProtocol.h"

namespace ombrix {

// The agent's own settings: which it needs, which names are copied to which, and their defaults.
class OmbrixConfigurationContract : public ConfigurationProtocol {
 public:
  [[nodiscard]] std::vector<std::string> getRequiredSettings() const override;
  [[nodiscard]] std::vector<std::string> getOptionalSettings() const override;
  [[nodiscard]] std::vector<KeyValuePair> getAliases() const override;

  // Looks for a configuration file of the default name in the working directory. Without one there
  // are no default directories either: a file given elsewhere must then set them itself.
  [[nodiscard]] std::vector<KeyValuePair> getDefaults() const override;
};

}  // namespace ombrix
