#include "Tests/Acceptance/MovableClock.h"

#include <string>

#include "Tests/Acceptance/Files.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/SystemBus.h"

namespace ombrix::tests {

namespace {

constexpr const char* clockFile = "/tmp/movable-clock";

void setOffsets(double wall, double asleep) {
  replaceFile(clockFile, std::to_string(wall) + " " + std::to_string(asleep));
}

}  // namespace

Launch withMovableClock() {
  setOffsets(0, 0);
  Launch launch = ombrix();
  launch.environment = {SystemBus::address,
                        "LD_PRELOAD=" + executableFolder() + "/libMovableClock.so",
                        std::string("MOVABLE_CLOCK=") + clockFile};
  return launch;
}

void moveWallClock(double seconds) { setOffsets(seconds, 0); }

void passAsleep(double seconds) { setOffsets(seconds, seconds); }

}  // namespace ombrix::tests
