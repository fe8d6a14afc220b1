#include "Platform/ProcessList.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/ProcPath.h"
#include "Platform/Linux/ProcessStatus.h"

// The process list of Linux: the numeric names in /proc give the ids; a process's own files are
// opened only when the table asks for its entry.

namespace ombrix::platform {

namespace {

// Room for all that is needed of a status or stat file; what comes after it is not looked at.
using FileBuffer = std::array<char, 4096>;

// The beginning of /proc/`processId``name`; nothing, with errno set, when it cannot be read.
std::optional<std::string_view> readProcessFile(int procDirectory, ProcessId processId,
                                                const char* name, FileBuffer& buffer) {
  const ProcPath path("", processId, name);
  const FileDescriptor file(::openat(procDirectory, path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return std::nullopt;
  const ssize_t length = ::read(file.get(), buffer.data(), buffer.size());
  if (length < 0) return std::nullopt;
  return std::string_view(buffer.data(), static_cast<std::size_t>(length));
}

// The entry of a process whose files are closed to this user (the mount option hidepid, proc(5)):
// nameless, and of the user who owns its directory, which is the effective one for most processes.
std::optional<ProcessEntry> hiddenEntry(int procDirectory, ProcessId processId) {
  struct stat status {};
  const ProcPath path("", processId, "");
  if (::fstatat(procDirectory, path.c_str(), &status, 0) != 0) return std::nullopt;
  return ProcessEntry{std::nullopt, status.st_uid};
}

std::optional<ProcessId> processIdNamed(const char* name) {
  ProcessId processId = 0;
  const char* end = name + std::strlen(name);
  const auto [stop, error] = std::from_chars(name, end, processId);
  if (error != std::errc() || stop != end) return std::nullopt;
  return processId;
}

}  // namespace

struct ProcessList::State {
  // Kept open, so that a process that has run out of descriptors can still poll.
  FileDescriptor proc;
  // As much of the names as the C library would take at a time.
  alignas(dirent64) std::array<char, 32768> block;
  std::vector<ProcessId> listed;
  std::vector<ProcessId> processIds;
  // The listed ids that are known for threads of the kernel's own, ascending.
  std::vector<ProcessId> kernelThreads;

  bool openProc() {
    if (!proc.valid()) {
      proc = FileDescriptor(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    return proc.valid();
  }
  [[nodiscard]] int procDirectory() const { return proc.get(); }

  bool readNames() {
    listed.clear();
    if (!openProc() || ::lseek(proc.get(), 0, SEEK_SET) != 0) return false;
    for (;;) {
      const ssize_t length = ::getdents64(proc.get(), block.data(), block.size());
      if (length <= 0) return length == 0;
      addNamesOfBlock(static_cast<std::size_t>(length));
    }
  }

  void addNamesOfBlock(std::size_t length) {
    for (std::size_t at = 0; at < length;) {
      const auto* const entry = reinterpret_cast<const dirent64*>(&block[at]);
      if (const auto processId = processIdNamed(entry->d_name)) listed.push_back(*processId);
      at += entry->d_reclen;
    }
  }

  // A thread that is listed no longer is forgotten: its id may be a process's next time.
  void setKernelThreadsAside() {
    std::vector<ProcessId> stillListed;
    processIds.clear();
    std::set_difference(listed.begin(), listed.end(), kernelThreads.begin(), kernelThreads.end(),
                        std::back_inserter(processIds));
    std::set_intersection(kernelThreads.begin(), kernelThreads.end(), listed.begin(), listed.end(),
                          std::back_inserter(stillListed));
    kernelThreads.swap(stillListed);
  }

  void rememberKernelThread(ProcessId processId) {
    kernelThreads.insert(std::upper_bound(kernelThreads.begin(), kernelThreads.end(), processId),
                         processId);
  }

  [[nodiscard]] bool isKernelThread(ProcessId processId, const ProcessStatus& status) const {
    if (status.kernelThread) return *status.kernelThread;
    FileBuffer buffer;
    const auto stat = readProcessFile(procDirectory(), processId, "/stat", buffer);
    return stat && hasKernelThreadFlag(*stat);
  }
};

ProcessList::ProcessList() : state(std::make_unique<State>()) { state->openProc(); }

ProcessList::~ProcessList() = default;

bool ProcessList::fetch() {
  state->processIds.clear();
  if (!state->readNames()) return false;
  // The kernel lists them so already (next_tgid() in fs/proc/base.c), and promises nothing.
  if (!std::is_sorted(state->listed.begin(), state->listed.end())) {
    std::sort(state->listed.begin(), state->listed.end());
  }
  state->setKernelThreadsAside();
  return true;
}

const std::vector<ProcessId>& ProcessList::processIds() const { return state->processIds; }

std::optional<ProcessEntry> ProcessList::entry(std::size_t index) {
  const ProcessId processId = state->processIds.at(index);
  FileBuffer buffer;
  const auto bytes = readProcessFile(state->procDirectory(), processId, "/status", buffer);
  if (!bytes) {
    if (errno != EACCES && errno != EPERM) return std::nullopt;
    return hiddenEntry(state->procDirectory(), processId);
  }
  const std::optional<ProcessStatus> status = parseProcessStatus(*bytes);
  if (!status) return std::nullopt;
  if (state->isKernelThread(processId, *status)) {
    state->rememberKernelThread(processId);
    return std::nullopt;
  }
  return ProcessEntry{status->commandName, status->effectiveUserId};
}

}  // namespace ombrix::platform
