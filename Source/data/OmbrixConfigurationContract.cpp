#include "Source/data/OmbrixConfigurationContract.h"

#include <optional>

#include "Utilities/FileUtils.h"

namespace ombrix {

namespace {

std::optional<std::string> defaultConfigurationFile() {
  for (const char* name : {"./velkagent.config", "velkagent.config"}) {
    if (FileUtils::fileExistsAndReadable(name)) return name;
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::string> OmbrixConfigurationContract::getRequiredSettings() const {
  return {"setstoragedirectory", "configurationfilepath"};
}

std::vector<std::string> OmbrixConfigurationContract::getOptionalSettings() const {
  return {"settemporarydirectory", "logdirectory"};
}

std::vector<KeyValuePair> OmbrixConfigurationContract::getAliases() const {
  return {{"setstoragedirectory", "storagedirectory"},
          {"settemporarydirectory", "temporarydirectory"},
          {"setlogdirectory", "logdirectory"}};
}

std::vector<KeyValuePair> OmbrixConfigurationContract::getDefaults() const {
  std::vector<KeyValuePair> defaults = {{"ReportMeterDataDaily", "yes"}};
  if (const auto configurationFile = defaultConfigurationFile()) {
    defaults.emplace_back("configurationfilepath", configurationFile);
    defaults.emplace_back("setstoragedirectory", "./data/");
    defaults.emplace_back("settemporarydirectory", "/tmp/velk/");
    defaults.emplace_back("setlogdirectory", "./data/");
  }
  return defaults;
}

}  // namespace ombrix
