#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"

// What the metering loop does at the first cycle of a new calendar day.

namespace ombrix {
namespace {

using std::chrono::minutes;
using ::testing::Contains;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::FakeMachine;
using tests::MeteringBench;
using tests::utc;

constexpr const char* newDate = "New date detected writing metering data for all processes.";

// Meters from one of the given moments to the next, a poll at each of them, and tells how many open
// runs were written before the loop came to its end.
struct DayBench : MeteringBench {
  explicit DayBench(const char* zone = tests::universalTime) { tests::setTimeZone(zone); }

  std::size_t meterThrough(const std::vector<platform::Date>& moments) {
    std::size_t written = 0;
    machine.date = moments.front();
    for (auto moment = moments.begin() + 1; moment != moments.end(); ++moment) {
      machine.waits.emplace_back([this, date = *moment] { machine.date = date; });
    }
    machine.waits.emplace_back([&] { written = records().size(); });
    MeteringManager(&store).startMetering();
    return written;
  }
};

std::size_t runsWritten(const char* zone, const std::vector<platform::Date>& moments) {
  return DayBench(zone).meterThrough(moments);
}

TEST(DayChange, FirstCycleAfterMidnightWritesEveryOpenRunOnce) {
  DayBench bench;
  EXPECT_EQ(bench.meterThrough({utc(2024, 3, 1, 23, 59, 30), utc(2024, 3, 2, 0, 0, 30),
                                utc(2024, 3, 2, 0, 1, 30), utc(2024, 3, 2, 0, 2, 30)}),
            3U);
}

TEST(DayChange, IsANoticeToldOnce) {
  DayBench bench;
  tests::logEverything();
  bench.meterThrough({utc(2024, 3, 1, 23, 59), utc(2024, 3, 2), utc(2024, 3, 2, 0, 1)});
  EXPECT_THAT(tests::logLines(), Contains(std::string("[Notice]\t") + newDate));
  EXPECT_EQ(bench.machine.timesLogged(newDate), 1);
}

TEST(DayChange, RunEndsAtTheChangeAndANewOneStartsWithTheNextPoll) {
  DayBench bench;
  bench.meterThrough(
      {utc(2024, 3, 1, 23, 59, 30), utc(2024, 3, 2, 0, 0, 30), utc(2024, 3, 2, 0, 1, 20)});
  const std::vector<std::string> records = bench.records();
  EXPECT_THAT(records, SizeIs(6));
  EXPECT_THAT(records, Contains(StartsWith("vim;;;;/usr/bin;root;;2024-03-01 23:59:30;"
                                           "2024-03-02 00:00:30;")));
  EXPECT_THAT(records, Contains(StartsWith("vim;;;;/usr/bin;root;;2024-03-02 00:01:20;"
                                           "2024-03-02 00:01:20;")));
}

TEST(DayChange, RunsThatHadEndedAreWrittenBeforeItAndOnlyOnce) {
  DayBench bench;
  tests::logEverything();
  FakeMachine& machine = bench.machine;
  machine.run(4, "less");
  machine.date = utc(2024, 3, 1, 23, 59);
  machine.waits.emplace_back([&machine] {
    machine.end(4);
    machine.pass(minutes(2));
  });
  std::vector<std::string> lines;
  machine.waits.emplace_back([&lines] { lines = tests::logLines(); });
  MeteringManager(&bench.store).startMetering();
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_THAT(lines[0], StartsWith("[Debug]\tWriting met file ["));
  EXPECT_EQ(lines[1], std::string("[Notice]\t") + newDate);
  EXPECT_THAT(lines[2], StartsWith("[Debug]\tWriting met file ["));
}

TEST(DayChange, TableIsEmptyUntilTheNextPoll) {
  DayBench bench;
  FakeMachine& machine = bench.machine;
  machine.date = utc(2024, 3, 1, 23, 59);
  machine.waits.emplace_back([&machine] { machine.pass(minutes(2)); });
  machine.waits.emplace_back([&machine] { machine.postFromOutside(Notification::stop); });
  MeteringManager(&bench.store).startMetering();
  EXPECT_THAT(bench.records(), SizeIs(3));
}

TEST(DayChange, DayIsTheOneOfTheLocalZone) {
  EXPECT_EQ(runsWritten(tests::centralEurope, {utc(2024, 3, 1, 22, 59), utc(2024, 3, 1, 23, 0)}),
            3U);
}

TEST(DayChange, MidnightOfUniversalTimeIsNoneInAnotherZone) {
  EXPECT_EQ(runsWritten(tests::centralEurope, {utc(2024, 3, 1, 23, 59), utc(2024, 3, 2, 0, 0)}),
            0U);
}

TEST(DayChange, DayOf25HoursIsOneDay) {
  // 00:00 in summer time, 02:30 twice, and 23:59 in winter time.
  EXPECT_EQ(
      runsWritten(tests::centralEurope, {utc(2024, 10, 26, 22, 0), utc(2024, 10, 27, 0, 30),
                                         utc(2024, 10, 27, 1, 30), utc(2024, 10, 27, 22, 59)}),
      0U);
}

TEST(DayChange, DayOf25HoursEndsAtItsMidnight) {
  EXPECT_EQ(runsWritten(tests::centralEurope, {utc(2024, 10, 27, 22, 59), utc(2024, 10, 27, 23)}),
            3U);
}

TEST(DayChange, DayOf23HoursIsOneDay) {
  EXPECT_EQ(runsWritten(tests::centralEurope, {utc(2024, 3, 30, 23), utc(2024, 3, 31, 21, 59)}),
            0U);
}

TEST(DayChange, DayOf23HoursEndsAtItsMidnight) {
  EXPECT_EQ(runsWritten(tests::centralEurope, {utc(2024, 3, 31, 21, 59), utc(2024, 3, 31, 22)}),
            3U);
}

TEST(DayChange, ClockSetBackOverMidnightIsOneToo) {
  EXPECT_EQ(runsWritten(tests::universalTime, {utc(2024, 3, 2, 0, 1), utc(2024, 3, 1, 23, 59)}),
            3U);
}

TEST(DayChange, SameDayOfAnotherMonthOrYearIsOneToo) {
  EXPECT_EQ(runsWritten(tests::universalTime, {utc(2024, 3, 1, 12), utc(2024, 4, 1, 12)}), 3U);
  EXPECT_EQ(runsWritten(tests::universalTime, {utc(2024, 3, 1, 12), utc(2025, 3, 1, 12)}), 3U);
}

TEST(DayChange, EachNewDayIsNoticed) {
  DayBench bench;
  bench.meterThrough({utc(2024, 3, 1, 23), utc(2024, 3, 2, 1), utc(2024, 3, 2, 23),
                      utc(2024, 3, 3, 1), utc(2024, 3, 3, 2)});
  EXPECT_EQ(bench.records().size(), 9U);
}

TEST(DayChange, MidnightDuringTheFirstPollIsNoticedInItsCycle) {
  DayBench bench;
  FakeMachine& machine = bench.machine;
  machine.date = utc(2024, 3, 1, 23, 59, 30);
  machine.driftPerLook = minutes(1);
  std::size_t written = 0;
  machine.waits.emplace_back([&] { written = bench.records().size(); });
  MeteringManager(&bench.store).startMetering();
  EXPECT_EQ(written, 3U);
}

TEST(DayChange, MidnightBetweenTheTwoLooksOfACycleIsTakenForSeen) {
  DayBench bench;
  FakeMachine& machine = bench.machine;
  machine.date = utc(2024, 3, 1, 23, 58);
  // The first look of the next cycle is for its day, the second for the cycle after it.
  machine.waits.emplace_back([&machine] {
    machine.date = utc(2024, 3, 1, 23, 59, 59);
    machine.driftPerLook = std::chrono::seconds(1);
  });
  machine.waits.emplace_back([] {});
  std::size_t written = 1;
  machine.waits.emplace_back([&] { written = bench.records().size(); });
  MeteringManager(&bench.store).startMetering();
  EXPECT_EQ(written, 0U);
}

TEST(DayChange, ZoneThatChangesWhileTheAgentRunsIsFollowed) {
  DayBench bench;
  FakeMachine& machine = bench.machine;
  machine.date = utc(2024, 3, 1, 22, 58);
  machine.waits.emplace_back([&machine] {
    machine.pass(minutes(1));
    // As an administrator does it, who cannot call tzset() in the agent.
    ::setenv("TZ", tests::centralEurope, 1);
  });
  machine.waits.emplace_back([&machine] { machine.pass(minutes(1)); });
  std::size_t written = 0;
  machine.waits.emplace_back([&] { written = bench.records().size(); });
  MeteringManager(&bench.store).startMetering();
  EXPECT_EQ(written, 3U);
}

}  // namespace
}  // namespace ombrix
