#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Platform/FileDescriptor.h"

// Child processes of the tests of real machines.

namespace ombrix::tests {

// A program that was started as a child and is ended, and buried, with this object.
class ChildProcess {
 public:
  // Has replaced itself by the program when the constructor returns. Its standard input stays open
  // for as long as this object lives, so that it ends by itself when the test is killed.
  ChildProcess(const std::string& program, std::vector<std::string> arguments,
               std::optional<uid_t> user = std::nullopt);
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;

  [[nodiscard]] pid_t id() const { return child; }
  // Waits for its own end; returns its exit status, or -1 when a signal ended it.
  int wait();

 private:
  pid_t child = -1;
  platform::FileDescriptor input;
};

// Runs `body` in a child process without another program, and returns the exit status. On a Mac
// nothing of CoreFoundation may be called in there.
int exitStatusInChild(const std::function<int()>& body);

// The user whom nobody is, on every system.
inline constexpr uid_t strangerUser = 65534;

// Becomes another user for good; false when this process may not.
[[nodiscard]] bool becomeUser(uid_t user);

}  // namespace ombrix::tests
