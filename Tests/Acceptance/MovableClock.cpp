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

Launch withMovableClockIn(const std::string& zone) {
  Launch launch = withMovableClock();
  launch.machinesZone = true;
  launch.environment.push_back("TZ=" + zone);
  return launch;
}

std::time_t universal(int year, int month, int day, int hour, int minute) {
  std::tm date{};
  date.tm_year = year - 1900;
  date.tm_mon = month - 1;
  date.tm_mday = day;
  date.tm_hour = hour;
  date.tm_min = minute;
  return ::timegm(&date);
}

void setWallClock(std::time_t moment) {
  moveWallClock(static_cast<double>(moment - std::time(nullptr)));
}

void moveWallClock(double seconds) { setOffsets(seconds, 0); }

void passAsleep(double seconds) { setOffsets(seconds, seconds); }

}  // namespace ombrix::tests
