#pragma once

#include <unistd.h>

#include <utility>

namespace ombrix::platform {

// Owns one open file descriptor, or none (-1), and closes it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int owned) : descriptor(owned) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { close(); }

  [[nodiscard]] int get() const { return descriptor; }
  [[nodiscard]] bool valid() const { return descriptor >= 0; }
  [[nodiscard]] int release() { return std::exchange(descriptor, -1); }

  // Closes at once. Returns false when the system reports that earlier writes were lost.
  bool close() {
    const int closing = release();
    return closing < 0 || ::close(closing) == 0;
  }

 private:
  int descriptor = -1;
};

}  // namespace ombrix::platform
