#include <chrono>
#include <cstdint>

#include "Platform/Linux/SleepMessages.h"
#include "Platform/SystemPower.h"
#include "Source/Core/ProcessManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Logging/LogManager.h"

// The accounting of sleep: a machine that sleeps, wakes, announces what it does or forgets to, in
// any order, and what the runs of its processes are told to have slept.

namespace ombrix::tests {

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr seconds before{1000};  // slept before the agent came

// Hands messages to a process table, as the port does, and adds up what they tell.
class Ledger {
 public:
  Ledger(FakeMachine& machine, ProcessManager& table) : machine(machine), table(table) {}

  void deliver(const platform::SleepMessages::Messages& messages) {
    for (const auto& message : messages) {
      const platform::Date now = machine.date;
      machine.date -= std::chrono::duration_cast<platform::Date::duration>(message.ago);
      note(message.type);
      table.powerMessageReceived(message.type, nullptr);
      machine.date = now;
    }
  }

  [[nodiscard]] nanoseconds told() const { return toldAll; }
  [[nodiscard]] std::uint32_t minutes() const { return toldMinutes; }

 private:
  void note(std::uint32_t type) {
    if (type == platform::messageSystemWillSleep) {
      require(machine.date >= lastWake, "no moment is told twice");
      lastSleep = machine.date;
      pending = true;
      return;
    }
    require(type == platform::messageSystemHasPoweredOn, "there are two kinds of message");
    if (!pending) return;  // which the table says in its log
    pending = false;
    lastWake = machine.date;
    require(lastWake >= lastSleep, "no sleep is shorter than nothing");
    toldAll += lastWake - lastSleep;
    toldMinutes += static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::minutes>(lastWake - lastSleep).count());
  }

  FakeMachine& machine;
  ProcessManager& table;
  bool pending = false;
  platform::Date lastSleep;
  platform::Date lastWake;
  nanoseconds toldAll{0};
  std::uint32_t toldMinutes = 0;
};

class Night {
 public:
  Night() {
    for (platform::ProcessId id = 1; id <= 3; ++id) machine.run(id, "process");
    std::ignore = table.refreshAndGetStopped();
  }

  void live(Input& input) {
    constexpr int mostEvents = 64;
    for (int i = 0; i < mostEvents && !input.empty(); ++i) happen(input);
    ledger.deliver(messages.looked(before + slept));
    requireBalance();
  }

 private:
  void happen(Input& input) {
    switch (input.choice(5)) {
      case 0:
        return machine.pass(durationIn(input));
      case 1: {
        const nanoseconds duration = durationIn(input);
        slept += duration;
        return machine.pass(duration);
      }
      case 2:
        ++announcements;
        announcedAwake = true;
        return ledger.deliver(messages.sleepAnnounced(before + slept));
      case 3:
        ++announcements;
        return ledger.deliver(messages.wakeAnnounced(before + slept));
      default:
        return ledger.deliver(messages.looked(before + slept));
    }
  }

  static nanoseconds durationIn(Input& input) {
    const auto amount = input.number<std::uint16_t>();
    if (input.flag()) return std::chrono::milliseconds(amount);
    return seconds(amount);
  }

  // What nobody announced may fall short by less than a second each time that it is looked at.
  void requireBalance() {
    const nanoseconds margin = seconds(announcements + 1);
    require(ledger.told() >= slept - margin, "no sleep is forgotten");
    if (!announcedAwake) require(ledger.told() <= slept, "no waking is called sleep");
    require(ledger.told() <= machine.date - began, "no more is slept than there was time");
    for (const auto& record : table.getAllProcessesAsStopped()) {
      require(record->pausedMinutes() == ledger.minutes(), "a run is told whole minutes of it");
    }
  }

  FakeMachine machine;
  platform::Date began = machine.date;
  ProcessManager table;
  Ledger ledger{machine, table};
  platform::SleepMessages messages{before};
  nanoseconds slept{0};
  int announcements = 0;
  bool announcedAwake = false;
};

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  // A log without a file keeps its lines.
  ombrix::LogManager::setLogLevel(ombrix::LogLevel::emergency);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  Input input(bytes, size);
  Night().live(input);
  return 0;
}
