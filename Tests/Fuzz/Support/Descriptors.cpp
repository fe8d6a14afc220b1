#include "Tests/Fuzz/Support/Descriptors.h"

#include <dirent.h>

#include "Tests/Fuzz/Support/Require.h"

namespace ombrix::tests {

std::size_t openDescriptorCount() {
  DIR* const directory = ::opendir("/proc/self/fd");
  require(directory != nullptr, "descriptors can be counted");
  std::size_t count = 0;
  while (::readdir(directory) != nullptr) ++count;
  ::closedir(directory);
  return count;
}

}  // namespace ombrix::tests
