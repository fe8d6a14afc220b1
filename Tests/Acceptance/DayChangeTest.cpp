#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdint>
#include <filesystem>

#include "Tests/Acceptance/Agent.h"

// The change of day, under a wall clock and a zone that the tests set. The clocks that measure how
// long something takes run on as they are.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* newDate = "New date detected writing metering data for all processes.\n";

// An agent whose wall clock is the test's.
class DayChange : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(FAKETIME_LIBRARY).empty()) GTEST_SKIP() << "libfaketime is not installed";
  }

  static void setClock(const std::string& dateAndTime) {
    replaceFile("/tmp/clock", "@" + dateAndTime + "\n");
  }

  static Launch underTheClock(const std::string& zone = "TZ=UTC0") {
    Launch launch = ombrix();
    launch.machinesZone = true;
    launch.environment = {zone,
                          "LD_PRELOAD=" FAKETIME_LIBRARY,
                          "FAKETIME_TIMESTAMP_FILE=/tmp/clock",
                          "FAKETIME_NO_CACHE=1",
                          "FAKETIME_DONT_FAKE_MONOTONIC=1",
                          "DONT_FAKE_MONOTONIC=1"};
    return launch;
  }

  // Polls often enough that a change of day, were there one, is past.
  static void pollTwice(const Agent& agent) { ASSERT_TRUE(agent.poll() && agent.poll()); }

  const Home home;
};

// A file of the system's time zone format (tzfile(5)) for a zone so many hours east of Greenwich.
std::string zoneFile(int hoursEast) {
  const auto offset = static_cast<std::uint32_t>(hoursEast * 3600);
  std::string file("TZif\0", 5);
  file.append(15, '\0');
  for (const std::uint32_t count : {0U, 0U, 0U, 0U, 1U, 4U}) {
    for (int shift = 24; shift >= 0; shift -= 8) file += static_cast<char>(count >> shift);
  }
  for (int shift = 24; shift >= 0; shift -= 8) file += static_cast<char>(offset >> shift);
  return file.append(2, '\0').append("XXX\0", 4);
}

void setZone(int hoursEast) { replaceFile("/tmp/etc/localtime", zoneFile(hoursEast)); }

// An /etc of the test's own, with a zone that it can change. Libraries and users are found as ever.
void furnishOwnEtc() {
  fs::create_directory("/tmp/etc");
  for (const char* name : {"passwd", "group", "nsswitch.conf", "ld.so.cache"}) {
    const fs::path original = fs::path("/etc") / name;
    if (fs::exists(original)) fs::copy_file(original, fs::path("/tmp/etc") / name);
  }
  ASSERT_EQ(::mount("/tmp/etc", "/etc", nullptr, MS_BIND, nullptr), 0);
}

}  // namespace

TEST_F(DayChange, EveryOpenRunIsClosedAndWrittenOnce) {
  setClock("2024-03-05 12:00:00");
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.hasStarted());
  setClock("2024-03-06 12:00:00");
  ASSERT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  pollTwice(agent);
  const auto records = home.recordsOf("editor");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_TRUE(records.front().start.starts_with("2024-03-05 12:00:")) << records.front().line;
  EXPECT_TRUE(records.front().stop.starts_with("2024-03-06 12:00:")) << records.front().line;
  EXPECT_EQ(occurrences(agent.errors(), newDate), 1U);
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(DayChange, NextPollOpensNewRuns) {
  setClock("2024-12-31 12:00:00");
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.hasStarted());
  setClock("2025-01-01 12:00:00");
  ASSERT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  pollTwice(agent);
  EXPECT_EQ(agent.stop(), 0);
  const auto records = home.recordsOf("editor");
  ASSERT_EQ(records.size(), 2U);
  const Record& later = records[records[0].start < records[1].start ? 1 : 0];
  EXPECT_TRUE(later.start.starts_with("2025-01-01 12:00:")) << later.line;
}

TEST_F(DayChange, ClockThatMovesWithinTheDayClosesNothing) {
  setClock("2024-03-05 00:00:10");
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.hasStarted());
  setClock("2024-03-05 23:50:00");
  pollTwice(agent);
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(DayChange, ClockSetBackToTheDayBeforeIsAChangeToo) {
  setClock("2024-03-05 12:00:00");
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.hasStarted());
  setClock("2024-03-04 12:00:00");
  EXPECT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(DayChange, SameDayOfAnotherYearIsAChange) {
  setClock("2024-03-05 12:00:00");
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.hasStarted());
  setClock("2025-03-05 12:00:00");
  EXPECT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(DayChange, RunTimeDoesNotFollowTheWallClock) {
  setClock("2024-03-05 01:00:00");
  Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.hasStarted());
  setClock("2024-03-05 22:00:00");
  program.kill();
  ASSERT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  const Record record = home.recordsOf("editor").front();
  EXPECT_TRUE(record.start.starts_with("2024-03-05 01:00:")) << record.line;
  EXPECT_TRUE(record.stop.starts_with("2024-03-05 22:00:")) << record.line;
  EXPECT_LT(std::stoi(record.seconds), 60);
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(DayChange, LogAndListBearTheSameClock) {
  setClock("2024-02-29 12:00:00");
  Agent agent(home, underTheClock());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(home.log(), "2024-02-29 12:00:"));
  EXPECT_TRUE(contains(home.list(), "]  started 2024-02-29 12:00:"));
}

TEST_F(DayChange, DayIsThatOfTheLocalZone) {
  setClock("2024-03-05 23:59:00");  // in the afternoon by universal time
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock("TZ=EAST-10"));
  ASSERT_TRUE(agent.hasStarted());
  setClock("2024-03-06 00:01:00");
  EXPECT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(DayChange, MidnightOfAnotherZoneIsNone) {
  setClock("2024-03-05 09:59:00");  // a minute before midnight by universal time
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home, underTheClock("TZ=EAST-10"));
  ASSERT_TRUE(agent.hasStarted());
  setClock("2024-03-05 10:01:00");
  pollTwice(agent);
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(agent.stop(), 0);
}

// The zones lie 26 hours apart, so that the date differs at any time.
TEST(ZoneChange, IsFollowedAtOnceAndIsNoNewDay) {
  furnishOwnEtc();
  setZone(-12);
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  Launch launch = ombrix();
  launch.machinesZone = true;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.poll());
  const std::string before = linesOf(home.log()).back();
  setZone(+14);
  ASSERT_TRUE(agent.poll() && agent.poll());
  const std::string after = linesOf(home.log()).back();
  EXPECT_LT(before.substr(0, 10), after.substr(0, 10));
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace ombrix::tests
