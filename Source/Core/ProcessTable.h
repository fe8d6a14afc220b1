#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Platform/ProcessList.h"
#include "Source/data/ProcessData.h"

namespace ombrix {

// The runs that are being watched, by process id, ascending. A machine lists its processes in that
// order too as a rule, so a poll in which nothing changed walks both lists side by side and touches
// no record; any other order costs a search for each process and gives the same result.
class ProcessTable {
 public:
  struct Slot {
    platform::ProcessId processId;
    std::uint32_t lastPoll;
    std::shared_ptr<ProcessData> record;
  };

  void reserve(std::size_t count) { slots.reserve(count); }
  void clear() { slots.clear(); }
  [[nodiscard]] std::size_t size() const { return slots.size(); }
  [[nodiscard]] auto begin() const { return slots.begin(); }
  [[nodiscard]] auto end() const { return slots.end(); }

  // Starts a poll: no process has been seen in it yet.
  void beginPoll();

  // Notes that the poll has seen the process. False when it is not in the table, or is so only
  // since this poll began.
  [[nodiscard]] bool markSeen(platform::ProcessId processId);

  // Takes in a run that the poll has found. It is in the table from endPoll() on; of two runs of
  // the same id the earlier one stays.
  void add(platform::ProcessId processId, std::shared_ptr<ProcessData> record);
  void endPoll();

  // Removes and returns the runs that the last poll has not seen.
  [[nodiscard]] ProcessSet takeUnseen();

 private:
  std::vector<Slot> slots;
  std::vector<Slot> added;
  std::size_t expected = 0;  // where the next process of the poll is looked for first
  std::uint32_t poll = 0;
};

}  // namespace ombrix
