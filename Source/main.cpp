#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "Platform/NotificationCenter.h"
#include "Platform/ProcessEnvironment.h"
#include "Platform/SystemLog.h"
#include "Source/Agent.h"
#include "Source/ApplicationsFolder.h"
#include "Source/CommandLine.h"
#include "Source/Core/ClientSetup.h"
#include "Utilities/MemoryShortage.h"

namespace {

constexpr const char* versionNumber = "6.2.1";
constexpr const char* versionSuffix = "";

std::optional<std::string> configurationFilePath;

// Carries out a command and returns the exit status of the process.
int execute(ombrix::Command command) {
  using ombrix::Command;
  namespace platform = ombrix::platform;
  switch (command) {
    case Command::none:
      return ombrix::runAgent(configurationFilePath);
    case Command::stop:
      platform::systemLog("Shutting down Ombrix.");
      platform::postNotification(ombrix::Notification::stop);
      return 0;
    case Command::printVersionNumber:
      std::puts(versionNumber);
      return 0;
    case Command::printVersion:
      std::printf("Quantavo Metering for OS X - version %s %s\n", versionNumber, versionSuffix);
      return 0;
    case Command::list:
      platform::postNotification(ombrix::Notification::list);
      return 0;
    case Command::prepareForUpgrade:
      ombrix::repairApplicationsFolder();
      return 0;
    case Command::explainConfigurationOption:
      platform::systemLog(
          "With the -C/ConfigFile option you must also specify a full path to the configuration "
          "file. Example: ./Ombrix -C velkagent.config");
      return 1;
  }
  return 1;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  ombrix::endInOrderWithoutMemory();
  ombrix::platform::secureProcessEnvironment();
  const ombrix::CommandLine commandLine =
      ombrix::readCommandLine(std::vector<std::string>(arguments, arguments + argumentCount));
  configurationFilePath = commandLine.configurationFilePath;
  return execute(commandLine.command);
}
