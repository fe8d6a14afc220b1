#include "Tests/Fuzz/Support/MadeUpProc.h"

#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string_view>

#include "Platform/Linux/ProcessStatus.h"
#include "Tests/Fuzz/Support/FuzzFolder.h"
#include "Tests/Fuzz/Support/OwnMachine.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Tests/Fuzz/Support/TaskName.h"

namespace ombrix::tests {

namespace {

using platform::ProcessId;
using Kind = MadeUpProcess::Kind;
using Executable = MadeUpProcess::Executable;

constexpr std::array<ProcessId, 2> alwaysThere = {4194300, 4194301};
constexpr std::array<ProcessId, 10> changing = {1, 2, 3, 9, 10, 11, 99, 100, 65536, 4194303};

std::string placeOf(ProcessId id) { return "/proc/" + std::to_string(id) + "/"; }

std::string statusOf(const MadeUpProcess& process) {
  const bool dead = process.kind == Kind::dead;
  const std::string user = "\t" + std::to_string(process.user);
  std::string text = "Name:\t" + escapedTaskName(process.name) + "\nState:\t" +
                     (dead ? "Z (zombie)" : "S (sleeping)") + "\nUid:\t7" + user + user + user +
                     "\n";
  if (process.kind == Kind::ordinary) text += "Kthread:\t0\n";
  if (process.kind == Kind::thread) text += "Kthread:\t1\n";
  if (process.kind == Kind::ofOlderKernel) text += "VmSize:\t    2344 kB\n";
  return text + "Threads:\t1\n";
}

std::string statOf(const MadeUpProcess& process) {
  const bool thread = process.kind == Kind::thread || process.kind == Kind::threadOfOlderKernel;
  return "7 (" + process.name + ") S 0 0 0 0 -1 " + (thread ? "2129984" : "4194560") + " 0 0\n";
}

MadeUpProcess thisProcess() {
  MadeUpProcess process;
  std::array<char, 16> name{};
  ::prctl(PR_GET_NAME, name.data());
  process.name = name.data();
  process.user = ::geteuid();
  process.path = std::filesystem::read_symlink("/proc/self/exe");
  return process;
}

}  // namespace

bool MadeUpProcess::counts() const {
  if (kind == Kind::garbled) {
    const auto status = platform::parseProcessStatus(garble.substr(0, 4096));
    return status && !status->kernelThread.value_or(false);
  }
  return kind != Kind::thread && kind != Kind::threadOfOlderKernel && kind != Kind::vanished;
}

std::optional<std::string> MadeUpProcess::executableAsRead() const {
  if (executable == Executable::unreadable) return std::nullopt;
  return executable == Executable::none ? "" : path;
}

void MadeUpProcess::write(const std::string& place) const {
  std::filesystem::create_directory(place);
  if (kind == Kind::vanished) return;
  writeFile(place + "status", kind == Kind::garbled ? garble : statusOf(*this));
  writeFile(place + "stat", statOf(*this));
  switch (executable) {
    case Executable::present:
      return std::filesystem::create_symlink(path, place + "exe");
    case Executable::deleted:
      return std::filesystem::create_symlink(path + " (deleted)", place + "exe");
    case Executable::none:
      return;
    case Executable::unreadable:
      return writeFile(place + "exe", "");  // which is no link
  }
}

MadeUpProcess processIn(Input& input) {
  constexpr std::size_t longestName = 15;
  constexpr std::array<platform::UserId, 4> users = {0, 1, 65534, 123456};
  MadeUpProcess process;
  process.kind = static_cast<Kind>(input.choice(7));
  process.name = input.text().substr(0, longestName);
  process.name = process.name.substr(0, process.name.find('\0'));
  process.user = users.at(input.choice(users.size()));
  process.executable = static_cast<Executable>(input.choice(4));
  process.path = input.text();
  process.path = "/" + process.path.substr(0, process.path.find('\0'));
  if (process.kind != Kind::garbled) return process;
  process.garble = input.text();
  // What the garble tells is what is to be expected of it.
  if (const auto status = platform::parseProcessStatus(process.garble)) {
    process.name = status->commandName;
    process.user = status->effectiveUserId;
  }
  return process;
}

void replaceProc() {
  enterOwnMachine();
  constexpr const char* replacement = "/run/proc";
  const std::string self = std::string(replacement) + "/" + std::to_string(::getpid());
  const std::string exec = "/proc/" + std::to_string(::getpid());
  std::filesystem::create_directory(replacement);
  bool replaced = ::mount("proc", replacement, "tmpfs", 0, "mode=755") == 0;
  std::filesystem::create_directory(self);
  std::filesystem::create_symlink(std::to_string(::getpid()), std::string(replacement) + "/self");
  replaced = replaced && ::mount(exec.c_str(), self.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
             ::mount(replacement, "/proc", nullptr, MS_MOVE, nullptr) == 0;
  require(replaced, "a /proc can be made up");
}

MadeUpProc::MadeUpProc() {
  all[::getpid()] = thisProcess();
  MadeUpProcess process;
  process.name = "usual";
  process.path = "/usr/bin/usual";
  for (const ProcessId id : alwaysThere) add(id, process);
}

MadeUpProc::~MadeUpProc() {
  while (all.size() > 1) {
    const auto last = std::prev(all.end());
    remove(last->first == ::getpid() ? std::prev(last)->first : last->first);
  }
}

void MadeUpProc::change(Input& input) {
  for (const ProcessId id : changing) {
    if (id == ::getpid()) continue;
    const unsigned what = input.choice(4);
    if (what == 3 && all.count(id) > 0) remove(id);
    if (what == 1 && all.count(id) == 0) add(id, processIn(input));
  }
}

void MadeUpProc::add(ProcessId id, const MadeUpProcess& process) {
  process.write(placeOf(id));
  all[id] = process;
}

void MadeUpProc::remove(ProcessId id) {
  std::filesystem::remove_all(placeOf(id));
  all.erase(id);
}

}  // namespace ombrix::tests
