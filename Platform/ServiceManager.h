#pragma once

namespace ombrix::platform {

// Tells whoever started this process as a service that it is at work. Told once: later calls do
// nothing, unless it did not get through, which they then mend. Never waits. Does nothing where
// nobody has asked to be told, which on macOS is always: launchd knows no such message.
void reportReady();

}  // namespace ombrix::platform
