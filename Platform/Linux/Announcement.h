#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Platform/Linux/EventLoop.h"

// How the machine's agent is heard where another user than root runs it. It cannot write to the
// sockets of those whom it is to answer; so it makes a file of the notification's name in its own
// directory, where nobody else can, and whoever heeds it watches that directory (inotify(7)).

namespace ombrix::platform {

// Does nothing unless this process is of the user who runs the machine's agent.
void announce(std::string_view notification);

// Calls `received`, which outlives it, when the machine's agent announces this notification. Of
// other users only: the agent's own user has sockets for that. Registered by its address, hence
// neither copied nor moved.
class AnnouncementWatch {
 public:
  AnnouncementWatch(std::string_view notification, std::function<void()>& received);
  ~AnnouncementWatch() = default;
  AnnouncementWatch(const AnnouncementWatch&) = delete;
  AnnouncementWatch& operator=(const AnnouncementWatch&) = delete;

 private:
  static int fileMade(sd_event_source* source, const struct inotify_event* event, void* reference);

  std::string fileName;
  std::function<void()>& received;
  EventSource source;
};

}  // namespace ombrix::platform
