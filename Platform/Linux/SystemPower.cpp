#include "Platform/SystemPower.h"

#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/Login1.h"
#include "Platform/Linux/SleepMessages.h"
#include "Platform/Linux/SuspendClock.h"

namespace ombrix::platform {

namespace {

// One registration: whom to tell, and the two witnesses of a sleep.
class SleepWatch {
 public:
  SleepWatch(void* reference, PowerCallback callback, PowerNotifier identity)
      : reference(reference),
        callback(callback),
        identity(identity),
        messages(timeSuspended()),
        login([this](bool sleeping) { preparingForSleep(sleeping); }) {
    login.start();
  }

  [[nodiscard]] bool announced() const { return login.present(); }
  void acknowledge() { login.releaseLock(); }

  void look() {
    login.reconnectIfBroken();
    // A lock that was given away for a sleep whose end nobody announced is taken again.
    if (deliver(messages.looked(timeSuspended()))) login.takeLock();
  }

 private:
  void preparingForSleep(bool sleeping) {
    const std::chrono::nanoseconds suspended = timeSuspended();
    deliver(sleeping ? messages.sleepAnnounced(suspended) : messages.wakeAnnounced(suspended));
    if (!sleeping) login.takeLock();
  }

  // True when there were any.
  bool deliver(const SleepMessages::Messages& due) {
    for (const SleepMessages::Message& message : due) {
      noteDelivery();
      const Belated belated(message.ago);
      const std::uintptr_t argument = message.wantsAcknowledgement ? identity : 0;
      // NOLINTNEXTLINE(performance-no-int-to-ptr): a number in the guise of a pointer, as in IOKit
      callback(reference, 0, message.type, reinterpret_cast<void*>(argument));
    }
    return !due.empty();
  }

  void* reference;
  PowerCallback callback;
  PowerNotifier identity;
  SleepMessages messages;
  Login1 login;
};

// By notifier; never 0.
std::map<PowerNotifier, std::unique_ptr<SleepWatch>>& watches() {
  static std::map<PowerNotifier, std::unique_ptr<SleepWatch>> all;
  return all;
}

}  // namespace

PowerConnection registerForSystemPower(void* reference, PowerCallback callback,
                                       PowerNotifier& notifier) {
  static PowerNotifier lastNotifier = 0;
  notifier = ++lastNotifier;
  const auto& watch =
      watches()
          .emplace(notifier, std::make_unique<SleepWatch>(reference, callback, notifier))
          .first->second;
  return watch->announced() ? notifier : 0;
}

// The argument of a message is the notifier of the registration that it was sent to; the connection
// is of no account, since it is 0 for a registration whose logind came later.
void allowPowerChange(PowerConnection /*connection*/, void* argument) {
  const auto watch =
      watches().find(static_cast<PowerNotifier>(reinterpret_cast<std::uintptr_t>(argument)));
  if (watch != watches().end()) watch->second->acknowledge();
}

bool deregisterForSystemPower(PowerNotifier& notifier) {
  const auto watch = watches().find(notifier);
  if (watch == watches().end()) return false;
  const bool announced = watch->second->announced();
  watches().erase(watch);
  return announced;
}

// Both went with the registration.
void closePowerConnection(PowerConnection /*connection*/) {}
void releasePowerNotifier(PowerNotifier /*notifier*/) {}

void deliverUnannouncedSleep() {
  for (const auto& [notifier, watch] : watches()) watch->look();
}

}  // namespace ombrix::platform
