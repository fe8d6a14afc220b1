#pragma once

#include <string>

// Surroundings of its own for each test of the port: nothing that it does to /run, /tmp, the mounts
// or the host's name reaches the machine, and no agent of the machine's hears it.

namespace ombrix::tests {

// Moves this process into namespaces of its own, in which what it mounts is nobody else's business.
// Returns false where the kernel gives it none.
[[nodiscard]] bool enterPrivateNamespaces();

// The same, with an empty /run and /tmp.
[[nodiscard]] bool enterPrivateMachine();

// Hides `folder` behind a new file system in memory with these mount options and flags.
[[nodiscard]] bool mountMemory(const std::string& folder, const char* options,
                               unsigned long flags = 0);

}  // namespace ombrix::tests
