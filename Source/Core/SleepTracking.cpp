#include <cstdint>

#include "Platform/Clock.h"
#include "Source/Core/ProcessManager.h"
#include "Utilities/Logging/LogManager.h"

// ProcessManager's accounting of sleep.

namespace ombrix {

namespace {

constexpr double secondsPerMinute = 60.0;

}  // namespace

bool ProcessManager::initSystemEventListener() {
  root_port = platform::registerForSystemPower(this, powerMessageCallback, notifier);
  if (root_port != 0) return true;
  LogManager::writeLog("IORegisterForSystemPower failed.", LogLevel::warning);
  return false;
}

bool ProcessManager::deinitSystemEventListener() {
  const bool deregistered = platform::deregisterForSystemPower(notifier);
  platform::closePowerConnection(root_port);
  platform::releasePowerNotifier(notifier);
  if (deregistered) return true;
  LogManager::writeLog("IODeregisterForSystemPower failed.", LogLevel::warning);
  return false;
}

void ProcessManager::powerMessageReceived(std::uint32_t messageType, void* argument) {
  if (messageType == platform::messageCanSystemSleep) {
    platform::allowPowerChange(root_port, argument);
  } else if (messageType == platform::messageSystemHasPoweredOn) {
    systemHasPoweredOn();
  } else if (messageType == platform::messageSystemWillSleep) {
    sleepStartTime = platform::absoluteTime();
    platform::allowPowerChange(root_port, argument);
  }
}

void ProcessManager::systemHasPoweredOn() {
  if (sleepStartTime == 0.0) {
    LogManager::writeLog("System has awaken, without first ever mentioning going to sleep.",
                         LogLevel::warning);
    return;
  }
  // Begun minutes do not count, and a clock that was set back meanwhile counts backwards.
  const auto minutes =
      static_cast<std::int64_t>((platform::absoluteTime() - sleepStartTime) / secondsPerMinute);
  sleepStartTime = 0.0;
  const auto added = static_cast<std::uint32_t>(minutes);
  if (added == 0) return;
  for (const auto& slot : processList) {
    slot.record->setPausedMinutes(slot.record->pausedMinutes() + added);
  }
}

}  // namespace ombrix
