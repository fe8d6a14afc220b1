#include "Platform/ProcessList.h"

#include <sys/sysctl.h>

#include <cstring>

#include "Platform/BSDProcessList.h"

// The process list of macOS: one sysctl(3) tells everything of every process.

namespace ombrix::platform {

namespace {

static_assert(sizeof(struct kinfo_proc) == 648, "The kernel's size of an entry");

int fetchAllProcesses(void* buffer, std::size_t& length) {
  std::array<int, 3> name = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
  return ::sysctl(name.data(), static_cast<unsigned>(name.size()), buffer, &length, nullptr, 0);
}

std::string commandNameOf(const kinfo_proc& process) {
  const auto& name = process.kp_proc.p_comm;
  return {name, ::strnlen(name, sizeof(name))};
}

}  // namespace

struct ProcessList::State {
  std::vector<ProcessId> processIds;
  // What is told of the processes, in the same order: a few bytes of the 648 that the kernel gives.
  std::vector<ProcessEntry> entries;

  void add(const kinfo_proc& process) {
    processIds.push_back(process.kp_proc.p_pid);
    entries.push_back({commandNameOf(process), process.kp_eproc.e_ucred.cr_uid});
  }
};

ProcessList::ProcessList() : state(std::make_unique<State>()) {}

ProcessList::~ProcessList() = default;

bool ProcessList::fetch() {
  state->processIds.clear();
  state->entries.clear();
  BSDProcessList list;
  if (!GetBSDProcessList(fetchAllProcesses, list)) return false;
  const std::size_t count = list.length / sizeof(kinfo_proc);
  for (std::size_t index = 0; index < count; ++index) {
    kinfo_proc process;
    std::memcpy(&process, &list.bytes[index * sizeof(process)], sizeof(process));
    state->add(process);
  }
  return true;
}

const std::vector<ProcessId>& ProcessList::processIds() const { return state->processIds; }

std::optional<ProcessEntry> ProcessList::entry(std::size_t index) {
  return state->entries.at(index);
}

}  // namespace ombrix::platform
