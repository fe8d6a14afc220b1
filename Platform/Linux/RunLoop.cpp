#include "Platform/RunLoop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <set>
#include <utility>

#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/SuspendClock.h"
#include "Platform/SystemLog.h"

namespace ombrix::platform {

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

// The signals that end a wait. They are blocked at all times but during the wait itself, so that
// none can slip in between a look at the flag that its handler sets and the beginning of the wait.
std::set<int>& awaitedSignals() {
  static std::set<int> signals;
  return signals;
}

sigset_t maskDuringWait() {
  sigset_t mask;
  ::sigprocmask(SIG_BLOCK, nullptr, &mask);
  for (const int signalNumber : awaitedSignals()) ::sigdelset(&mask, signalNumber);
  return mask;
}

timespec toTimespec(nanoseconds duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((duration - seconds).count())};
}

enum class WaitResult { readable, overtime, interrupted, failed };

unsigned deliveries = 0;

constexpr int noDescriptor = -1;

// Sleeps until `descriptor` is readable, a signal has been handled, or `limit` is over.
WaitResult waitFor(int descriptor, nanoseconds limit) {
  pollfd request{descriptor, POLLIN, 0};
  const timespec timeout = toTimespec(std::max(limit, nanoseconds::zero()));
  const sigset_t mask = maskDuringWait();
  // A process whose limit of descriptors is 0 may not even ask after a negative one (poll(2)).
  const nfds_t asked = descriptor == noDescriptor ? 0 : 1;
  const int ready = ::ppoll(&request, asked, &timeout, &mask);
  if (ready > 0) return WaitResult::readable;
  if (ready == 0) return WaitResult::overtime;
  return errno == EINTR ? WaitResult::interrupted : WaitResult::failed;
}

// One turn of the loop, which handles at most one source. Tells how its wait ended.
WaitResult turn(sd_event* loop, nanoseconds limit) {
  WaitResult result = WaitResult::readable;
  int ready = sd_event_prepare(loop);
  if (ready == 0) {
    result = waitFor(sd_event_get_fd(loop), limit);
    ready = sd_event_wait(loop, 0);
  }
  if (ready > 0) ready = sd_event_dispatch(loop);
  return ready < 0 ? WaitResult::failed : result;
}

// Without a loop nothing is delivered, but metering goes on: signals and the time still end a wait.
bool sleepWithoutLoop(nanoseconds limit) {
  static bool reported = false;
  if (!std::exchange(reported, true)) {
    systemLog("The event loop does not work. Commands will not reach this process.");
  }
  return waitFor(noDescriptor, limit) != WaitResult::failed;
}

bool waitOnce(nanoseconds limit) {
  // Descriptors that are readable keep poll(2) from looking at signals: without this, a loop that
  // is never idle would never hear one.
  if (waitFor(noDescriptor, nanoseconds::zero()) == WaitResult::interrupted) return true;

  sd_event* const loop = eventLoop();
  if (loop == nullptr) return sleepWithoutLoop(limit);

  const auto deadline = steady_clock::now() + limit;
  const unsigned deliveriesBefore = deliveries;
  for (;;) {
    const WaitResult result = turn(loop, deadline - steady_clock::now());
    // A loop that has failed will fail again, at once and for ever.
    if (result == WaitResult::failed) return sleepWithoutLoop(deadline - steady_clock::now());
    if (result == WaitResult::interrupted || deliveries != deliveriesBefore) return true;
    if (steady_clock::now() >= deadline) return true;
  }
}

}  // namespace

sd_event* eventLoop() {
  static std::unique_ptr<sd_event, EventLoopDeleter> loop;
  if (!loop) {
    sd_event* created = nullptr;
    if (sd_event_default(&created) >= 0) loop.reset(created);
  }
  return loop.get();
}

void noteDelivery() { ++deliveries; }

bool runLoopRunOnce(std::chrono::milliseconds limit) {
  const bool waited = waitOnce(limit);
  deliverUnannouncedSleep();
  return waited;
}

void endWaitOnSignal(int signalNumber) {
  sigset_t blocked;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, signalNumber);
  ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
  awaitedSignals().insert(signalNumber);
}

}  // namespace ombrix::platform
