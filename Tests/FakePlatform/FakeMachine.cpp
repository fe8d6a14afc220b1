#include "Tests/FakePlatform/FakeMachine.h"

#include <algorithm>

namespace ombrix::tests {

namespace {

FakeMachine* currentMachine = nullptr;

bool isHeard(FakeMachine::Poster poster, platform::Posters heard) {
  switch (poster) {
    case FakeMachine::Poster::ownUser:
      return true;
    case FakeMachine::Poster::machineAgent:
      return heard != platform::Posters::rootAndOwnUser;
    case FakeMachine::Poster::stranger:
      return heard == platform::Posters::everyone;
  }
  return false;
}

}  // namespace

FakeMachine::FakeMachine() { currentMachine = this; }

FakeMachine::~FakeMachine() { currentMachine = nullptr; }

FakeMachine& FakeMachine::current() {
  // Made only when the agent asks for a machine and the test has none.
  if (currentMachine == nullptr) currentMachine = new FakeMachine;  // NOLINT: lives to the end
  return *currentMachine;
}

void FakeMachine::run(platform::ProcessId id, const std::string& name) {
  processes.push_back({id, name, 0, "/usr/bin/" + name, false, false});
}

void FakeMachine::end(platform::ProcessId id) {
  std::erase_if(processes, [id](const Process& process) { return process.id == id; });
}

void FakeMachine::pass(std::chrono::nanoseconds duration) {
  date += std::chrono::duration_cast<platform::Date::duration>(duration);
  ticks += static_cast<std::uint64_t>(duration.count());
}

bool FakeMachine::logged(std::string_view message) const { return timesLogged(message) > 0; }

int FakeMachine::timesLogged(std::string_view message) const {
  return static_cast<int>(std::count(systemLog.begin(), systemLog.end(), message));
}

void FakeMachine::postFromOutside(const std::string& name, Poster poster) { post(name, poster); }

std::vector<std::string> FakeMachine::observedNames() const {
  std::vector<std::string> names;
  for (const Observer* observer : observers) names.push_back(observer->name);
  return names;
}

void FakeMachine::sendPowerMessage(std::uint32_t messageType, std::uintptr_t argument) {
  if (powerCallback != nullptr) pending.push_back({nullptr, messageType, argument});
}

void FakeMachine::post(std::string_view name, Poster poster) {
  for (const Observer* observer : observers) {
    if (observer->name != name || !isHeard(poster, observer->posters)) continue;
    pending.push_back({observer, 0, 0});
  }
}

bool FakeMachine::deliverOne() {
  if (pending.empty()) return false;
  const Event event = pending.front();
  pending.pop_front();
  if (event.observer != nullptr) {
    (*event.observer->received)();
  } else if (powerCallback != nullptr) {
    powerCallback(powerReference, 0, event.messageType, reinterpret_cast<void*>(event.argument));
  }
  return true;
}

}  // namespace ombrix::tests
