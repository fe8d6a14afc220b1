#include <gtest/gtest.h>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/MovableClock.h"

// A wall clock that is set, and the summer time of zones that have one. What a run took is measured
// by another clock, and a day is what the wall says.

namespace ombrix::tests {

namespace {

constexpr const char* newDate = "New date detected writing metering data for all processes.\n";

// Summer time from two o'clock to three, as in most of Europe.
constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
// Summer time that began and ended at midnight, as in Brazil until 2019.
constexpr const char* brazil = "<-03>3<-02>,M11.1.0/0,M2.3.0/0";

// An agent under a clock that the test sets, and a program that it meters from then on.
class ClockChange : public ::testing::Test {
 protected:
  void startAt(std::time_t moment, const std::string& zone = "UTC0") {
    const Launch launch = withMovableClockIn(zone);
    setWallClock(moment);
    program.emplace(idler("/tmp/tools/editor"));
    agent.emplace(home, launch);
    ASSERT_TRUE(agent->hasStarted() && agent->isWaiting());
  }

  // Polls often enough that a change of day, were there one, is past.
  void setTo(std::time_t moment) {
    setWallClock(moment);
    ASSERT_TRUE(agent->poll() && agent->poll());
  }

  [[nodiscard]] std::size_t newDays() const { return occurrences(agent->errors(), newDate); }

  // The one record of the program's run, which ends now.
  Record onlyRecord() {
    EXPECT_EQ(agent->stop(), 0);
    const std::vector<Record> records = home.recordsOf("editor");
    EXPECT_EQ(records.size(), 1U);
    return records.empty() ? Record{} : records.front();
  }

  const Home home;
  std::optional<Program> program;
  std::optional<Agent> agent;
};

class SummerTime : public ClockChange {};

}  // namespace

TEST_F(ClockChange, OfAnHourBackClosesNoRunAndMakesNoneLonger) {
  startAt(universal(2024, 3, 5, 12));
  setTo(universal(2024, 3, 5, 11));
  EXPECT_EQ(newDays(), 0U);
  const Record record = onlyRecord();
  EXPECT_TRUE(record.start.starts_with("2024-03-05 12:00")) << record.line;
  EXPECT_TRUE(record.stop.starts_with("2024-03-05 11:00")) << record.line;
  EXPECT_LT(std::stoull(record.seconds), 60U) << record.line;
  EXPECT_EQ(record.pausedMinutes, "0");
}

TEST_F(ClockChange, OfAnHourForthClosesNoRunAndMakesNoneLonger) {
  startAt(universal(2024, 3, 5, 12));
  setTo(universal(2024, 3, 5, 13));
  EXPECT_EQ(newDays(), 0U);
  const Record record = onlyRecord();
  EXPECT_TRUE(record.stop.starts_with("2024-03-05 13:00")) << record.line;
  EXPECT_LT(std::stoull(record.seconds), 60U) << record.line;
  EXPECT_EQ(record.pausedMinutes, "0");
}

TEST_F(ClockChange, BackAndForthOverMidnightClosesEveryRunOnceEachTime) {
  startAt(universal(2024, 3, 5, 0, 30));
  setTo(universal(2024, 3, 4, 23, 30));
  EXPECT_EQ(newDays(), 1U);
  setTo(universal(2024, 3, 5, 0, 30));
  EXPECT_EQ(newDays(), 2U);
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 3U);
}

TEST_F(ClockChange, ToBeforeTheFirstDayOfTheClockIsSurvived) {
  startAt(universal(2024, 3, 5, 12));
  setTo(universal(1969, 12, 31, 12));
  EXPECT_EQ(newDays(), 1U);
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 2U);
}

TEST_F(ClockChange, ToALaterCenturyIsSurvived) {
  startAt(universal(2024, 3, 5, 12));
  setTo(universal(2106, 3, 5, 12));
  EXPECT_EQ(newDays(), 1U);
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 2U);
}

TEST_F(SummerTime, BeginsWithoutClosingARun) {
  startAt(universal(2024, 3, 31, 0, 30), centralEurope);
  setTo(universal(2024, 3, 31, 1, 30));
  EXPECT_EQ(newDays(), 0U);
  const Record record = onlyRecord();
  EXPECT_TRUE(record.start.starts_with("2024-03-31 01:30")) << record.line;
  EXPECT_TRUE(record.stop.starts_with("2024-03-31 03:30")) << record.line;
  EXPECT_LT(std::stoull(record.seconds), 60U) << record.line;
}

TEST_F(SummerTime, EndsWithoutClosingARun) {
  startAt(universal(2024, 10, 27, 0, 45), centralEurope);
  setTo(universal(2024, 10, 27, 1, 15));
  EXPECT_EQ(newDays(), 0U);
  const Record record = onlyRecord();
  EXPECT_TRUE(record.start.starts_with("2024-10-27 02:45")) << record.line;
  EXPECT_TRUE(record.stop.starts_with("2024-10-27 02:15")) << record.line;
  EXPECT_LT(std::stoull(record.seconds), 60U) << record.line;
}

TEST_F(SummerTime, DayOfTwentyThreeHoursEndsAtItsMidnight) {
  startAt(universal(2024, 3, 30, 23, 30), centralEurope);
  setTo(universal(2024, 3, 31, 21, 30));
  EXPECT_EQ(newDays(), 0U);
  setTo(universal(2024, 3, 31, 22, 30));
  EXPECT_EQ(newDays(), 1U);
}

TEST_F(SummerTime, DayOfTwentyFiveHoursEndsAtItsMidnight) {
  startAt(universal(2024, 10, 26, 22, 30), centralEurope);
  setTo(universal(2024, 10, 27, 22, 30));
  EXPECT_EQ(newDays(), 0U);
  setTo(universal(2024, 10, 27, 23, 30));
  EXPECT_EQ(newDays(), 1U);
}

TEST_F(SummerTime, ThatBeginsAtMidnightIsOneNewDay) {
  startAt(universal(2018, 11, 4, 2, 45), brazil);
  setTo(universal(2018, 11, 4, 3, 15));
  setTo(universal(2018, 11, 4, 4, 15));
  EXPECT_EQ(newDays(), 1U);
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 2U);
}

TEST_F(SummerTime, ThatEndsAtMidnightPutsTheNewDayOffByAnHour) {
  startAt(universal(2018, 2, 18, 1, 45), brazil);
  setTo(universal(2018, 2, 18, 2, 15));
  EXPECT_EQ(newDays(), 0U);
  setTo(universal(2018, 2, 18, 3, 15));
  EXPECT_EQ(newDays(), 1U);
}

}  // namespace ombrix::tests
