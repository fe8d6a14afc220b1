#include <utility>

#include "Platform/NotificationCenter.h"
#include "Platform/SystemLog.h"
#include "Platform/macOS/Utf8.h"

// The receiving side of the notification service: the distributed notification center, which
// delivers in the main run loop. It does not tell who posted, so that everybody is heard.

namespace ombrix::platform {

namespace {

void reportUnobservableOnce() {
  static bool reported = false;
  if (std::exchange(reported, true)) return;
  systemLog(
      "No notifications can be received: there is no distributed notification center here. "
      "Commands will not reach this process.");
}

}  // namespace

struct NotificationObserver::Registration {
  Registration(const std::string& name, std::function<void()> received)
      : name(stringOf(name)), received(std::move(received)) {}
  void observe() {
    CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
    if (center == nullptr || !name) return reportUnobservableOnce();
    CFNotificationCenterAddObserver(center, this, &deliver, name.get(), nullptr,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
  }
  ~Registration() {
    CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
    if (center == nullptr || !name) return;
    CFNotificationCenterRemoveObserver(center, this, name.get(), nullptr);
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  static void deliver(CFNotificationCenterRef /*center*/, void* observer,
                      CFNotificationName /*name*/, const void* /*object*/,
                      CFDictionaryRef /*userInformation*/) {
    // A copy, since the observer may end itself in there.
    const std::function<void()> received = static_cast<Registration*>(observer)->received;
    received();
  }

  CFOwner<CFStringRef> name;
  std::function<void()> received;
};

NotificationObserver::NotificationObserver(std::string name, Posters /*posters*/,
                                           std::function<void()> received) {
  const AutoreleasePool pool;
  registration = std::make_unique<Registration>(name, std::move(received));
  registration->observe();
}

NotificationObserver::~NotificationObserver() = default;

}  // namespace ombrix::platform
