#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Source/Core/ProcessTable.h"
#include "Tests/Unit/AllocationFailure.h"

namespace ombrix::tests {

namespace {

using Ids = std::vector<platform::ProcessId>;

std::shared_ptr<ProcessData> runNamed(const std::string& name) {
  auto run = std::make_shared<ProcessData>();
  run->setProcessName(name);
  return run;
}

// One poll that lists these ids; the names of the runs that it found ended.
std::set<std::string> poll(ProcessTable& table, const Ids& ids) {
  table.beginPoll();
  for (const auto id : ids) {
    if (!table.markSeen(id)) table.add(id, runNamed(std::to_string(id)));
  }
  table.endPoll();
  std::set<std::string> ended;
  for (const auto& run : table.takeUnseen()) ended.insert(run->processName().value());
  return ended;
}

Ids idsIn(const ProcessTable& table) {
  Ids ids;
  for (const auto& slot : table) ids.push_back(slot.processId);
  return ids;
}

Ids sorted(Ids ids) {
  std::sort(ids.begin(), ids.end());
  return ids;
}

// Those of `before` that are not among `after`, as names.
std::set<std::string> missingNames(const Ids& before, const Ids& after) {
  std::set<std::string> names;
  for (const auto id : before) {
    if (std::find(after.begin(), after.end(), id) == after.end()) names.insert(std::to_string(id));
  }
  return names;
}

}  // namespace

TEST(ProcessTable, KeepsTheRunsThatWereSeen) {
  ProcessTable table;
  poll(table, {1, 5, 9});
  EXPECT_TRUE(poll(table, {1, 5, 9}).empty());
  EXPECT_EQ(idsIn(table), (Ids{1, 5, 9}));
}

TEST(ProcessTable, GivesTheRunsThatWereNotSeen) {
  ProcessTable table;
  poll(table, {1, 5, 7, 9});
  EXPECT_EQ(poll(table, {1, 9, 12}), (std::set<std::string>{"5", "7"}));
  EXPECT_EQ(idsIn(table), (Ids{1, 9, 12}));
}

TEST(ProcessTable, KeepsTheRecordOfAKnownProcess) {
  ProcessTable table;
  poll(table, {3});
  const auto before = table.begin()->record;
  poll(table, {1, 2, 3, 4});
  EXPECT_EQ(std::next(table.begin(), 2)->record, before);
}

TEST(ProcessTable, KnowsAProcessOnlyAfterThePollThatFoundIt) {
  ProcessTable table;
  table.beginPoll();
  table.add(4, runNamed("new"));
  EXPECT_FALSE(table.markSeen(4));
  table.endPoll();
  table.beginPoll();
  EXPECT_TRUE(table.markSeen(4));
}

TEST(ProcessTable, NeverGivesARunThatThisPollHasFound) {
  ProcessTable table;
  table.beginPoll();
  table.add(4, runNamed("new"));
  table.endPoll();
  EXPECT_TRUE(table.takeUnseen().empty());
}

TEST(ProcessTable, TakesTheFirstOfTwoRunsOfOneProcess) {
  ProcessTable table;
  table.beginPoll();
  table.add(4, runNamed("first"));
  table.add(4, runNamed("second"));
  table.endPoll();
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table.begin()->record->processName(), "first");
}

TEST(ProcessTable, GivesEveryRunWhenAPollSawNothing) {
  ProcessTable table;
  poll(table, {1, 2, 3});
  EXPECT_EQ(poll(table, {}).size(), 3U);
  EXPECT_EQ(table.size(), 0U);
}

TEST(ProcessTable, StartsAnewAfterItWasCleared) {
  ProcessTable table;
  poll(table, {1, 2, 3});
  table.clear();
  EXPECT_TRUE(poll(table, {2}).empty());
  EXPECT_EQ(idsIn(table), Ids{2});
}

TEST(ProcessTable, TakesAListInAnyOrder) {
  std::mt19937 random(20260117);
  std::vector<platform::ProcessId> every(64);
  std::iota(every.begin(), every.end(), 1);
  ProcessTable table;
  Ids before;
  for (int round = 0; round < 200; ++round) {
    std::shuffle(every.begin(), every.end(), random);
    const Ids listed(every.begin(), every.begin() + static_cast<int>(random() % 64));
    EXPECT_EQ(poll(table, listed), missingNames(before, listed));
    EXPECT_EQ(idsIn(table), sorted(listed));
    before = listed;
  }
}

TEST(ProcessTable, TakesADescendingList) {
  ProcessTable table;
  poll(table, {9, 7, 5, 1});
  EXPECT_EQ(poll(table, {8, 7, 1, -1}), (std::set<std::string>{"9", "5"}));
  EXPECT_EQ(idsIn(table), (Ids{-1, 1, 7, 8}));
}

TEST(ProcessTable, LosesNoRunForWhichThereIsNoRoom) {
  ProcessTable table;
  poll(table, {1, 5, 9, 12});
  table.beginPoll();
  EXPECT_TRUE(table.markSeen(5));
  table.endPoll();
  constexpr std::size_t bytesOfThree = 3 * sizeof(std::shared_ptr<ProcessData>);
  constexpr std::size_t bytesOfTwo = 2 * sizeof(std::shared_ptr<ProcessData>);
  const AllocationFailure noMemory(
      [](std::size_t bytes) { return bytes == bytesOfTwo || bytes == bytesOfThree; });
  EXPECT_THROW(std::ignore = table.takeUnseen(), std::bad_alloc);
  EXPECT_EQ(table.size(), 4U);
  for (const auto& slot : table) EXPECT_NE(slot.record, nullptr) << slot.processId;
}

}  // namespace ombrix::tests
