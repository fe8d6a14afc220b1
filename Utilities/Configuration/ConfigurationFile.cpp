#include <array>

#include "Utilities/Configuration/ConfigurationDocument.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Text.h"

// ConfigurationManager's reader of the agent configuration file.

namespace ombrix {

// One place of the file that the agent reads. Administrators search their logs for the paths of
// the file's first edition, which some messages therefore keep; they differ from the paths queried.
struct ConfigurationQuery {
  const char* path;
  const char* attribute;  // null: the element's first child
  const char* key;
  const char* loadedAs;
  const char* refusedAs;
};

namespace {

constexpr const char* dataDirectory =
    R"(/Configuration/SystemSettings/Setting[@key = "env.data_dir"])";
constexpr const char* temporaryDirectory =
    R"(/Configuration/SystemSettings/Setting[@key = "env.temp_dir"])";
constexpr const char* logDirectory =
    R"(/Configuration/SystemSettings/Setting[@key = "env.log_dir"])";

constexpr std::array<ConfigurationQuery, 5> queries = {{
    {dataDirectory, "value", "setstoragedirectory", dataDirectory,
     "/VelkQuantavoConfig/Client/LocalStorage"},
    {temporaryDirectory, "value", "settemporarydirectory", temporaryDirectory, temporaryDirectory},
    {logDirectory, "value", "setlogdirectory", logDirectory, logDirectory},
    {"/Configuration/Logging/MaxSize", nullptr, "ombrixmaxlogsize",
     "/VelkQuantavoConfig/Log/MaxSize", "/VelkQuantavoConfig/Log/MaxSize"},
    {"/Configuration/Logging/Level", nullptr, "ombrixloglevel", "/VelkQuantavoConfig/Log/Level",
     "/VelkQuantavoConfig/Log/Level"},
}};

std::optional<ConfigurationDocument> parseOrRepair(const std::string& path) {
  using Reading = ConfigurationDocument::Reading;
  if (auto document = ConfigurationDocument::parse(path, Reading::asWritten)) return document;
  return ConfigurationDocument::parse(path, Reading::repaired);
}

ConfigurationDocument::Answer ask(const ConfigurationDocument& document,
                                  const ConfigurationQuery& query) {
  if (query.attribute == nullptr) return document.firstChild(query.path);
  return document.attribute(query.path, query.attribute);
}

}  // namespace

bool ConfigurationManager::loadConfigurationFile(const std::string& path) {
  if (path.empty()) {
    LogManager::writeLog("ConfigurationManager: Can’t create an URL from file: [" + path + "]",
                         LogLevel::error);
    return false;
  }
  const std::optional<ConfigurationDocument> document = parseOrRepair(path);
  if (!document) {
    LogManager::writeLog("ConfigurationManager: Error setting up NSXMLDocument", LogLevel::error);
    return true;
  }
  for (const ConfigurationQuery& query : queries) {
    const ConfigurationDocument::Answer answer = ask(*document, query);
    if (answer.oneNode) storeFromFile(query, answer.value);
  }
  return true;
}

void ConfigurationManager::storeFromFile(const ConfigurationQuery& query, const Value& value) {
  if (value && value->empty()) {
    LogManager::writeLog(
        "ConfigurationManager: Could not parse: [" + std::string(query.refusedAs) + "]",
        LogLevel::warning);
    return;
  }
  const std::string text = textOrNull(value);
  LogManager::writeLog(
      "ConfigurationManager: Loading " + std::string(query.loadedAs) + ": [" + text + "]",
      LogLevel::info);
  removeConfiguration(query.key);
  if (!addConfiguration(query.key, value)) {
    LogManager::writeLog(
        "ConfigurationManager::loadConfigurationFile - Could not store configuration [" +
            std::string(query.key) + "=" + text + "]",
        LogLevel::error);
  }
}

}  // namespace ombrix
