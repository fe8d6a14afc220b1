#include <dlfcn.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>

// Loaded before the agent's libraries: moves two clocks on by the seconds that the file
// $MOVABLE_CLOCK names, that of the wall and the one that counts sleep, as a sleep of the machine
// moves both and leaves CLOCK_MONOTONIC alone. (faketime also moves the timers of the agent's event
// loop, into the past if need be.)

namespace {

struct Offsets {
  double wall = 0;
  double asleep = 0;
};

Offsets readOffsets() {
  Offsets offsets;
  const char* const path = std::getenv("MOVABLE_CLOCK");
  FILE* const file = path != nullptr ? std::fopen(path, "re") : nullptr;
  if (file == nullptr) return offsets;
  if (std::fscanf(file, "%lf %lf", &offsets.wall, &offsets.asleep) != 2) offsets = {};
  std::fclose(file);
  return offsets;
}

void moveOn(timespec& time, double seconds) {
  constexpr long nanosecondsPerSecond = 1'000'000'000;
  const auto whole = static_cast<time_t>(seconds);
  time.tv_sec += whole;
  time.tv_nsec += static_cast<long>((seconds - static_cast<double>(whole)) * 1e9);
  time.tv_sec += time.tv_nsec / nanosecondsPerSecond;
  time.tv_nsec %= nanosecondsPerSecond;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Function = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, time);
  if (result != 0) return result;
  if (clock == CLOCK_REALTIME) moveOn(*time, readOffsets().wall);
  if (clock == CLOCK_BOOTTIME) moveOn(*time, readOffsets().asleep);
  return result;
}
