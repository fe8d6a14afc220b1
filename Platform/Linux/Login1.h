#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/EventLoop.h"

// The agent's line to logind (org.freedesktop.login1(5)): hears of each sleep before it begins and
// holds a lock that lets the agent be asked first. Nothing here waits for the bus but the first
// inquiry, briefly; a bus or a logind that is away is waited for in the run loop, and a line that
// breaks is made again.

namespace ombrix::platform {

struct BusDeleter {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;

// Registered with the bus by its address, hence neither copied nor moved.
class Login1 {
 public:
  // `preparingForSleep` is called in the run loop with true before a sleep and false after it.
  explicit Login1(std::function<void(bool)> preparingForSleep);
  ~Login1() = default;
  Login1(const Login1&) = delete;
  Login1& operator=(const Login1&) = delete;

  // Connects, subscribes, and finds out whether logind is there. Call once.
  void start();

  // True while logind is on the bus.
  [[nodiscard]] bool present() const { return !owner.empty(); }

  // Makes a line again that could not be made or broke. To be called now and then; a line that
  // broke is also made again without it, after a second.
  void reconnectIfBroken();

  // Asks logind to delay the next sleep until releaseLock(), now that the machine is awake. A
  // refusal only means that the machine may be asleep before the agent has heard of it. Asks for
  // nothing while a lock is held or asked for.
  void takeLock();
  void releaseLock();

 private:
  bool connect();
  void subscribe();
  void awaitOwner();
  void ownerChanged(std::string newOwner);
  void connectionLost();
  void askWhetherPreparing();
  void announce(bool sleeping);

  static int onFilter(sd_bus_message* message, void* reference, sd_bus_error* error);
  static int onOwner(sd_bus_message* message, void* reference, sd_bus_error* error);
  static int onOwnerChanged(sd_bus_message* message, void* reference, sd_bus_error* error);
  static int onPrepareForSleep(sd_bus_message* message, void* reference, sd_bus_error* error);
  static int onPreparing(sd_bus_message* message, void* reference, sd_bus_error* error);
  static int onLock(sd_bus_message* message, void* reference, sd_bus_error* error);
  static int onPauseOver(sd_event_source* source, std::uint64_t time, void* reference);

  std::function<void(bool)> preparingForSleep;
  Bus bus;
  EventSource reconnectSource;
  bool broken = false;      // the line is to be made again
  std::string owner;        // logind's unique name on the bus; empty while it is away
  bool ownerKnown = false;  // the bus has answered, whatever it said
  bool starting = false;    // inside start(), where nothing may be announced yet
  bool sleeping = false;    // between the announcements of a sleep and of its end
  bool lockAsked = false;
  FileDescriptor lock;
};

}  // namespace ombrix::platform
