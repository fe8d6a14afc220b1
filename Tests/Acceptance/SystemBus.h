#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Acceptance/Program.h"

// A system bus of the test's own and a logind on it (LogindDouble.cpp).

namespace ombrix::tests {

class SystemBus {
 public:
  // The variable by which a program finds this bus.
  static constexpr const char* address = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/run/test-bus";

  // Starts the daemon and waits until it answers.
  SystemBus();
  // Kills the daemon, leaving its socket behind as a crash does.
  void kill() { daemon.reset(); }
  void restart();
  // Lets it answer nobody until it goes on.
  void stall() { daemon->signal(SIGSTOP); }
  void goOn() { daemon->signal(SIGCONT); }

 private:
  std::optional<Program> daemon;
};

// A lock as ListInhibitors shows it.
struct Inhibitor {
  std::string what;
  std::string who;
  std::string why;
  std::string mode;
};

class Logind {
 public:
  // Starts it and waits until it has its name.
  Logind() { start(); }
  void start();
  void kill() { program.reset(); }

  // Says that the machine is about to sleep, or awake again.
  void announce(bool sleeping) const;
  void setPreparing(bool sleeping) const;
  void refuseLocks() const;

  [[nodiscard]] std::vector<Inhibitor> inhibitors() const;
  [[nodiscard]] std::uint32_t locksTaken() const;
  [[nodiscard]] bool waitForLocks(std::size_t count) const;

 private:
  std::optional<Program> program;
};

// Sends the agent's connection a sleep signal straight from another user's, past all matches.
[[nodiscard]] bool forgeSleepAnnouncement(uid_t user);

}  // namespace ombrix::tests
