#include <gtest/gtest.h>

#include <chrono>

#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/DateFormatter.h"

namespace ombrix {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using tests::setTimeZone;

constexpr seconds march5{1'709'647'629};  // 2024-03-05 14:07:09 UTC

std::string timeStamp(platform::Date::duration since1970) {
  return DateFormatter(DateFormatter::Pattern::timeStamp).string(platform::Date(since1970));
}

std::string day(platform::Date::duration since1970) {
  return DateFormatter(DateFormatter::Pattern::day).string(platform::Date(since1970));
}

TEST(DateFormatter, ATimeStampIsTheDateAndTheTimeOfTwentyFourHours) {
  setTimeZone("UTC0");
  EXPECT_EQ(timeStamp(march5), "2024-03-05 14:07:09");
}

TEST(DateFormatter, ADayIsTheDateAlone) {
  setTimeZone("UTC0");
  EXPECT_EQ(day(march5), "2024-03-05");
}

TEST(DateFormatter, FractionsOfASecondAreDroppedDownwards) {
  setTimeZone("UTC0");
  EXPECT_EQ(timeStamp(march5 + milliseconds(999)), "2024-03-05 14:07:09");
  EXPECT_EQ(timeStamp(milliseconds(-1)), "1969-12-31 23:59:59");
}

TEST(DateFormatter, TimesAreLocal) {
  setTimeZone("EAST-9:30");
  EXPECT_EQ(timeStamp(march5), "2024-03-05 23:37:09");
  setTimeZone("WEST+15");
  EXPECT_EQ(timeStamp(march5), "2024-03-04 23:07:09");
  EXPECT_EQ(day(march5), "2024-03-04");
}

TEST(DateFormatter, SummerTimeCounts) {
  setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr seconds beforeTheChange{1'711'846'799};  // 2024-03-31 00:59:59 UTC
  EXPECT_EQ(timeStamp(beforeTheChange), "2024-03-31 01:59:59");
  EXPECT_EQ(timeStamp(beforeTheChange + seconds(1)), "2024-03-31 03:00:00");
}

TEST(DateFormatter, ANewFormatterFollowsAChangeOfTheZone) {
  setTimeZone("UTC0");
  EXPECT_EQ(timeStamp(march5), "2024-03-05 14:07:09");

  ::setenv("TZ", "EAST-2", 1);  // as another process would change it: nobody calls tzset() here

  EXPECT_EQ(timeStamp(march5), "2024-03-05 16:07:09");
}

TEST(DateFormatter, LeapDaysAreDays) {
  setTimeZone("UTC0");
  EXPECT_EQ(day(seconds(1'709'164'800)), "2024-02-29");
}

TEST(DateFormatter, NoDateHasNoText) {
  const DateFormatter formatter(DateFormatter::Pattern::timeStamp);
  EXPECT_EQ(formatter.string(std::optional<platform::Date>()), std::nullopt);
  EXPECT_NE(formatter.string(std::optional(platform::Date(march5))), std::nullopt);
}

}  // namespace
}  // namespace ombrix
