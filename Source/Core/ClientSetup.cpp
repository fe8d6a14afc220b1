#include "Source/Core/ClientSetup.h"

#include <cstdint>
#include <cstdlib>

#include "Source/data/OmbrixConfigurationContract.h"
#include "Utilities/FileUtils.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Text.h"

namespace ombrix {

// True once this process has answered another agent's call, and for good.
static bool firstInstance = false;

namespace {

[[noreturn]] void quit(const std::string& message) {
  LogManager::writeLog(message, LogLevel::error);
  std::exit(1);
}

}  // namespace

// The order is the design: an answer cannot be missed, since its observer is there before the call;
// and the agent does not answer itself, since it hears calls only after its own.
ClientSetup::ClientSetup() {
  responseObserver.emplace(Notification::launchResponse, platform::Posters::trustedAgents,
                           [this] { receiveResponseNotification(); });
  platform::postNotification(Notification::launchCall);
  callObserver.emplace(Notification::launchCall, platform::Posters::everyone,
                       [this] { receiveCallNotification(); });
}

void ClientSetup::receiveCallNotification() {
  firstInstance = true;
  platform::postNotification(Notification::launchResponse);
}

void ClientSetup::receiveResponseNotification() {
  // Whoever answers hears the answer too.
  if (firstInstance) return;
  LogManager::writeLog("Ombrix is already running. Shutting down this instance.", LogLevel::alert);
  callObserver.reset();
  responseObserver.reset();
  std::exit(1);
}

void ClientSetup::loadConfigurations(const std::optional<std::string>& configurationFilePath) {
  const OmbrixConfigurationContract contract;
  mainConfigurationManager_ = std::make_unique<ConfigurationManager>(&contract);
  ConfigurationManager& store = *mainConfigurationManager_;

  if (configurationFilePath &&
      !store.addConfiguration("ConfigurationFilePath", configurationFilePath)) {
    LogManager::writeLog(
        "Could not add configuration [ConfigurationFilePath=" + *configurationFilePath + "].",
        LogLevel::debug);
  }
  store.addDefaultsIfMissing();
  loadConfigurationFile();
  configureLogger();

  if (!store.getConfiguration("ReportMeterDataDaily")) {
    LogManager::writeLog("ReportMeterDataDaily is not set.", LogLevel::info);
  }
  store.verifyAgainstContract();
}

void ClientSetup::loadConfigurationFile() {
  ConfigurationManager& store = *mainConfigurationManager_;
  const std::optional<std::string> path = store.getConfiguration("ConfigurationFilePath");
  if (!path) quit("ConfigurationFilePath is empty. Quitting.");
  if (!FileUtils::fileExistsAndReadable(*path)) {
    quit("Could not find a readable configuration file. Make sure we got read access. Quitting.");
  }
  LogManager::writeLog("Loading configuration file [" + *path + "].", LogLevel::debug);
  if (!store.loadConfigurationFile(*path)) {
    quit("Could not load main configuration file [" + *path + "]");
  }
}

// The level and the size come last, so that everything up to here is logged at the initial level.
void ClientSetup::configureLogger() {
  const ConfigurationManager& store = *mainConfigurationManager_;
  LogManager::setLogFilePath(store.getConfiguration("SetLogDirectory"));

  const std::string level = store.getConfiguration("OmbrixLogLevel").value_or("");
  if (!level.empty()) LogManager::setLogLevel(LogManager::convertLogLevel(level));

  const std::string kibibytes = store.getConfiguration("OmbrixMaxLogSize").value_or("");
  if (!kibibytes.empty()) {
    LogManager::setMaxAllowedLogSizeInBytes(static_cast<std::uint32_t>(leadingInteger(kibibytes))
                                            << 10U);
  }
}

}  // namespace ombrix
