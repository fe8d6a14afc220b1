#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/Announcement.h"
#include "Platform/Linux/Datagram.h"
#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/NotificationSockets.h"
#include "Platform/Linux/RuntimeDirectory.h"
#include "Platform/Linux/SocketAddress.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RandomNumber.h"
#include "Platform/SystemLog.h"

// The receiving side of the notification service: datagram sockets in a runtime directory.

namespace ombrix::platform {

namespace {

using std::chrono::steady_clock;

// At most so many datagrams are taken at once, so that a sender who never stops cannot keep the
// agent in here.
constexpr int mostTakenAtOnce = 64;

// Strangers may wake the agent a few times in a while and no more.
constexpr std::uint64_t strangersInterval = 10'000'000;  // microseconds
constexpr unsigned strangersBurst = 5;

// Who listens to everyone is asked things (is anybody running?). It lets the answers to what it has
// asked itself come first: of several agents that start together beside a running one, some would
// otherwise answer the others before they are answered.
struct Manner {
  bool forStrangers = false;
  std::int64_t priority = SD_EVENT_PRIORITY_NORMAL;
  steady_clock::time_point notBefore;  // by default long past
};

enum class Reception { nothingLeft, heeded, ignored };

// Takes one datagram. There is room for the sender's credentials and for nothing else, so that
// descriptors that come along are dropped by the kernel.
Reception receive(int socket, std::string_view expected, bool fromAnyone) {
  std::array<char, 128> bytes{};
  iovec buffer{bytes.data(), bytes.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
  msghdr message{};
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t length = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (length < 0) return Reception::nothingLeft;
  const Datagram datagram = datagramIn(message, static_cast<std::size_t>(length));
  const bool heeded = isHeeded(datagram, expected, fromAnyone, ::geteuid());
  return heeded ? Reception::heeded : Reception::ignored;
}

// One bound socket, its place in the event loop, and its name in the directory.
class ReceivingSocket {
 public:
  ReceivingSocket(std::string notification, const Manner& manner, std::function<void()>& received)
      : notification(std::move(notification)), manner(manner), received(received) {}
  ReceivingSocket(const ReceivingSocket&) = delete;
  ReceivingSocket& operator=(const ReceivingSocket&) = delete;
  ~ReceivingSocket() { removeName(); }

  bool open() {
    auto directory = ownRuntimeDirectory();
    if (!directory || eventLoop() == nullptr) return false;
    directoryDescriptor = std::move(directory->descriptor);
    // Whoever clears away what is old in /tmp leaves a locked directory alone (tmpfiles.d(5)). That
    // somebody listens at a socket in it could not be told from the kernel's list: the path by
    // which it was bound is another.
    std::ignore = ::flock(directoryDescriptor.get(), LOCK_SH | LOCK_NB);
    socket = FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int yes = 1;
    // Before the name exists, or else a datagram could arrive without its sender's credentials.
    return socket.valid() &&
           ::setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof(yes)) == 0 && bind() &&
           attach();
  }

  void removeName() {
    if (!name.empty()) ::unlinkat(directoryDescriptor.get(), name.c_str(), 0);
    name.clear();
  }

 private:
  bool bind() {
    constexpr int attempts = 8;  // two equal random numbers in a row are unheard of
    for (int attempt = 0; attempt < attempts; ++attempt) {
      const std::string candidate =
          socketFileName({notification, manner.forStrangers}, randomNumber().value_or(0));
      const SocketAddress address(std::to_string(directoryDescriptor.get()) + "/" + candidate);
      if (::bind(socket.get(), address.get(), SocketAddress::size()) != 0) continue;
      name = candidate;
      const mode_t mode = manner.forStrangers ? 0666 : 0600;
      return ::fchmodat(directoryDescriptor.get(), name.c_str(), mode, 0) == 0;
    }
    return false;
  }

  bool attach() {
    sd_event_source* added = nullptr;
    if (sd_event_add_io(eventLoop(), &added, socket.get(), EPOLLIN, readable, this) < 0) {
      return false;
    }
    source.reset(added);
    if (sd_event_source_set_priority(added, manner.priority) < 0) return false;
    return !manner.forStrangers ||
           sd_event_source_set_ratelimit(added, strangersInterval, strangersBurst) >= 0;
  }

  static int readable(sd_event_source* /*source*/, int /*socket*/, std::uint32_t /*events*/,
                      void* reference) {
    static_cast<ReceivingSocket*>(reference)->takeWaiting();
    return 0;
  }

  // Equal notifications that wait together are one.
  void takeWaiting() {
    bool anyHeeded = false;
    for (int taken = 0; taken < mostTakenAtOnce; ++taken) {
      const Reception reception = receive(socket.get(), notification, manner.forStrangers);
      if (reception == Reception::nothingLeft) break;
      anyHeeded = anyHeeded || reception == Reception::heeded;
    }
    if (anyHeeded && !deliverLater()) deliver();
  }

  void deliver() {
    noteDelivery();
    received();  // last, since the observer may end itself in there
  }

  // True when the delivery has been put off.
  bool deliverLater() {
    const auto left = manner.notBefore - steady_clock::now();
    if (left <= steady_clock::duration::zero()) return false;
    if (delivery) return true;
    sd_event_source* added = nullptr;
    const auto delay = std::chrono::ceil<std::chrono::microseconds>(left).count();
    if (sd_event_add_time_relative(eventLoop(), &added, CLOCK_MONOTONIC,
                                   static_cast<std::uint64_t>(delay), 0, settled, this) < 0) {
      return false;
    }
    delivery.reset(added);
    return sd_event_source_set_priority(added, manner.priority) >= 0;
  }

  static int settled(sd_event_source* /*source*/, std::uint64_t /*time*/, void* reference) {
    static_cast<ReceivingSocket*>(reference)->deliver();
    return 0;
  }

  std::string notification;
  Manner manner;
  std::function<void()>& received;
  FileDescriptor directoryDescriptor;
  std::string name;
  FileDescriptor socket;
  EventSource delivery;  // one that was put off; fires once
  EventSource source;    // after the socket, so that it leaves the loop before the socket is closed
};

// The sockets that have a name. A process that calls exit() leaves its observers undestroyed; their
// names are removed all the same.
class SocketRegister {
 public:
  SocketRegister() = default;
  SocketRegister(const SocketRegister&) = delete;
  SocketRegister& operator=(const SocketRegister&) = delete;
  ~SocketRegister() {
    for (ReceivingSocket* socket : sockets) socket->removeName();
  }
  static SocketRegister& instance() {
    static SocketRegister theOne;
    return theOne;
  }
  std::set<ReceivingSocket*> sockets;
};

void reportUnobservableOnce() {
  static bool reported = false;
  if (std::exchange(reported, true)) return;
  systemLog(
      "No notifications can be received: neither /run/ombrix nor a directory of this user's own "
      "can be used. Commands will not reach this process.");
}

}  // namespace

struct NotificationObserver::Registration {
  explicit Registration(std::function<void()> received) : received(std::move(received)) {}

  void listen(const std::string& name, const Manner& manner,
              std::optional<ReceivingSocket>& receiving) {
    receiving.emplace(name, manner, received);
    if (receiving->open()) {
      SocketRegister::instance().sockets.insert(&*receiving);
    } else {
      receiving.reset();
      reportUnobservableOnce();
    }
  }
  ~Registration() {
    if (own) SocketRegister::instance().sockets.erase(&*own);
    if (strangers) SocketRegister::instance().sockets.erase(&*strangers);
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  std::function<void()> received;
  std::optional<ReceivingSocket> own;
  std::optional<ReceivingSocket> strangers;
  std::optional<AnnouncementWatch> announcements;
};

NotificationObserver::NotificationObserver(std::string name, Posters posters,
                                           std::function<void()> received)
    : registration(std::make_unique<Registration>(std::move(received))) {
  const std::string notification = std::move(name);
  Manner manner;
  if (posters == Posters::everyone) {
    manner.priority = SD_EVENT_PRIORITY_IDLE;
    manner.notBefore = answersExpectedUntil();
  }
  registration->listen(notification, manner, registration->own);
  if (posters == Posters::trustedAgents) {
    registration->announcements.emplace(notification, registration->received);
  }
  if (posters != Posters::everyone) return;
  manner.forStrangers = true;
  registration->listen(notification, manner, registration->strangers);
}

NotificationObserver::~NotificationObserver() = default;

}  // namespace ombrix::platform
