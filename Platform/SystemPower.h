#pragma once

#include <cstdint>

// Sleep and wake of the machine. The shape is IOKit's, which the other ports imitate: a
// registration yields a connection, which acknowledges messages, and a notifier, which ends it.

namespace ombrix::platform {

using PowerConnection = std::uint32_t;  // 0: none
using PowerNotifier = std::uint32_t;

// The published codes of IOKit (IOMessage.h), sent by every port.
inline constexpr std::uint32_t messageCanSystemSleep = 0xE0000270;
inline constexpr std::uint32_t messageSystemWillSleep = 0xE0000280;
inline constexpr std::uint32_t messageSystemHasPoweredOn = 0xE0000300;

// Called in the run loop. `argument` identifies the message to allowPowerChange() and means
// nothing else. A message may come late, about a sleep that nobody announced: while it is being
// delivered, absoluteTime() is the moment that it is about.
using PowerCallback = void (*)(void* reference, std::uint32_t service, std::uint32_t messageType,
                               void* argument);

// Delivers power messages to `callback` with `reference` in the run loop of this thread, until
// deregistered. Fills in `notifier`. Returns 0 when the machine does not announce its sleep; on
// some machines messages come all the same, late or once the announcements have begun.
[[nodiscard]] PowerConnection registerForSystemPower(void* reference, PowerCallback callback,
                                                     PowerNotifier& notifier);

// Tells the system that this process is ready for the change that `argument` announced.
void allowPowerChange(PowerConnection connection, void* argument);

// The three steps that end a registration. The first ends the messages and returns false when the
// machine had not announced its sleep to this process; the other two take whatever
// registerForSystemPower() gave, 0 included.
[[nodiscard]] bool deregisterForSystemPower(PowerNotifier& notifier);
void closePowerConnection(PowerConnection connection);
void releasePowerNotifier(PowerNotifier notifier);

}  // namespace ombrix::platform
