#include "Platform/SystemLog.h"

#include <poll.h>
#include <unistd.h>

#include "Platform/macOS/Utf8.h"

// NSString and CFString are one class to the system ("toll-free bridged"), so that Foundation's
// function can be called from here.
extern "C" void NSLog(CFStringRef format, ...);

namespace ombrix::platform {

namespace {

// NSLog also writes to standard error, and would wait there for a reader that has stalled.
bool wouldWaitForReader() {
  pollfd request{STDERR_FILENO, POLLOUT, 0};
  return ::poll(&request, 1, 0) == 0;
}

// Bytes that are not UTF-8 are taken for Latin-1, in which every byte means something.
CFOwner<CFStringRef> readableString(std::string_view message) {
  CFOwner<CFStringRef> string = stringOf(message);
  return string ? std::move(string) : stringOf(message, kCFStringEncodingISOLatin1);
}

}  // namespace

void systemLog(std::string_view message) {
  if (wouldWaitForReader()) return;
  const AutoreleasePool pool;
  const CFOwner<CFStringRef> string = readableString(message);
  // The message is an argument, never the format: it may hold percent signs.
  if (string) NSLog(CFSTR("%@"), string.get());
}

}  // namespace ombrix::platform
