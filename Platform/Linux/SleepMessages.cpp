#include "Platform/Linux/SleepMessages.h"

#include "Platform/SystemPower.h"

namespace ombrix::platform {

namespace {

using std::chrono::nanoseconds;

// The two clocks are read one after the other and drift apart by as much; no sleep is this short.
constexpr nanoseconds shortestSleep = std::chrono::seconds{1};

}  // namespace

bool SleepMessages::sleptUntold(nanoseconds suspended) const {
  return suspended - accounted >= shortestSleep;
}

SleepMessages::Messages SleepMessages::sleepAnnounced(nanoseconds suspended) {
  Messages messages = looked(suspended);
  messages.push_back({messageSystemWillSleep, nanoseconds::zero(), true});
  sleepPending = true;
  wakeToldEarly = false;
  return messages;
}

SleepMessages::Messages SleepMessages::wakeAnnounced(nanoseconds suspended) {
  // A sleep of which only the end was heard.
  if (!sleepPending && sleptUntold(suspended)) {
    Messages messages = looked(suspended);
    wakeToldEarly = false;
    return messages;
  }
  accounted = suspended;
  sleepPending = false;
  if (wakeToldEarly) {
    wakeToldEarly = false;
    return {};
  }
  return {{messageSystemHasPoweredOn, nanoseconds::zero(), false}};
}

SleepMessages::Messages SleepMessages::looked(nanoseconds suspended) {
  if (!sleptUntold(suspended)) return {};
  // Begun anew from the count, also where it had been announced: what lies between the
  // announcement and now may be more than the sleep.
  const nanoseconds slept = suspended - accounted;
  accounted = suspended;
  sleepPending = false;
  wakeToldEarly = true;
  return {{messageSystemWillSleep, slept, false},
          {messageSystemHasPoweredOn, nanoseconds::zero(), false}};
}

}  // namespace ombrix::platform
