#include <gmock/gmock.h>

#include <cstdio>

#include "Source/Core/MeteringManager.h"
#include "Tests/Soak/Month.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix::tests {

namespace {

// Across a change to summer time.
platform::Date begin() { return utc(2024, 3, 5, 10); }

}  // namespace

TEST(Soak, ThirtyDaysLoseNoRunAndGrowNothing) {
  MeteringBench bench;
  setTimeZone(centralEurope);
  bench.machine.date = begin();
  logEverything();
  LogManager::setMaxAllowedLogSizeInBytes(20000);
  Month month(bench);
  {
    MeteringManager engine(&bench.store);
    EXPECT_EQ(engine.startMetering(), 0);
  }
  month.end();

  ASSERT_EQ(month.footprints.size(), 30U);
  const auto& second = month.footprints[1];
  for (const auto& day : month.footprints) {
    EXPECT_EQ(day.descriptors, second.descriptors);
    EXPECT_EQ(day.entriesAskedPerPoll, second.entriesAskedPerPoll);
  }
  // A list node or two of the test's own may lie elsewhere; a byte a poll would be 40,320.
  EXPECT_NEAR(static_cast<double>(month.footprints.back().heapBytes),
              static_cast<double>(second.heapBytes), 4096);
  EXPECT_GT(month.recordsSeen, 64'000U);
  EXPECT_GT(month.lists, 400);
  EXPECT_GT(month.sleeps, 60);
  EXPECT_GT(month.logTurns, 300);
  std::printf(
      "records %ju, lists %d, sleeps %d, logs begun %d; heap %zu -> %zu bytes; "
      "processor time of the second day %.3f s, of the last %.3f s\n",
      static_cast<std::uintmax_t>(month.recordsSeen), month.lists, month.sleeps, month.logTurns,
      second.heapBytes, month.footprints.back().heapBytes, month.cpuSeconds[1],
      month.cpuSeconds.back());
}

}  // namespace ombrix::tests
