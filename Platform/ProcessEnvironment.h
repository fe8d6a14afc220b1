#pragma once

namespace ombrix::platform {

// Makes the process safe to open files and write to descriptors, whoever started it: descriptors
// 0 to 2 are open (on /dev/null where the parent closed them, so that no file of ours ever takes
// their number), neither a reader that went away nor a limit on the size of files ends the process,
// no terminal stops it, its children leave no zombies, and what it creates can be written by its
// own user and by nobody else. Call once, before anything else.
void secureProcessEnvironment();

}  // namespace ombrix::platform
