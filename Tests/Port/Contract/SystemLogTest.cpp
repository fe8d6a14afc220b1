#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "Platform/SystemLog.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

namespace {

using ::testing::HasSubstr;

// Every port also writes to standard error, be it with the system's decorations.
std::string logOf(const std::function<void()>& piece) {
  ::testing::internal::CaptureStderr();
  piece();
  return ::testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(SystemLog, TakesAMessageAndEndsItsLine) {
  const PortDriver driver;
  const std::string log = logOf([] { platform::systemLog("Shutting down Ombrix."); });
  EXPECT_THAT(log, HasSubstr("Shutting down Ombrix.\n"));
}

TEST(SystemLog, KeepsTheOrderOfMessages) {
  const PortDriver driver;
  const std::string log = logOf([] {
    platform::systemLog("the first");
    platform::systemLog("the second");
  });
  EXPECT_LT(log.find("the first"), log.find("the second"));
  EXPECT_THAT(log, HasSubstr("the second"));
}

TEST(SystemLog, TakesPercentSignsAsTheyAre) {
  const PortDriver driver;
  const std::string log = logOf([] { platform::systemLog("100 %@ %s %n"); });
  EXPECT_THAT(log, HasSubstr("100 %@ %s %n"));
}

TEST(SystemLog, ShowsWhatItCanOfAMessageThatIsNotUtf8) {
  const PortDriver driver;
  const std::string log = logOf([] { platform::systemLog("caf\xE9 closed"); });
  EXPECT_THAT(log, HasSubstr("caf"));
  EXPECT_THAT(log, HasSubstr(" closed"));
}

}  // namespace ombrix::tests
