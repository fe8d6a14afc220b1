#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

// Machine-wide notifications: a bare name, posted by any process, delivered to every observer of
// that name that exists at the moment of the post. An observer registered later gets nothing; the
// poster may end at once. Delivery happens in the observer's run loop only (RunLoop.h). Equal
// notifications that wait together may be delivered as one. An observer that hears everyone may
// hear it some seconds later while answers to this process's own posts may come.

namespace ombrix::platform {

// Whose posts an observer hears, where the system can tell (macOS cannot: there, everyone's).
enum class Posters {
  rootAndOwnUser,
  // Also the agent of the whole machine, where root has let another user run it.
  trustedAgents,
  everyone,
};

// One observation. Registered by its address, hence neither copied nor moved; ends with the object.
// Where the machine offers no way to observe, the observer hears nothing and the system log says so
// once.
class NotificationObserver {
 public:
  NotificationObserver(std::string name, Posters posters, std::function<void()> received);
  ~NotificationObserver();
  NotificationObserver(const NotificationObserver&) = delete;
  NotificationObserver& operator=(const NotificationObserver&) = delete;

 private:
  struct Registration;
  std::unique_ptr<Registration> registration;
};

// Posts `name` to all its observers and returns without waiting for any of them. An observer that
// does not read its queue is left out after a short while, and the system log says so.
void postNotification(std::string_view name);

}  // namespace ombrix::platform
