#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/NotificationCenter.h"
#include "Utilities/Configuration/ConfigurationManager.h"

// What comes before metering: the call by which a new agent asks whether one is running already,
// and the loading of the configuration.

namespace ombrix {

// The names by which agents and their commands speak to each other.
namespace Notification {
inline constexpr const char* launchCall = "com.velkworks.Ombrix2.LaunchCall";
inline constexpr const char* launchResponse = "com.velkworks.Ombrix2.LaunchResponse";
inline constexpr const char* stop = "com.velkworks.Ombrix2.Stop";
inline constexpr const char* list = "com.velkworks.Ombrix2.List";
}  // namespace Notification

class ClientSetup {
 public:
  // Calls for a running agent without waiting for its answer, which arrives in the run loop and
  // then ends this process with status 1; and begins to answer the calls of later agents.
  ClientSetup();

  // Builds the store, fills it from `configurationFilePath` (or, without one, from the file of the
  // default name) and sets up the logger. Ends the process with status 1 when there is no readable
  // configuration file.
  void loadConfigurations(const std::optional<std::string>& configurationFilePath);

  void receiveCallNotification();
  void receiveResponseNotification();

  // The store; owned here, null until loadConfigurations().
  [[nodiscard]] ConfigurationManager* mainConfigurationManager() const {
    return mainConfigurationManager_.get();
  }

 private:
  void loadConfigurationFile();
  void configureLogger();

  std::unique_ptr<ConfigurationManager> mainConfigurationManager_;
  std::optional<platform::NotificationObserver> responseObserver;
  std::optional<platform::NotificationObserver> callObserver;
};

}  // namespace ombrix
