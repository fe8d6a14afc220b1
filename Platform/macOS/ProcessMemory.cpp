#include "Platform/ProcessMemory.h"

#include <malloc/malloc.h>

#include <tuple>

namespace ombrix::platform {

// The system's libraries are shared by all processes of a Mac; only the heap is this process's own.
void releaseStartupMemory() {
  malloc_zone_t* const everyZone = nullptr;
  constexpr std::size_t asMuchAsPossible = 0;
  std::ignore = ::malloc_zone_pressure_relief(everyZone, asMuchAsPossible);
}

}  // namespace ombrix::platform
