#include "Source/Core/ProcessTable.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ombrix {

namespace {

bool byId(const ProcessTable::Slot& one, const ProcessTable::Slot& other) {
  return one.processId < other.processId;
}

bool sameId(const ProcessTable::Slot& one, const ProcessTable::Slot& other) {
  return one.processId == other.processId;
}

}  // namespace

void ProcessTable::beginPoll() {
  ++poll;
  expected = 0;
}

bool ProcessTable::markSeen(platform::ProcessId processId) {
  // Those that ended since the last poll are passed over one by one; a leap asks for a search.
  if (expected < slots.size() && slots[expected].processId < processId) ++expected;
  if (expected >= slots.size() || slots[expected].processId != processId) {
    const Slot wanted{processId, 0, nullptr};
    const auto known = std::lower_bound(slots.begin(), slots.end(), wanted, byId);
    if (known == slots.end() || known->processId != processId) return false;
    expected = static_cast<std::size_t>(known - slots.begin());
  }
  slots[expected].lastPoll = poll;
  ++expected;
  return true;
}

void ProcessTable::add(platform::ProcessId processId, std::shared_ptr<ProcessData> record) {
  added.push_back({processId, poll, std::move(record)});
}

void ProcessTable::endPoll() {
  std::stable_sort(added.begin(), added.end(), byId);
  const auto known = static_cast<std::ptrdiff_t>(slots.size());
  slots.insert(slots.end(), std::make_move_iterator(added.begin()),
               std::make_move_iterator(added.end()));
  added = {};  // a first poll finds thousands, most later ones none
  std::inplace_merge(slots.begin(), slots.begin() + known, slots.end(), byId);
  slots.erase(std::unique(slots.begin(), slots.end(), sameId), slots.end());
}

ProcessSet ProcessTable::takeUnseen() {
  const auto unseen = std::stable_partition(
      slots.begin(), slots.end(), [this](const Slot& slot) { return slot.lastPoll == poll; });
  // Room first: for lack of memory nothing is to get lost between here and there.
  ProcessSet records;
  records.reserve(static_cast<std::size_t>(slots.end() - unseen));
  for (auto slot = unseen; slot != slots.end(); ++slot) records.push_back(std::move(slot->record));
  slots.erase(unseen, slots.end());
  return records;
}

}  // namespace ombrix
