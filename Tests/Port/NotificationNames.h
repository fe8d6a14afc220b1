#pragma once

#include <unistd.h>

#include <string>

namespace ombrix::tests {

// A notification's name of this process's own, since some machines have one service for all.
inline std::string ownName(const std::string& purpose) {
  return "org.ombrix.port-tests." + std::to_string(::getpid()) + "." + purpose;
}

}  // namespace ombrix::tests
