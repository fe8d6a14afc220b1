#pragma once

#include <string>

#include "Platform/FileDescriptor.h"

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

// A file system over `folder` that a program answers for (fuse(4)), or would if it answered:
// whoever asks it anything waits for as long as this lives.
class SilentFileSystem {
 public:
  explicit SilentFileSystem(std::string folder);
  ~SilentFileSystem();
  SilentFileSystem(const SilentFileSystem&) = delete;
  SilentFileSystem& operator=(const SilentFileSystem&) = delete;

  // False where the kernel gives none.
  [[nodiscard]] bool mounted() const { return isMounted; }

 private:
  std::string folder;
  platform::FileDescriptor connection;
  bool isMounted = false;
};

}  // namespace ombrix::tests
