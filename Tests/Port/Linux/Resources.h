#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace ombrix::tests {

// While it lives, this process can open no further descriptor.
class NoFreeDescriptor {
 public:
  NoFreeDescriptor() {
    const int lowestFree = ::dup(STDERR_FILENO);
    ::close(lowestFree);
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit full{static_cast<rlim_t>(lowestFree), before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &full);
  }
  ~NoFreeDescriptor() { ::setrlimit(RLIMIT_NOFILE, &before); }
  NoFreeDescriptor(const NoFreeDescriptor&) = delete;
  NoFreeDescriptor& operator=(const NoFreeDescriptor&) = delete;

 private:
  rlimit before{};
};

inline std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

}  // namespace ombrix::tests
