#include "Tests/Port/POSIX/RealDriver.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <map>
#include <optional>
#include <thread>

#include "Platform/NotificationCenter.h"
#include "Tests/Port/POSIX/ChildProcess.h"
#include "Tests/Port/PortDriver.h"

// The driver of a real machine, by the calls that all of them have.

namespace ombrix::tests {

namespace {

constexpr const char* posterArgument = "--post";
constexpr const char* idleProgram = "/bin/cat";

std::string realPath(const char* path) {
  char* const resolved = ::realpath(path, nullptr);
  std::string result(resolved == nullptr ? path : resolved);
  std::free(resolved);
  return result;
}

// Another program, since a Mac lets nobody post between fork(2) and exec(2).
void runPoster(std::string_view name, std::optional<uid_t> user) {
  ChildProcess(thisProgram(), {"poster", posterArgument, std::string(name)}, user).wait();
}

}  // namespace

struct PortDriver::State {
  std::map<platform::ProcessId, ChildProcess> children;
};

PortDriver::PortDriver() : state(std::make_unique<State>()) {}

PortDriver::~PortDriver() = default;

PortDriver::Process PortDriver::startProcess() {
  ChildProcess child(idleProgram, {"cat"});
  const platform::ProcessId id = child.id();
  state->children.emplace(id, std::move(child));
  return {id, "cat", ::geteuid(), realPath(idleProgram)};
}

void PortDriver::endProcess(platform::ProcessId id) { state->children.erase(id); }

void PortDriver::postFromAnotherProcess(std::string_view name) { runPoster(name, std::nullopt); }

bool PortDriver::postAsStranger(std::string_view name) {
  if (exitStatusInChild([] { return becomeUser(strangerUser) ? 0 : 1; }) != 0) return false;
  runPoster(name, strangerUser);
  return true;
}

void PortDriver::sendSignal(int signalNumber) { ::kill(::getpid(), signalNumber); }

void PortDriver::nothingNewHappensFor(std::chrono::milliseconds /*limit*/) {}

// Real time passes by itself; the processor is kept, so that no timer is trusted to measure it.
void PortDriver::spend(std::chrono::milliseconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

bool actedAsPoster(int argumentCount, char** arguments) {
  if (argumentCount != 3 || std::string_view(arguments[1]) != posterArgument) return false;
  platform::postNotification(arguments[2]);
  return true;
}

}  // namespace ombrix::tests
