#include <gtest/gtest.h>

#include <string>

#include "Platform/Linux/SleepMessages.h"
#include "Platform/SystemPower.h"

namespace ombrix::platform {

namespace {

using namespace std::chrono_literals;

// "sleep" and "wake", each with the seconds ago if it comes late, "?" where it is to be
// acknowledged.
std::string told(const SleepMessages::Messages& messages) {
  std::string text;
  for (const SleepMessages::Message& message : messages) {
    if (!text.empty()) text += " ";
    text += message.type == messageSystemWillSleep ? "sleep" : "wake";
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(message.ago).count();
    if (seconds != 0) text += "-" + std::to_string(seconds);
    if (message.wantsAcknowledgement) text += "?";
  }
  return text;
}

// What the kernel had counted before the agent came.
constexpr std::chrono::seconds before = 1000s;

}  // namespace

TEST(SleepMessages, AnnouncedSleepIsHandedOnAsItIsAnnounced) {
  SleepMessages messages(before);
  EXPECT_EQ(told(messages.sleepAnnounced(before)), "sleep?");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 130s)), "wake");
}

TEST(SleepMessages, AnnouncedSleepIsNotFoundAgainByTheClocks) {
  SleepMessages messages(before);
  std::ignore = messages.sleepAnnounced(before);
  std::ignore = messages.wakeAnnounced(before + 130s);
  EXPECT_EQ(told(messages.looked(before + 130s)), "");
}

TEST(SleepMessages, UnannouncedSleepIsToldLateWithItsLength) {
  SleepMessages messages(before);
  EXPECT_EQ(told(messages.looked(before + 130s)), "sleep-130 wake");
  EXPECT_EQ(told(messages.looked(before + 130s)), "");
  EXPECT_EQ(told(messages.looked(before + 200s)), "sleep-70 wake");
}

TEST(SleepMessages, DifferenceThatNoSleepCanMakeIsIgnored) {
  SleepMessages messages(before);
  EXPECT_EQ(told(messages.looked(before + 999ms)), "");
  EXPECT_EQ(told(messages.looked(before - 999ms)), "");
  EXPECT_EQ(told(messages.looked(before + 1000ms)), "sleep-1 wake");
}

TEST(SleepMessages, WakeAnnouncedAfterTheClocksToldItIsSwallowedOnce) {
  SleepMessages messages(before);
  std::ignore = messages.sleepAnnounced(before);
  EXPECT_EQ(told(messages.looked(before + 130s)), "sleep-130 wake");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 130s)), "");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 130s)), "wake");
}

TEST(SleepMessages, WakeAloneIsToldWithTheSleepThatTheClocksShow) {
  SleepMessages messages(before);
  EXPECT_EQ(told(messages.wakeAnnounced(before + 130s)), "sleep-130 wake");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 130s)), "wake");
}

TEST(SleepMessages, WakeAloneWithoutASleepIsHandedOn) {
  SleepMessages messages(before);
  EXPECT_EQ(told(messages.wakeAnnounced(before)), "wake");
}

TEST(SleepMessages, AnnouncementThatComesTwiceIsHandedOnTwice) {
  SleepMessages messages(before);
  EXPECT_EQ(told(messages.sleepAnnounced(before)), "sleep?");
  EXPECT_EQ(told(messages.sleepAnnounced(before)), "sleep?");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 130s)), "wake");
}

TEST(SleepMessages, AnnouncementAfterAWakeThatWasMissedTellsTheSleepBeforeFirst) {
  SleepMessages messages(before);
  std::ignore = messages.sleepAnnounced(before);
  EXPECT_EQ(told(messages.sleepAnnounced(before + 130s)), "sleep-130 wake sleep?");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 200s)), "wake");
  EXPECT_EQ(told(messages.looked(before + 200s)), "");
}

TEST(SleepMessages, AnnouncedSleepAfterOneThatTheClocksToldIsWhole) {
  SleepMessages messages(before);
  std::ignore = messages.looked(before + 130s);
  EXPECT_EQ(told(messages.sleepAnnounced(before + 130s)), "sleep?");
  EXPECT_EQ(told(messages.wakeAnnounced(before + 200s)), "wake");
}

}  // namespace ombrix::platform
