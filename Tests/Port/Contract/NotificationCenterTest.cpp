#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/Clock.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RunLoop.h"
#include "Tests/Port/NotificationNames.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

namespace {

using namespace std::chrono_literals;
using platform::NotificationObserver;
using platform::Posters;

constexpr auto longEnough = 10s;
constexpr auto notLong = 100ms;

// Counts what it hears.
class Listener {
 public:
  explicit Listener(const std::string& purpose, Posters posters = Posters::everyone)
      : observer(ownName(purpose), posters, [this] { ++heard; }) {}
  int heard = 0;

 private:
  NotificationObserver observer;
};

void waitUntilHeard(const Listener& listener) {
  const platform::Date start = platform::currentDate();
  while (listener.heard == 0 && platform::currentDate() - start < longEnough) {
    if (!platform::runLoopRunOnce(longEnough)) return;
  }
}

// Whatever is on its way arrives meanwhile.
void waitInVain(PortDriver& driver) {
  driver.nothingNewHappensFor(notLong);
  std::ignore = platform::runLoopRunOnce(notLong);
}

}  // namespace

TEST(NotificationCenter, DeliversWhatAnotherProcessPostedBeforeItEnded) {
  PortDriver driver;
  const Listener listener("Stop");

  driver.postFromAnotherProcess(ownName("Stop"));
  waitUntilHeard(listener);

  EXPECT_EQ(listener.heard, 1);
}

TEST(NotificationCenter, DeliversWhatThisProcessPosted) {
  const PortDriver driver;
  const Listener listener("LaunchCall");

  platform::postNotification(ownName("LaunchCall"));
  waitUntilHeard(listener);

  EXPECT_EQ(listener.heard, 1);
}

TEST(NotificationCenter, DeliversInTheRunLoopOnly) {
  PortDriver driver;
  const Listener listener("Stop");

  driver.postFromAnotherProcess(ownName("Stop"));
  driver.spend(50ms);

  EXPECT_EQ(listener.heard, 0);
}

TEST(NotificationCenter, DeliversOnceOnly) {
  PortDriver driver;
  const Listener listener("Stop");
  driver.postFromAnotherProcess(ownName("Stop"));
  waitUntilHeard(listener);

  waitInVain(driver);

  EXPECT_EQ(listener.heard, 1);
}

TEST(NotificationCenter, DeliversEachOfTwoPostsThatAreFarApart) {
  PortDriver driver;
  Listener listener("List");
  driver.postFromAnotherProcess(ownName("List"));
  waitUntilHeard(listener);
  listener.heard = 0;

  driver.postFromAnotherProcess(ownName("List"));
  waitUntilHeard(listener);

  EXPECT_EQ(listener.heard, 1);
}

TEST(NotificationCenter, DeliversToEveryObserverOfTheName) {
  PortDriver driver;
  const Listener first("Stop");
  const Listener second("Stop");

  driver.postFromAnotherProcess(ownName("Stop"));
  waitUntilHeard(first);
  waitUntilHeard(second);

  EXPECT_EQ(first.heard, 1);
  EXPECT_EQ(second.heard, 1);
}

TEST(NotificationCenter, DeliversNoOtherName) {
  PortDriver driver;
  const Listener listener("Stop");
  const Listener longer("Stop.Now");
  const Listener other("List");

  driver.postFromAnotherProcess(ownName("List"));
  waitUntilHeard(other);
  waitInVain(driver);

  EXPECT_EQ(other.heard, 1);
  EXPECT_EQ(listener.heard, 0);
  EXPECT_EQ(longer.heard, 0);
}

TEST(NotificationCenter, DeliversNothingToAnObserverRegisteredLater) {
  PortDriver driver;
  driver.postFromAnotherProcess(ownName("LaunchCall"));

  const Listener listener("LaunchCall");
  waitInVain(driver);

  EXPECT_EQ(listener.heard, 0);
}

TEST(NotificationCenter, DeliversNothingToAnObserverThatHasEnded) {
  PortDriver driver;
  int heard = 0;
  auto observer = std::make_unique<NotificationObserver>(ownName("Stop"), Posters::everyone,
                                                         [&heard] { ++heard; });
  driver.postFromAnotherProcess(ownName("Stop"));

  observer.reset();
  waitInVain(driver);

  EXPECT_EQ(heard, 0);
}

TEST(NotificationCenter, AnObserverMayEndWhileItIsTold) {
  PortDriver driver;
  int heard = 0;
  std::unique_ptr<NotificationObserver> observer;
  observer = std::make_unique<NotificationObserver>(ownName("LaunchResponse"), Posters::everyone,
                                                    [&heard, &observer] {
                                                      ++heard;
                                                      observer.reset();
                                                    });
  driver.postFromAnotherProcess(ownName("LaunchResponse"));

  std::ignore = platform::runLoopRunOnce(longEnough);

  EXPECT_EQ(heard, 1);
  EXPECT_EQ(observer, nullptr);
}

TEST(NotificationCenter, AnObserverMayPostWhileItIsTold) {
  PortDriver driver;
  const Listener answered("LaunchResponse");
  const NotificationObserver answering(ownName("LaunchCall"), Posters::everyone, [] {
    platform::postNotification(ownName("LaunchResponse"));
  });

  driver.postFromAnotherProcess(ownName("LaunchCall"));
  waitUntilHeard(answered);

  EXPECT_EQ(answered.heard, 1);
}

TEST(NotificationCenter, StrangersReachThoseWhoHearEveryone) {
  PortDriver driver;
  const Listener listener("LaunchCall", Posters::everyone);
  if (!driver.postAsStranger(ownName("LaunchCall"))) GTEST_SKIP() << "needs several users";

  waitUntilHeard(listener);

  EXPECT_EQ(listener.heard, 1);
}

TEST(NotificationCenter, StrangersDoNotReachThoseWhoHearTheirOwn) {
  if (!portTraits().tellsWhoPosted) GTEST_SKIP() << "this machine does not tell who posted";
  PortDriver driver;
  const Listener stop("Stop", Posters::rootAndOwnUser);
  const Listener response("LaunchResponse", Posters::trustedAgents);
  if (!driver.postAsStranger(ownName("Stop"))) GTEST_SKIP() << "needs several users";
  ASSERT_TRUE(driver.postAsStranger(ownName("LaunchResponse")));

  waitInVain(driver);

  EXPECT_EQ(stop.heard, 0);
  EXPECT_EQ(response.heard, 0);
}

TEST(NotificationCenter, APostWithoutObserversIsNoMistake) {
  const PortDriver driver;
  ::testing::internal::CaptureStderr();
  platform::postNotification(ownName("Stop"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace ombrix::tests
