#include <string>

#include "Platform/NotificationCenter.h"
#include "Platform/SystemLog.h"
#include "Platform/macOS/Utf8.h"

// The sending side of the notification service.

namespace ombrix::platform {

void postNotification(std::string_view name) {
  const AutoreleasePool pool;
  CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  const CFOwner<CFStringRef> string = stringOf(name);
  if (center == nullptr || !string) {
    systemLog("Notification " + std::string(name) + " could not be posted.");
    return;
  }
  // The agent may run as root or in the session of another user than its commands'.
  CFNotificationCenterPostNotificationWithOptions(center, string.get(), nullptr, nullptr,
                                                  kCFNotificationPostToAllSessions);
}

}  // namespace ombrix::platform
