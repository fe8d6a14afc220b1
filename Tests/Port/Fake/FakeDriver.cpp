#include <csignal>

#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Port/PortDriver.h"

// The driver of the scripted machine.

namespace ombrix::tests {

struct PortDriver::State {
  FakeMachine machine;
  platform::ProcessId lastStarted = 100;
};

PortDriver::PortDriver() : state(std::make_unique<State>()) {}

PortDriver::~PortDriver() = default;

PortDriver::Process PortDriver::startProcess() {
  const platform::ProcessId id = ++state->lastStarted;
  state->machine.run(id, "idler");
  return {id, "idler", 0, "/usr/bin/idler"};
}

void PortDriver::endProcess(platform::ProcessId id) { state->machine.end(id); }

void PortDriver::postFromAnotherProcess(std::string_view name) {
  state->machine.postFromOutside(std::string(name));
}

bool PortDriver::postAsStranger(std::string_view name) {
  state->machine.postFromOutside(std::string(name), FakeMachine::Poster::stranger);
  return true;
}

void PortDriver::sendSignal(int signalNumber) {
  state->machine.waits.emplace_back([signalNumber] { ::raise(signalNumber); });
}

void PortDriver::nothingNewHappensFor(std::chrono::milliseconds limit) {
  state->machine.waits.emplace_back([this, limit] {
    if (state->machine.pending.empty()) state->machine.pass(limit);
  });
}

void PortDriver::spend(std::chrono::milliseconds duration) { state->machine.pass(duration); }

PortTraits portTraits() { return {true, true, false}; }

}  // namespace ombrix::tests
