#include "Platform/SystemPower.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/IOMessage.h>
#include <IOKit/pwr_mgt/IOPMLib.h>

#include <tuple>
#include <type_traits>

namespace ombrix::platform {

static_assert(messageCanSystemSleep == kIOMessageCanSystemSleep);
static_assert(messageSystemWillSleep == kIOMessageSystemWillSleep);
static_assert(messageSystemHasPoweredOn == kIOMessageSystemHasPoweredOn);
static_assert(std::is_same_v<PowerCallback, IOServiceInterestCallback>);
static_assert(std::is_same_v<PowerConnection, io_connect_t>);
static_assert(std::is_same_v<PowerNotifier, io_object_t>);

// The port is let go after this: the run loop's source needs it for as long as the process lives,
// and only its destruction would end it.
PowerConnection registerForSystemPower(void* reference, PowerCallback callback,
                                       PowerNotifier& notifier) {
  IONotificationPortRef port = nullptr;
  const io_connect_t connection = ::IORegisterForSystemPower(reference, &port, callback, &notifier);
  if (connection == IO_OBJECT_NULL) return 0;
  CFRunLoopAddSource(CFRunLoopGetCurrent(), ::IONotificationPortGetRunLoopSource(port),
                     kCFRunLoopCommonModes);
  return connection;
}

void allowPowerChange(PowerConnection connection, void* argument) {
  // A system that does not hear the answer goes to sleep half a minute later.
  std::ignore = ::IOAllowPowerChange(connection, reinterpret_cast<std::intptr_t>(argument));
}

bool deregisterForSystemPower(PowerNotifier& notifier) {
  const bool registered = notifier != IO_OBJECT_NULL;
  return ::IODeregisterForSystemPower(&notifier) == kIOReturnSuccess && registered;
}

// Both fail for what is 0 or gone already, and there is nothing left to be done about it.
void closePowerConnection(PowerConnection connection) {
  std::ignore = ::IOServiceClose(connection);
}

void releasePowerNotifier(PowerNotifier notifier) { std::ignore = ::IOObjectRelease(notifier); }

}  // namespace ombrix::platform
