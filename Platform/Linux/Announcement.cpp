#include "Platform/Linux/Announcement.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdint>
#include <optional>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/RuntimeDirectory.h"

namespace ombrix::platform {

namespace {

// The machine's agent may wake those who watch it a few times in a while and no more.
constexpr std::uint64_t wakingInterval = 10'000'000;  // microseconds
constexpr unsigned wakingBurst = 16;

std::string fileNameOf(std::string_view notification) {
  return std::string(notification) + ".announced";
}

}  // namespace

void announce(std::string_view notification) {
  const std::optional<RuntimeDirectory> directory = machineAgentDirectory();
  if (!directory || directory->owner != ::geteuid()) return;
  const int folder = directory->descriptor.get();
  const std::string name = fileNameOf(notification);
  ::unlinkat(folder, name.c_str(), 0);  // of a process that was killed right here
  const FileDescriptor file(
      ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  ::unlinkat(folder, name.c_str(), 0);
}

AnnouncementWatch::AnnouncementWatch(std::string_view notification, std::function<void()>& received)
    : fileName(fileNameOf(notification)), received(received) {
  const std::optional<RuntimeDirectory> directory = machineAgentDirectory();
  if (!directory || directory->owner == ::geteuid() || eventLoop() == nullptr) return;
  sd_event_source* added = nullptr;
  if (sd_event_add_inotify(eventLoop(), &added, machineAgentPath,
                           IN_CREATE | IN_ONLYDIR | IN_DONT_FOLLOW, fileMade, this) < 0) {
    return;
  }
  source.reset(added);
  if (sd_event_source_set_ratelimit(added, wakingInterval, wakingBurst) < 0) source.reset();
}

int AnnouncementWatch::fileMade(sd_event_source* /*source*/, const inotify_event* event,
                                void* reference) {
  auto* const watch = static_cast<AnnouncementWatch*>(reference);
  if (event->len == 0 || watch->fileName != event->name) return 0;
  noteDelivery();
  watch->received();  // last, since the observer may end itself in there
  return 0;
}

}  // namespace ombrix::platform
