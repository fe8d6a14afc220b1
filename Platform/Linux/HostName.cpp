#include "Platform/HostName.h"

#include <unistd.h>

#include <array>

namespace ombrix::platform {

std::string hostName() {
  std::array<char, 256> name{};  // the kernel allows 64 (gethostname(2))
  if (::gethostname(name.data(), name.size() - 1) != 0) return {};
  return name.data();
}

}  // namespace ombrix::platform
