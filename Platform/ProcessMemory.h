#pragma once

namespace ombrix::platform {

// Gives back to the machine what the start of the process needed and its further life does not, as
// far as it can be had again unasked. Changes nothing that the program can see. Does nothing while
// the process is being traced, because a debugger's breakpoints are part of what would be given
// back; so are probes that were set in its code or a library's before.
void releaseStartupMemory();

}  // namespace ombrix::platform
