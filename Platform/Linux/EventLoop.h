#pragma once

#include <systemd/sd-event.h>

#include <memory>

// The one event loop of the process, which the port's other sources attach to.

namespace ombrix::platform {

struct EventLoopDeleter {
  void operator()(sd_event* loop) const { sd_event_unref(loop); }
};
struct EventSourceDeleter {
  // Also takes a source off its loop at once, which giving back the last reference alone would do
  // only when it is not being dispatched.
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using EventSource = std::unique_ptr<sd_event_source, EventSourceDeleter>;

// To be called by a source that hands something to the agent: this and nothing else ends a wait,
// so that the port's own housekeeping does not.
void noteDelivery();

// Null when the kernel has no descriptors left for one. Owned here until the process ends.
[[nodiscard]] sd_event* eventLoop();

}  // namespace ombrix::platform
