#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/Announcement.h"
#include "Platform/Linux/NotificationSockets.h"
#include "Platform/Linux/RuntimeDirectory.h"
#include "Platform/Linux/SocketAddress.h"
#include "Platform/NotificationCenter.h"
#include "Platform/SystemLog.h"

// The sending side of the notification service: a datagram to every socket of that name.

namespace ombrix::platform {

namespace {

using std::chrono::steady_clock;

// How long a post waits, for all observers together, until those with full queues have read some.
constexpr std::chrono::milliseconds patience{500};
constexpr timespec pauseBetweenAttempts{0, 5'000'000};

// More sockets than any machine has agents; a directory that holds more is somebody's prank.
constexpr std::size_t mostSocketsTrusted = 4096;
constexpr std::size_t mostSocketsOfStranger = 64;

// An agent that runs answers within milliseconds, unless it is just writing thousands of records.
constexpr std::chrono::seconds timeForAnswers{5};

steady_clock::time_point answersUntil;  // at first long past

enum class Delivery { done, queueFull, ownerGone, notForUs };

// A socket in the file system, held so that its name can change its meaning no more.
struct Target {
  FileDescriptor entry;
  bool trusted = false;
  bool heeded = false;     // its answer would be
  bool addressed = false;  // otherwise it is only looked at whether anybody owns it still
};

Delivery deliver(const Target& target, std::string_view notification) {
  const FileDescriptor sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const SocketAddress address(std::to_string(target.entry.get()));
  if (!sender.valid()) return Delivery::queueFull;
  if (::connect(sender.get(), address.get(), SocketAddress::size()) != 0) {
    return errno == ECONNREFUSED ? Delivery::ownerGone : Delivery::notForUs;
  }
  if (!target.addressed) return Delivery::notForUs;
  if (::send(sender.get(), notification.data(), notification.size(), MSG_NOSIGNAL) >= 0) {
    return Delivery::done;
  }
  if (errno == EAGAIN || errno == ENOBUFS) return Delivery::queueFull;
  return errno == ECONNREFUSED || errno == ECONNRESET ? Delivery::ownerGone : Delivery::notForUs;
}

// True when this process posts to the observer's first socket; strangers have the second.
bool mayUseFirstSocket(uid_t observer) { return ::geteuid() == 0 || observer == ::geteuid(); }

class Post {
 public:
  explicit Post(std::string_view notification) : notification(notification) {}

  void visit(const RuntimeDirectory& directory) {
    const std::size_t limit = directory.trusted ? mostSocketsTrusted : mostSocketsOfStranger;
    for (const std::string& fileName : namesIn(directory.descriptor, limit)) {
      const auto name = parseSocketFileName(fileName);
      // Where only friends have sockets, also those of other names are looked at, lest the
      // leftovers of agents that were killed pile up.
      const bool ofInterest = name && (directory.trusted || name->notification == notification);
      if (ofInterest) attempt(directory, fileName, *name);
    }
  }

  // Tries those with full queues again until all have it or the patience is over.
  void finish() {
    const auto deadline = steady_clock::now() + patience;
    while (!waiting.empty() && steady_clock::now() < deadline) {
      ::nanosleep(&pauseBetweenAttempts, nullptr);
      std::erase_if(waiting, [this](const Target& target) {
        return tryDelivery(target) != Delivery::queueFull;
      });
    }
    if (waiting.empty()) return;
    systemLog("Notification " + std::string(notification) + " did not reach " +
              std::to_string(waiting.size()) + " of its observers: they do not read their queue.");
  }

 private:
  // Answers are awaited only from those who are heeded: a stranger could make this process wait.
  [[nodiscard]] Delivery tryDelivery(const Target& target) const {
    const Delivery delivery = deliver(target, notification);
    if (delivery == Delivery::done && target.heeded) {
      answersUntil = steady_clock::now() + timeForAnswers;
    }
    return delivery;
  }

  void attempt(const RuntimeDirectory& directory, const std::string& fileName,
               const SocketName& name) {
    Target target;
    target.trusted = directory.trusted;
    target.heeded = directory.trusted || directory.ofMachineAgent;
    target.entry = FileDescriptor(
        ::openat(directory.descriptor.get(), fileName.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!target.entry.valid() || ::fstat(target.entry.get(), &status) != 0) return;
    // In somebody's own directory only what is his own is a socket of his agent's.
    if (!S_ISSOCK(status.st_mode) || status.st_uid != directory.owner) return;
    target.addressed =
        name.notification == notification && name.forStrangers != mayUseFirstSocket(status.st_uid);

    const Delivery delivery = tryDelivery(target);
    if (delivery == Delivery::ownerGone) {
      ::unlinkat(directory.descriptor.get(), fileName.c_str(), 0);
    } else if (delivery == Delivery::queueFull && target.trusted) {
      waiting.push_back(std::move(target));
    }
  }

  std::string_view notification;
  std::vector<Target> waiting;
};

}  // namespace

steady_clock::time_point answersExpectedUntil() { return answersUntil; }

void postNotification(std::string_view name) {
  Post post(name);
  for (const RuntimeDirectory& directory : searchedRuntimeDirectories()) post.visit(directory);
  post.finish();
  announce(name);
}

}  // namespace ombrix::platform
