#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The kernel's list of processes, one fetch at a time. The process table owns one list and asks it
// for details of those processes only that it does not know yet, because on some machines the
// details cost far more than the list. This header does not track anything between polls.

namespace ombrix::platform {

using ProcessId = std::int32_t;
using UserId = std::uint32_t;

// What the kernel tells of one listed process.
struct ProcessEntry {
  // The short command name in the kernel's own bytes, at most 15 of them on Linux and 16 on macOS,
  // not necessarily UTF-8. Absent when the kernel lists the process but hides its name.
  std::optional<std::string> commandName;
  UserId effectiveUserId = 0;
};

class ProcessList {
 public:
  ProcessList();
  ~ProcessList();
  ProcessList(const ProcessList&) = delete;
  ProcessList& operator=(const ProcessList&) = delete;

  // Replaces the list by the kernel's present one. Returns false, leaving the list empty, when the
  // kernel could not be asked; nothing is logged.
  [[nodiscard]] bool fetch();

  // The process ids of the last fetch in the kernel's order. Valid until the next fetch.
  [[nodiscard]] const std::vector<ProcessId>& processIds() const;

  // The entry of the process at `index` of processIds(). Nothing when the process is found to have
  // ended since the fetch, or to be none that counts (a thread of the kernel's own).
  [[nodiscard]] std::optional<ProcessEntry> entry(std::size_t index);

 private:
  struct State;
  std::unique_ptr<State> state;
};

// Room for a path and its terminator.
using ExecutablePath = std::array<char, 4096>;

enum class PathResult {
  found,        // the buffer holds the path, NUL-terminated; empty for a process without a file
  unreadable,   // the buffer is as it was
  processGone,  // the process ended after it was listed; the buffer is as it was
};

// Writes the path of the file that process `processId` executes into `path`.
[[nodiscard]] PathResult executablePath(ProcessId processId, ExecutablePath& path);

}  // namespace ombrix::platform
