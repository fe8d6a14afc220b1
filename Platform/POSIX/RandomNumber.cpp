#include "Platform/RandomNumber.h"

#include <cstdlib>

namespace ombrix::platform {

// arc4random(3) never fails: where the system has no randomness it does not return at all.
std::optional<std::uint32_t> randomNumber() { return ::arc4random(); }

}  // namespace ombrix::platform
