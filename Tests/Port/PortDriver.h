#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/ProcessList.h"

// Makes things happen on the machine behind the port, so that the same tests hold every port to the
// contracts: on a real machine with real processes, on the scripted one by its script. One at a
// time.

namespace ombrix::tests {

class PortDriver {
 public:
  PortDriver();
  ~PortDriver();
  PortDriver(const PortDriver&) = delete;
  PortDriver& operator=(const PortDriver&) = delete;

  // --- Processes -------------------------------------------------------------------------------
  struct Process {
    platform::ProcessId id = 0;
    std::string commandName;
    platform::UserId user = 0;
    std::string executable;
  };
  // Starts a process that does nothing, and ends at the latest with this object.
  [[nodiscard]] Process startProcess();
  // Ends it for good: when this returns, the kernel knows of it no more.
  void endProcess(platform::ProcessId id);

  // --- Notifications ---------------------------------------------------------------------------
  // Both have the poster ended when they return.
  void postFromAnotherProcess(std::string_view name);
  // The poster is an ordinary user and not the one of this process. Returns false, without a post,
  // where this process cannot become another user.
  [[nodiscard]] bool postAsStranger(std::string_view name);

  // --- The run loop ----------------------------------------------------------------------------
  // Sends a signal to this process, to arrive before the next wait or during it.
  void sendSignal(int signalNumber);
  // Announces that the next wait, of this limit, is to see nothing but what is pending already.
  void nothingNewHappensFor(std::chrono::milliseconds limit);

  // Returns when this much time has passed by the clocks of the machine.
  void spend(std::chrono::milliseconds duration);

 private:
  struct State;
  std::unique_ptr<State> state;
};

// In what the contracts leave to the port.
struct PortTraits {
  bool tellsWhoPosted = false;
  // False where what several observers are to hear may come as one source of the run loop.
  bool observersAreSources = false;
  // False where a run loop without a source returns at once.
  bool canWaitForNothing = false;
};
[[nodiscard]] PortTraits portTraits();

}  // namespace ombrix::tests
