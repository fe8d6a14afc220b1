#include <algorithm>
#include <cstdio>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/Digest.h"
#include "Platform/HostName.h"
#include "Platform/NotificationCenter.h"
#include "Platform/ProcessList.h"
#include "Platform/ProcessMemory.h"
#include "Platform/RandomNumber.h"
#include "Platform/RunLoop.h"
#include "Platform/ServiceManager.h"
#include "Platform/SystemLog.h"
#include "Platform/SystemPower.h"
#include "Platform/UserDirectory.h"
#include "Tests/FakePlatform/FakeMachine.h"

// The contracts of Platform/, answered by the scripted machine.

namespace ombrix::platform {

using tests::FakeMachine;

// --- ProcessList.h -------------------------------------------------------------------------------

struct ProcessList::State {
  std::vector<ProcessId> processIds;
  std::vector<FakeMachine::Process> processes;
};

ProcessList::ProcessList() : state(std::make_unique<State>()) {}

ProcessList::~ProcessList() = default;

bool ProcessList::fetch() {
  FakeMachine& machine = FakeMachine::current();
  ++machine.fetches;
  state->processIds.clear();
  state->processes.clear();
  if (machine.listFails) return false;
  state->processes = machine.processes;
  for (const auto& process : state->processes) state->processIds.push_back(process.id);
  return true;
}

const std::vector<ProcessId>& ProcessList::processIds() const { return state->processIds; }

std::optional<ProcessEntry> ProcessList::entry(std::size_t index) {
  const FakeMachine::Process& process = state->processes.at(index);
  FakeMachine::current().entriesAsked.push_back(process.id);
  if (process.endsBeforeEntry) return std::nullopt;
  return ProcessEntry{process.name, process.user};
}

PathResult executablePath(ProcessId processId, ExecutablePath& path) {
  for (const FakeMachine::Process& process : FakeMachine::current().processes) {
    if (process.id != processId) continue;
    if (process.endsBeforePath) return PathResult::processGone;
    if (!process.executable) return PathResult::unreadable;
    *std::copy(process.executable->begin(), process.executable->end(), path.begin()) = '\0';
    return PathResult::found;
  }
  return PathResult::processGone;
}

// --- UserDirectory.h, HostName.h, RandomNumber.h, Digest.h, ProcessMemory.h ---------------------

std::optional<std::string> userName(UserId userId) {
  FakeMachine& machine = FakeMachine::current();
  machine.usersAsked.push_back(userId);
  const auto user = machine.users.find(userId);
  if (user == machine.users.end()) return std::nullopt;
  return user->second;
}

std::string hostName() { return FakeMachine::current().hostName; }

std::optional<std::uint32_t> randomNumber() {
  FakeMachine& machine = FakeMachine::current();
  if (machine.randomFails) return std::nullopt;
  return machine.nextRandomNumber++;
}

// No SHA-1, but as long, and another one for other bytes.
std::optional<Sha1Digest> sha1(std::string_view bytes) {
  if (FakeMachine::current().digestFails) return std::nullopt;
  constexpr std::uint64_t prime = 1099511628211U;
  std::uint64_t mixed = 14695981039346656037U;
  for (const char byte : bytes) mixed = (mixed ^ static_cast<std::uint8_t>(byte)) * prime;
  Sha1Digest digest{};
  for (std::uint8_t& out : digest) {
    mixed = (mixed ^ (mixed >> 29U)) * prime;
    out = static_cast<std::uint8_t>(mixed >> 56U);
  }
  return digest;
}

void releaseStartupMemory() { ++FakeMachine::current().memoryReleases; }

// --- Clock.h -------------------------------------------------------------------------------------

namespace {

template <class Reading>
Reading read(const Reading& clock) {
  const Reading reading = clock;
  FakeMachine& machine = FakeMachine::current();
  machine.pass(machine.driftPerLook);
  return reading;
}

}  // namespace

Date currentDate() { return read(FakeMachine::current().date); }

double absoluteTime() {
  constexpr double epoch = 978307200.0;
  const std::chrono::duration<double> since1970 = currentDate().time_since_epoch();
  return since1970.count() - epoch;
}

std::uint64_t approximateTicks() { return read(FakeMachine::current().ticks); }

TimeBase tickTimeBase() { return FakeMachine::current().timeBase; }

// --- SystemLog.h ---------------------------------------------------------------------------------

// Also on standard error, where the parent of a death test finds it.
void systemLog(std::string_view message) {
  FakeMachine::current().systemLog.emplace_back(message);
  std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
}

// --- NotificationCenter.h ------------------------------------------------------------------------

struct NotificationObserver::Registration {
  std::function<void()> received;
  FakeMachine::Observer observer;
};

NotificationObserver::NotificationObserver(std::string name, Posters posters,
                                           std::function<void()> received)
    : registration(std::make_unique<Registration>()) {
  registration->received = std::move(received);
  registration->observer = {std::move(name), posters, &registration->received};
  FakeMachine::current().observers.push_back(&registration->observer);
}

NotificationObserver::~NotificationObserver() {
  FakeMachine& machine = FakeMachine::current();
  std::erase(machine.observers, &registration->observer);
  std::erase_if(machine.pending, [this](const FakeMachine::Event& event) {
    return event.observer == &registration->observer;
  });
}

void postNotification(std::string_view name) {
  FakeMachine& machine = FakeMachine::current();
  machine.posted.emplace_back(name);
  machine.post(name, FakeMachine::Poster::ownUser);
}

// --- RunLoop.h -----------------------------------------------------------------------------------

bool runLoopRunOnce(std::chrono::milliseconds limit) {
  FakeMachine& machine = FakeMachine::current();
  machine.waitLimits.push_back(limit);
  if (machine.waits.empty()) return machine.deliverOne();
  const std::function<void()> happening = std::move(machine.waits.front());
  machine.waits.pop_front();
  happening();
  machine.deliverOne();
  return true;
}

void endWaitOnSignal(int signalNumber) {
  FakeMachine::current().signalsThatEndTheWait.push_back(signalNumber);
}

// --- ServiceManager.h ----------------------------------------------------------------------------

void reportReady() {
  FakeMachine& machine = FakeMachine::current();
  if (!machine.fetchesWhenReady) machine.fetchesWhenReady = machine.fetches;
}

// --- SystemPower.h -------------------------------------------------------------------------------

PowerConnection registerForSystemPower(void* reference, PowerCallback callback,
                                       PowerNotifier& notifier) {
  FakeMachine& machine = FakeMachine::current();
  machine.powerCalls.emplace_back("register");
  if (machine.powerRegistrationFails) return 0;
  machine.powerCallback = callback;
  machine.powerReference = reference;
  notifier = 2;
  return 1;
}

void allowPowerChange(PowerConnection connection, void* argument) {
  FakeMachine::current().powerCalls.push_back(
      "allow " + std::to_string(connection) + " " +
      std::to_string(reinterpret_cast<std::uintptr_t>(argument)));
}

bool deregisterForSystemPower(PowerNotifier& notifier) {
  FakeMachine& machine = FakeMachine::current();
  machine.powerCalls.push_back("deregister " + std::to_string(notifier));
  const bool registered = std::exchange(machine.powerCallback, nullptr) != nullptr;
  return registered && !machine.powerDeregistrationFails;
}

void closePowerConnection(PowerConnection connection) {
  FakeMachine::current().powerCalls.push_back("close " + std::to_string(connection));
}

void releasePowerNotifier(PowerNotifier notifier) {
  FakeMachine::current().powerCalls.push_back("release " + std::to_string(notifier));
}

}  // namespace ombrix::platform
