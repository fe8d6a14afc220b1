#include "Platform/ProcessList.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/ProcessStatus.h"

// The process list of Linux: the numeric names in /proc give the ids; a process's own files are
// opened only when the table asks for its entry.

namespace ombrix::platform {

namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

// Room for all that is needed of a status or stat file; what comes after it is not looked at.
using FileBuffer = std::array<char, 4096>;

// The beginning of /proc/`processId`/`name`; nothing, with errno set, when it cannot be read.
std::optional<std::string_view> readProcessFile(int procDirectory, ProcessId processId,
                                                const char* name, FileBuffer& buffer) {
  const std::string path = std::to_string(processId) + "/" + name;
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
  if (::fstatat(procDirectory, std::to_string(processId).c_str(), &status, 0) != 0) {
    return std::nullopt;
  }
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
  std::unique_ptr<DIR, DirectoryCloser> proc;
  std::vector<ProcessId> processIds;
  // The listed ids that are known for threads of the kernel's own, ascending.
  std::vector<ProcessId> kernelThreads;
  std::vector<ProcessId> stillListedThreads;

  bool openProc() {
    if (!proc) proc.reset(::opendir("/proc"));
    return proc != nullptr;
  }
  [[nodiscard]] int procDirectory() const { return ::dirfd(proc.get()); }

  void sortIn(ProcessId processId) {
    if (std::binary_search(kernelThreads.begin(), kernelThreads.end(), processId)) {
      stillListedThreads.push_back(processId);
    } else {
      processIds.push_back(processId);
    }
  }

  void rememberKernelThread(ProcessId processId) {
    kernelThreads.insert(std::upper_bound(kernelThreads.begin(), kernelThreads.end(), processId),
                         processId);
  }

  // A thread that is listed no longer is forgotten: its id may be a process's next time.
  void forgetVanishedThreads() {
    std::sort(stillListedThreads.begin(), stillListedThreads.end());
    kernelThreads.swap(stillListedThreads);
  }

  [[nodiscard]] bool isKernelThread(ProcessId processId, const ProcessStatus& status) const {
    if (status.kernelThread) return *status.kernelThread;
    FileBuffer buffer;
    const auto stat = readProcessFile(procDirectory(), processId, "stat", buffer);
    return stat && hasKernelThreadFlag(*stat);
  }
};

ProcessList::ProcessList() : state(std::make_unique<State>()) { state->openProc(); }

ProcessList::~ProcessList() = default;

bool ProcessList::fetch() {
  state->processIds.clear();
  state->stillListedThreads.clear();
  if (!state->openProc()) return false;
  DIR* const proc = state->proc.get();
  ::rewinddir(proc);
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(proc);
    if (entry == nullptr) break;
    if (const auto processId = processIdNamed(entry->d_name)) state->sortIn(*processId);
  }
  if (errno != 0) {
    state->processIds.clear();
    return false;
  }
  state->forgetVanishedThreads();
  return true;
}

const std::vector<ProcessId>& ProcessList::processIds() const { return state->processIds; }

std::optional<ProcessEntry> ProcessList::entry(std::size_t index) {
  const ProcessId processId = state->processIds.at(index);
  FileBuffer buffer;
  const auto bytes = readProcessFile(state->procDirectory(), processId, "status", buffer);
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
