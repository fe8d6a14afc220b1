#include "Tests/Fuzz/Support/DirectoryDouble.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace ombrix::tests {

namespace {

std::string& permitted() {
  static std::string folder;
  return folder;
}

bool climbs(std::string_view path) { return path.find("..") != std::string_view::npos; }

bool isPermitted(std::string_view path) {
  if (permitted().empty() || climbs(path)) return false;
  return !path.starts_with('/') || path.starts_with(permitted());
}

}  // namespace

void makeDirectoriesOnlyIn(const std::string& folder) { permitted() = folder; }

}  // namespace ombrix::tests

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  if (ombrix::tests::isPermitted(path)) {
    return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
  }
  errno = EACCES;
  return -1;
}
