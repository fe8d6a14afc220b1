#include "Utilities/Configuration/ConfigurationManager.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Platform/Text.h"
#include "Utilities/FileUtils.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Paths.h"
#include "Utilities/Text.h"

namespace ombrix {

namespace {

constexpr std::size_t expectedSettings = 20;

// Makes the directory that a setting names. A failure shows when the directory is first used.
void prepareDirectory(const std::string& key, const std::string& directory) {
  std::error_code error;
  const std::string place(withoutTrailingSlashes(directory));
  const auto status = std::filesystem::status(FileUtils::caseSensitiveFilePath(place), error);
  if (!std::filesystem::exists(status)) {
    std::filesystem::create_directories(directory, error);
  } else if (!std::filesystem::is_directory(status)) {
    LogManager::writeLog("This is not a valid path. [" + key + "=" + directory + "]",
                         LogLevel::error);
  }
}

// The value to be stored under `key`, whose lower-case form is `lowered`.
ConfigurationManager::Value storedValue(const std::string& key, const std::string& lowered,
                                        const ConfigurationManager::Value& value) {
  if (!lowered.ends_with("directory") || (value && value->ends_with('/'))) return value;
  std::string directory = textOrNull(value) + "/";
  prepareDirectory(key, directory);
  return directory;
}

void logAliasCopy(const std::string& target, const std::string& key, const std::string& value) {
  LogManager::writeLog(
      "Added configuration alias [" + target + "] to [" + key + "] => [" + value + "]",
      LogLevel::debugPlus);
}

}  // namespace

ConfigurationManager::ConfigurationManager(const ConfigurationProtocol* contract) {
  configurations.reserve(expectedSettings);
  if (contract == nullptr) {
    LogManager::writeLog(
        "The selected protocol does not conform to ConfigurationManager::ConfigurationProtocol "
        "and will not be used. [" +
            textOrNull(std::nullopt) + "]",
        LogLevel::error);
    return;
  }
  requiredOptions = contract->getRequiredSettings();
  optionalOptions = contract->getOptionalSettings();
  aliases = contract->getAliases();
  defaults = contract->getDefaults();
  missing.emplace();
}

bool ConfigurationManager::addConfiguration(const std::string& key, const Value& value) {
  const std::string lowered = platform::lowercase(key);
  const bool stored = std::any_of(configurations.begin(), configurations.end(),
                                  [&](const KeyValuePair& pair) { return pair.key() == lowered; });
  if (stored) return false;

  const Value kept = storedValue(key, lowered, value);
  configurations.emplace_back(lowered, kept);

  for (const KeyValuePair& alias : aliases) {
    if (alias.key() != lowered) continue;
    const std::string target = textOrNull(alias.value());
    logAliasCopy(target, key, textOrNull(kept));
    removeConfiguration(target);
    addConfiguration(target, kept);
  }
  return true;
}

ConfigurationManager::Value ConfigurationManager::getConfiguration(const std::string& key) const {
  const std::string lowered = platform::lowercase(key);
  for (const KeyValuePair& pair : configurations) {
    if (pair.key() == lowered) return pair.value();
  }
  return std::nullopt;
}

std::optional<std::vector<std::string>> ConfigurationManager::getConfigurations(
    const std::string& /*key*/) const {
  return std::nullopt;
}

bool ConfigurationManager::removeConfiguration(const std::string& key) {
  const std::string lowered = platform::lowercase(key);
  std::erase_if(configurations, [&](const KeyValuePair& pair) { return pair.key() == lowered; });
  return true;
}

void ConfigurationManager::addDefaultsIfMissing() {
  for (const KeyValuePair& entry : defaults) {
    const std::string key = platform::lowercase(textOrNull(entry.key()));
    if (getConfiguration(key)) continue;
    LogManager::writeLog("ConfigurationManager::AddedDefaultConfiguration [" + key + "] => [" +
                             textOrNull(entry.value()) + "]",
                         LogLevel::debugPlus);
    addConfiguration(key, entry.value());
  }
}

const std::vector<std::string>* ConfigurationManager::verifyAgainstContract() {
  if (!missing) return nullptr;
  missing->clear();
  for (const std::string& key : requiredOptions) {
    if (getConfiguration(key)) continue;
    LogManager::writeLog("Missing configuration setting [" + key + "]", LogLevel::error);
    missing->push_back(key);
  }
  return &*missing;
}

bool ConfigurationManager::validateIfNilOrEmpty(const Value& value) {
  return !value || value->empty();
}

}  // namespace ombrix
