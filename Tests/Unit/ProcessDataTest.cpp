#include <gtest/gtest.h>

#include "Source/data/ProcessData.h"
#include "Tests/Unit/CoreTestSupport.h"

namespace ombrix {
namespace {

using tests::utc;

TEST(ProcessData, FreshRecordReportsNothingForTextsAndDates) {
  const ProcessData record;
  EXPECT_EQ(record.processName(), std::nullopt);
  EXPECT_EQ(record.startTime(), std::nullopt);
  EXPECT_EQ(record.stopTime(), std::nullopt);
  EXPECT_EQ(record.userName(), std::nullopt);
  EXPECT_EQ(record.path(), std::nullopt);
}

TEST(ProcessData, FreshRecordReportsZeroForNumbers) {
  const ProcessData record;
  EXPECT_EQ(record.startTick(), 0U);
  EXPECT_EQ(record.stopTick(), 0U);
  EXPECT_EQ(record.pausedMinutes(), 0U);
}

TEST(ProcessData, FreshRecordIsNotActive) { EXPECT_FALSE(ProcessData().activeFlag()); }

TEST(ProcessData, PausedMinutesWrapLikeAny32BitNumber) {
  ProcessData record;
  record.setPausedMinutes(0xFFFFFFFF);
  record.setPausedMinutes(record.pausedMinutes() + 3);
  EXPECT_EQ(record.pausedMinutes(), 2U);
}

TEST(ProcessData, SecondStopReplacesTheFirst) {
  ProcessData record;
  record.setStopTime(utc(2024, 3, 1, 10));
  record.setStopTick(100);
  record.setStopTime(utc(2024, 3, 1, 11));
  record.setStopTick(200);
  EXPECT_EQ(record.stopTime(), utc(2024, 3, 1, 11));
  EXPECT_EQ(record.stopTick(), 200U);
}

TEST(ProcessData, GettersReturnWhatTheSettersWereGiven) {
  ProcessData record;
  record.setProcessName("vim");
  record.setStartTime(utc(2024, 3, 1));
  record.setStartTick(0xFFFFFFFFFFFFFFFF);
  record.setUserName("alice");
  record.setPath("/usr/bin");
  record.setActiveFlag(true);
  EXPECT_EQ(record.processName(), "vim");
  EXPECT_EQ(record.startTime(), utc(2024, 3, 1));
  EXPECT_EQ(record.startTick(), 0xFFFFFFFFFFFFFFFF);
  EXPECT_EQ(record.userName(), "alice");
  EXPECT_EQ(record.path(), "/usr/bin");
  EXPECT_TRUE(record.activeFlag());
}

TEST(ProcessData, AnythingMayBeTakenBackToNothing) {
  ProcessData record;
  record.setProcessName("vim");
  record.setStartTime(utc(2024, 3, 1));
  record.setStopTime(utc(2024, 3, 2));
  record.setUserName("alice");
  record.setPath("/usr/bin");
  record.setProcessName(std::nullopt);
  record.setStartTime(std::nullopt);
  record.setStopTime(std::nullopt);
  record.setUserName(std::nullopt);
  record.setPath(std::nullopt);
  EXPECT_EQ(record.processName(), std::nullopt);
  EXPECT_EQ(record.startTime(), std::nullopt);
  EXPECT_EQ(record.stopTime(), std::nullopt);
  EXPECT_EQ(record.userName(), std::nullopt);
  EXPECT_EQ(record.path(), std::nullopt);
}

}  // namespace
}  // namespace ombrix
