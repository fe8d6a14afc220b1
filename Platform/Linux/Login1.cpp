#include "Platform/Linux/Login1.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>

namespace ombrix::platform {

namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* object = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";

constexpr const char* busService = "org.freedesktop.DBus";
constexpr const char* busObject = "/org/freedesktop/DBus";

constexpr const char* busAddress = "unix:path=/run/dbus/system_bus_socket";

// How long the first inquiry may hold up the start of the agent. A bus answers within a
// millisecond; one that takes longer is waited for in the run loop.
constexpr std::chrono::seconds patience{2};

// How long a line that broke is left alone. One that breaks again and again, as of a bus that takes
// nobody any more, is no reason for work without end.
constexpr microseconds pauseAfterBreak = std::chrono::seconds{1};

// A signal proves nothing by its name: the system bus lets every user send one straight to another
// connection. The sender's unique name is the bus's own word.
bool sentBy(sd_bus_message* message, std::string_view sender) {
  const char* const actual = sd_bus_message_get_sender(message);
  return actual != nullptr && actual == sender;
}

// False while the library only watches for a socket to appear, which it does on a descriptor of
// another kind.
bool hasSocket(sd_bus* bus) {
  struct stat status {};
  return ::fstat(sd_bus_get_fd(bus), &status) == 0 && S_ISSOCK(status.st_mode);
}

}  // namespace

Login1::Login1(std::function<void(bool)> preparingForSleep)
    : preparingForSleep(std::move(preparingForSleep)) {}

void Login1::start() {
  starting = true;
  if (connect()) awaitOwner();
  starting = false;
  if (present()) {
    askWhetherPreparing();
    takeLock();
  }
}

bool Login1::connect() {
  sd_event* const loop = eventLoop();
  sd_bus* created = nullptr;
  if (loop == nullptr || sd_bus_new(&created) < 0) {
    broken = true;
    return false;
  }
  bus.reset(created);
  const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  // Watching: where there is no socket yet, the library waits for one in the event loop.
  const bool connected =
      sd_bus_set_address(created, address != nullptr ? address : busAddress) >= 0 &&
      sd_bus_set_bus_client(created, 1) >= 0 && sd_bus_set_watch_bind(created, 1) >= 0 &&
      sd_bus_start(created) >= 0;
  if (!connected || sd_bus_attach_event(created, loop, SD_EVENT_PRIORITY_NORMAL) < 0) {
    bus.reset();
    broken = true;
    return false;
  }
  subscribe();
  return true;
}

// The bus handles what one connection sends in its order: whatever is asked later is asked by a
// subscriber, so that no announcement can fall between.
void Login1::subscribe() {
  sd_bus* const on = bus.get();
  sd_bus_add_filter(on, nullptr, onFilter, this);
  sd_bus_match_signal_async(on, nullptr, service, object, managerInterface, "PrepareForSleep",
                            onPrepareForSleep, nullptr, this);
  sd_bus_add_match_async(on, nullptr,
                         "type='signal',sender='org.freedesktop.DBus',"
                         "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
                         "arg0='org.freedesktop.login1'",
                         onOwnerChanged, nullptr, this);
  sd_bus_call_method_async(on, nullptr, busService, busObject, busService, "GetNameOwner", onOwner,
                           this, "s", service);
}

void Login1::awaitOwner() {
  const auto deadline = steady_clock::now() + patience;
  while (!ownerKnown && bus) {
    const int processed = sd_bus_process(bus.get(), nullptr);
    if (processed < 0) return connectionLost();
    if (processed > 0) continue;
    const auto left = std::chrono::duration_cast<microseconds>(deadline - steady_clock::now());
    if (left.count() <= 0 || !hasSocket(bus.get())) return;
    const int waited = sd_bus_wait(bus.get(), static_cast<std::uint64_t>(left.count()));
    if (waited < 0 && waited != -EINTR) return;
  }
}

void Login1::ownerChanged(std::string newOwner) {
  ownerKnown = true;
  owner = std::move(newOwner);
  // A lock of the logind that was is worth nothing to the one that is.
  lock.close();
  lockAsked = false;
  if (!present() || starting) return;
  askWhetherPreparing();
  takeLock();
}

void Login1::connectionLost() {
  ownerChanged({});
  broken = true;
  sd_event_source* added = nullptr;
  // Where there is no memory for a source, the next look makes the line again.
  sd_event_add_time_relative(eventLoop(), &added, CLOCK_MONOTONIC, pauseAfterBreak.count(), 0,
                             onPauseOver, this);
  reconnectSource.reset(added);
}

void Login1::reconnectIfBroken() {
  if (!std::exchange(broken, false)) return;
  bus.reset();
  ownerKnown = false;
  connect();
}

void Login1::askWhetherPreparing() {
  sd_bus_call_method_async(bus.get(), nullptr, service, object, "org.freedesktop.DBus.Properties",
                           "Get", onPreparing, this, "ss", managerInterface, "PreparingForSleep");
}

void Login1::takeLock() {
  sleeping = false;
  if (!present() || lock.valid() || lockAsked) return;
  lockAsked = sd_bus_call_method_async(
                  bus.get(), nullptr, service, object, managerInterface, "Inhibit", onLock, this,
                  "ssss", "sleep", "Ombrix",
                  "Notes when the machine goes to sleep, to keep slept time out of usage records",
                  "delay") >= 0;
}

void Login1::releaseLock() { lock.close(); }

void Login1::announce(bool nowSleeping) {
  sleeping = nowSleeping;
  preparingForSleep(nowSleeping);
}

// Also sees the library's own message that the connection has ended, which no match gets.
int Login1::onFilter(sd_bus_message* message, void* reference, sd_bus_error* /*error*/) {
  if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected") > 0) {
    static_cast<Login1*>(reference)->connectionLost();
  }
  return 0;
}

int Login1::onOwner(sd_bus_message* message, void* reference, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  const bool answered = sd_bus_message_is_method_error(message, nullptr) == 0 &&
                        sd_bus_message_read(message, "s", &name) > 0;
  static_cast<Login1*>(reference)->ownerChanged(answered ? name : "");
  return 0;
}

int Login1::onOwnerChanged(sd_bus_message* message, void* reference, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  const char* oldOwner = nullptr;
  const char* newOwner = nullptr;
  if (!sentBy(message, busService)) return 0;
  if (sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) <= 0) return 0;
  if (std::string_view(name) == service) static_cast<Login1*>(reference)->ownerChanged(newOwner);
  return 0;
}

int Login1::onPrepareForSleep(sd_bus_message* message, void* reference, sd_bus_error* /*error*/) {
  auto* const login = static_cast<Login1*>(reference);
  int nowSleeping = 0;
  if (login->starting || !sentBy(message, login->owner)) return 0;
  if (sd_bus_message_read(message, "b", &nowSleeping) > 0) login->announce(nowSleeping != 0);
  return 0;
}

// Catches up on an announcement that was made before this process could hear it.
int Login1::onPreparing(sd_bus_message* message, void* reference, sd_bus_error* /*error*/) {
  auto* const login = static_cast<Login1*>(reference);
  int nowSleeping = 0;
  if (sd_bus_message_is_method_error(message, nullptr) != 0) return 0;
  if (sd_bus_message_read(message, "v", "b", &nowSleeping) <= 0) return 0;
  if (nowSleeping != 0 && !login->sleeping) login->announce(true);
  return 0;
}

int Login1::onLock(sd_bus_message* message, void* reference, sd_bus_error* /*error*/) {
  auto* const login = static_cast<Login1*>(reference);
  login->lockAsked = false;
  int descriptor = -1;
  if (sd_bus_message_is_method_error(message, nullptr) != 0) return 0;
  if (sd_bus_message_read(message, "h", &descriptor) <= 0) return 0;
  // The message keeps its own. A lock that comes when the sleep has been announced would only
  // delay it.
  if (!login->sleeping) {
    login->lock = FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
  }
  return 0;
}

int Login1::onPauseOver(sd_event_source* /*source*/, std::uint64_t /*time*/, void* reference) {
  static_cast<Login1*>(reference)->reconnectIfBroken();
  return 0;
}

}  // namespace ombrix::platform
