#include "Source/Agent.h"

#include <cstdlib>
#include <memory>

#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/MakeOrNull.h"

namespace ombrix {

int runAgent(const std::optional<std::string>& configurationFilePath) {
  const auto clientSetup = makeOrNull<ClientSetup>();
  if (!clientSetup) {
    LogManager::writeLog("Could not initialize ClientSetup.", LogLevel::error);
    std::exit(1);
  }
  clientSetup->loadConfigurations(configurationFilePath);
  LogManager::writeLog("Starting Ombrix", LogLevel::info);

  const auto engine = makeOrNull<MeteringManager>(clientSetup->mainConfigurationManager());
  if (!engine) {
    LogManager::writeLog("Could not initialize the metering engine.", LogLevel::error);
    return 1;
  }
  engine->startMetering();

  LogManager::writeLog("Shutting down Ombrix", LogLevel::info);
  return 0;
}

}  // namespace ombrix
