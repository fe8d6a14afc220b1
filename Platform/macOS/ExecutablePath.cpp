#include <libproc.h>
#include <sys/proc_info.h>

#include "Platform/ProcessList.h"

namespace ombrix::platform {

// The kernel touches the buffer on success only. It answers ESRCH for an ended process and just so
// for its own process 0 and for zombies, which all stay in the list: hence never processGone.
PathResult executablePath(ProcessId processId, ExecutablePath& path) {
  static_assert(sizeof(ExecutablePath) == PROC_PIDPATHINFO_MAXSIZE);
  const int length = ::proc_pidpath(processId, path.data(), sizeof(path));
  return length > 0 ? PathResult::found : PathResult::unreadable;
}

}  // namespace ombrix::platform
