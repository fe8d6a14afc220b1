#pragma once

#include <chrono>

// The main thread's run loop: the one place where notifications and power messages are delivered,
// and where the agent sleeps.

namespace ombrix::platform {

// Sleeps until one event source has been handled, a signal named to endWaitOnSignal() has arrived,
// or `limit` is over, whichever comes first. Returns false at once when the loop has nothing that
// it could wait on.
[[nodiscard]] bool runLoopRunOnce(std::chrono::milliseconds limit);

// From now on the arrival of `signalNumber` ends the wait, also when it arrived before the wait
// began. The signal's handler is the caller's to install, right after this call; it runs at the
// latest when the next wait begins.
void endWaitOnSignal(int signalNumber);

}  // namespace ombrix::platform
