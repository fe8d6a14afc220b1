#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "Platform/ProcessList.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

namespace {

using platform::ExecutablePath;
using platform::PathResult;
using platform::ProcessId;
using platform::ProcessList;

long timesListed(const ProcessList& list, ProcessId id) {
  return std::count(list.processIds().begin(), list.processIds().end(), id);
}

std::size_t indexOf(const ProcessList& list, ProcessId id) {
  const auto& ids = list.processIds();
  return static_cast<std::size_t>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}

// A buffer in which every byte tells whether it has been written to.
ExecutablePath filledPath() {
  ExecutablePath path;
  path.fill('#');
  return path;
}

}  // namespace

TEST(ProcessList, IsEmptyBeforeTheFirstFetch) {
  const PortDriver driver;
  const ProcessList list;
  EXPECT_TRUE(list.processIds().empty());
}

TEST(ProcessList, HasAProcessThatRuns) {
  PortDriver driver;
  const PortDriver::Process process = driver.startProcess();
  ProcessList list;
  ASSERT_TRUE(list.fetch());
  EXPECT_EQ(timesListed(list, process.id), 1);
}

TEST(ProcessList, HasNoProcessTwice) {
  PortDriver driver;
  const PortDriver::Process first = driver.startProcess();
  const PortDriver::Process second = driver.startProcess();
  ProcessList list;
  ASSERT_TRUE(list.fetch());
  const std::set<ProcessId> different(list.processIds().begin(), list.processIds().end());
  EXPECT_EQ(different.size(), list.processIds().size());
  EXPECT_NE(first.id, second.id);
}

TEST(ProcessList, HasAProcessNoMoreThatHasEnded) {
  PortDriver driver;
  const PortDriver::Process process = driver.startProcess();
  ProcessList list;
  ASSERT_TRUE(list.fetch());

  driver.endProcess(process.id);

  ASSERT_TRUE(list.fetch());
  EXPECT_EQ(timesListed(list, process.id), 0);
}

TEST(ProcessList, IsThatOfTheFetchUntilTheNext) {
  PortDriver driver;
  const PortDriver::Process earlier = driver.startProcess();
  ProcessList list;
  ASSERT_TRUE(list.fetch());

  const PortDriver::Process later = driver.startProcess();
  EXPECT_EQ(timesListed(list, later.id), 0);
  EXPECT_EQ(timesListed(list, earlier.id), 1);

  ASSERT_TRUE(list.fetch());
  EXPECT_EQ(timesListed(list, later.id), 1);
}

TEST(ProcessList, TellsTheNameAndUserOfAProcess) {
  PortDriver driver;
  const PortDriver::Process process = driver.startProcess();
  ProcessList list;
  ASSERT_TRUE(list.fetch());

  const auto entry = list.entry(indexOf(list, process.id));

  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->commandName, process.commandName);
  EXPECT_EQ(entry->effectiveUserId, process.user);
}

// Some machines tell everything at the fetch, some only when asked.
TEST(ProcessList, TellsNothingWrongOfAProcessThatEndedSinceTheFetch) {
  PortDriver driver;
  const PortDriver::Process process = driver.startProcess();
  ProcessList list;
  ASSERT_TRUE(list.fetch());

  driver.endProcess(process.id);

  const auto entry = list.entry(indexOf(list, process.id));
  EXPECT_TRUE(!entry || entry->commandName == process.commandName);
}

TEST(ExecutablePath, IsThatOfTheProgramThatRuns) {
  PortDriver driver;
  const PortDriver::Process process = driver.startProcess();
  ExecutablePath path = filledPath();

  ASSERT_EQ(platform::executablePath(process.id, path), PathResult::found);

  EXPECT_STREQ(path.data(), process.executable.c_str());
}

TEST(ExecutablePath, LeavesTheBufferAsItWasForAProcessThatHasEnded) {
  PortDriver driver;
  const PortDriver::Process process = driver.startProcess();
  driver.endProcess(process.id);
  ExecutablePath path = filledPath();

  EXPECT_NE(platform::executablePath(process.id, path), PathResult::found);

  EXPECT_EQ(path, filledPath());
}

}  // namespace ombrix::tests
