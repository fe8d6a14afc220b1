#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/NotificationCenter.h"
#include "Platform/ProcessList.h"
#include "Platform/SystemPower.h"

// A scripted machine: the port behind the unit tests. A test makes one, sets what the agent is to
// find, runs a piece of the agent, and looks at what it did. Time stands still unless told.

namespace ombrix::tests {

class FakeMachine {
 public:
  FakeMachine();
  ~FakeMachine();
  FakeMachine(const FakeMachine&) = delete;
  FakeMachine& operator=(const FakeMachine&) = delete;

  // The machine that the port's functions act on: the test's, or a plain one when it made none.
  [[nodiscard]] static FakeMachine& current();

  // --- Processes -------------------------------------------------------------------------------
  struct Process {
    platform::ProcessId id = 0;
    std::optional<std::string> name;  // absent: hidden by the kernel
    platform::UserId user = 0;
    std::optional<std::string> executable;  // absent: the path may not be read
    bool endsBeforeEntry = false;           // listed, gone when its entry is asked for
    bool endsBeforePath = false;            // listed, gone when its path is asked for
  };
  std::vector<Process> processes;
  bool listFails = false;
  std::map<platform::UserId, std::string> users{{0, "root"}};
  int fetches = 0;
  std::vector<platform::ProcessId> entriesAsked;
  std::vector<platform::UserId> usersAsked;

  // A process "name" of root's in /usr/bin.
  void run(platform::ProcessId id, const std::string& name);
  void end(platform::ProcessId id);

  // --- Clocks ----------------------------------------------------------------------------------
  platform::Date date{std::chrono::seconds{1'709'287'200}};  // 2024-03-01 10:00:00 UTC
  std::uint64_t ticks = 1'000'000'000'000;
  platform::TimeBase timeBase;
  // When not zero, every look at the clock moves both clocks on by this much afterwards.
  std::chrono::nanoseconds driftPerLook{0};
  // Moves date and ticks on; with a base of 1/1 a tick is a nanosecond.
  void pass(std::chrono::nanoseconds duration);

  // --- What the agent told ---------------------------------------------------------------------
  std::vector<std::string> systemLog;
  [[nodiscard]] bool logged(std::string_view message) const;
  [[nodiscard]] int timesLogged(std::string_view message) const;

  // --- Service manager -------------------------------------------------------------------------
  // How often the agent had fetched the list when it first reported that it was ready.
  std::optional<int> fetchesWhenReady;

  // --- Small things ----------------------------------------------------------------------------
  std::string hostName = "testbench";
  bool digestFails = false;
  bool randomFails = false;
  std::uint32_t nextRandomNumber = 1;  // counts up by itself
  int memoryReleases = 0;

  // --- Notifications ---------------------------------------------------------------------------
  enum class Poster { ownUser, machineAgent, stranger };
  // As if another process had posted it; delivered in the run loop.
  void postFromOutside(const std::string& name, Poster poster = Poster::ownUser);
  std::vector<std::string> posted;                               // by the agent itself
  [[nodiscard]] std::vector<std::string> observedNames() const;  // in order of registration

  // --- Run loop --------------------------------------------------------------------------------
  // What happens during each wait, in order. When the script has ended, the loop has nothing left
  // to wait on, so that a metering loop under test comes to its end.
  std::deque<std::function<void()>> waits;
  std::vector<std::chrono::milliseconds> waitLimits;
  std::vector<int> signalsThatEndTheWait;

  // --- Power -----------------------------------------------------------------------------------
  bool powerRegistrationFails = false;
  bool powerDeregistrationFails = false;
  std::vector<std::string> powerCalls;  // "register", "allow 1 7" (connection, argument), ...
  // Delivered in the run loop.
  void sendPowerMessage(std::uint32_t messageType, std::uintptr_t argument = 0);

  // The port's side, not for tests.
  struct Observer {
    std::string name;
    platform::Posters posters = platform::Posters::everyone;
    std::function<void()>* received = nullptr;
  };
  std::vector<Observer*> observers;
  struct Event {
    const Observer* observer = nullptr;  // null: a power message
    std::uint32_t messageType = 0;
    std::uintptr_t argument = 0;
  };
  std::deque<Event> pending;
  platform::PowerCallback powerCallback = nullptr;
  void* powerReference = nullptr;
  void post(std::string_view name, Poster poster);
  // Hands out the oldest pending event; false when there is none.
  bool deliverOne();
};

}  // namespace ombrix::tests
