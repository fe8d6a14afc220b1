#include <dlfcn.h>
#include <time.h>

#include <cstdint>

// Loaded before the agent's libraries: the wall clock stands still and every random number is the
// same, so that the name of the next record is known beforehand.

extern "C" std::uint32_t arc4random() noexcept { return 4; }

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Function = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "clock_gettime"));
  if (clock != CLOCK_REALTIME) return real(clock, time);
  *time = {1709640000, 0};
  return 0;
}
