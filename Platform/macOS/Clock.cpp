#include "Platform/Clock.h"

#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_time.h>

namespace ombrix::platform {

Date currentDate() { return std::chrono::system_clock::now(); }

double absoluteTime() { return CFAbsoluteTimeGetCurrent(); }

std::uint64_t approximateTicks() { return ::mach_approximate_time(); }

TimeBase tickTimeBase() {
  mach_timebase_info_data_t base{};
  if (::mach_timebase_info(&base) != KERN_SUCCESS || base.denom == 0) return {};
  return {base.numer, base.denom};
}

}  // namespace ombrix::platform
