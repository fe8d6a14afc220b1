#include <gtest/gtest.h>

#include <csignal>

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
using platform::runLoopRunOnce;

constexpr auto longEnough = 60s;

volatile std::sig_atomic_t signalsHandled = 0;

void countSignal(int /*signalNumber*/) { signalsHandled = signalsHandled + 1; }

// An observer that hears nothing, but is there to be waited for.
class SomethingToWaitFor {
  NotificationObserver observer{ownName("Silence"), Posters::everyone, [] {}};
};

platform::Date::duration since(platform::Date start) { return platform::currentDate() - start; }

}  // namespace

TEST(RunLoop, ReturnsWhenTheLimitIsOver) {
  PortDriver driver;
  const SomethingToWaitFor something;
  const platform::Date start = platform::currentDate();

  driver.nothingNewHappensFor(50ms);
  EXPECT_TRUE(runLoopRunOnce(50ms));

  EXPECT_GE(since(start), 45ms);
  EXPECT_LT(since(start), longEnough);
}

TEST(RunLoop, ReturnsAtOnceWhenThereIsNoLimitLeft) {
  PortDriver driver;
  const SomethingToWaitFor something;
  const platform::Date start = platform::currentDate();

  driver.nothingNewHappensFor(0ms);
  EXPECT_TRUE(runLoopRunOnce(0ms));

  EXPECT_LT(since(start), longEnough);
}

TEST(RunLoop, HandlesWhatIsPendingWhenThereIsNoLimitLeft) {
  PortDriver driver;
  int heard = 0;
  const NotificationObserver observer(ownName("Stop"), Posters::everyone, [&heard] { ++heard; });
  driver.postFromAnotherProcess(ownName("Stop"));
  const platform::Date start = platform::currentDate();
  // Some services take a moment to bring what was posted.
  while (heard == 0 && since(start) < longEnough) {
    driver.nothingNewHappensFor(0ms);
    ASSERT_TRUE(runLoopRunOnce(0ms));
  }
  EXPECT_EQ(heard, 1);
}

TEST(RunLoop, ReturnsAtOnceWhenASourceHasBeenHandled) {
  PortDriver driver;
  int heard = 0;
  const NotificationObserver observer(ownName("Stop"), Posters::everyone, [&heard] { ++heard; });
  const platform::Date start = platform::currentDate();

  driver.postFromAnotherProcess(ownName("Stop"));
  EXPECT_TRUE(runLoopRunOnce(longEnough));

  EXPECT_LT(since(start), longEnough);
  EXPECT_EQ(heard, 1);
}

TEST(RunLoop, HandlesOneSourcePerRun) {
  if (!portTraits().observersAreSources) GTEST_SKIP() << "all observers are one source here";
  PortDriver driver;
  int heard = 0;
  const NotificationObserver first(ownName("Stop"), Posters::everyone, [&heard] { ++heard; });
  const NotificationObserver second(ownName("List"), Posters::everyone, [&heard] { ++heard; });
  driver.postFromAnotherProcess(ownName("Stop"));
  driver.postFromAnotherProcess(ownName("List"));

  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_EQ(heard, 1);
  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_EQ(heard, 2);
}

TEST(RunLoop, ReturnsFalseAtOnceWithNothingToWaitOn) {
  if (portTraits().canWaitForNothing) GTEST_SKIP() << "this machine can wait for nothing";
  const PortDriver driver;
  const platform::Date start = platform::currentDate();

  EXPECT_FALSE(runLoopRunOnce(longEnough));

  EXPECT_LT(since(start), longEnough);
}

TEST(RunLoop, ASignalEndsTheWaitAndItsHandlerRuns) {
  PortDriver driver;
  const SomethingToWaitFor something;
  platform::endWaitOnSignal(SIGTERM);
  std::signal(SIGTERM, countSignal);
  const platform::Date start = platform::currentDate();

  driver.sendSignal(SIGTERM);
  EXPECT_TRUE(runLoopRunOnce(longEnough));

  EXPECT_EQ(signalsHandled, 1);
  EXPECT_LT(since(start), longEnough);
}

TEST(RunLoop, EverySignalNamedEndsTheWait) {
  PortDriver driver;
  const SomethingToWaitFor something;
  for (const int signalNumber : {SIGTERM, SIGINT, SIGQUIT}) {
    platform::endWaitOnSignal(signalNumber);
    std::signal(signalNumber, countSignal);
  }
  const platform::Date start = platform::currentDate();

  for (const int signalNumber : {SIGTERM, SIGINT, SIGQUIT}) {
    driver.sendSignal(signalNumber);
    EXPECT_TRUE(runLoopRunOnce(longEnough));
  }

  EXPECT_EQ(signalsHandled, 3);
  EXPECT_LT(since(start), longEnough);
}

// No handler can be had for it, and nothing comes of asking.
TEST(RunLoop, TakesTheSignalThatNobodyCanHandle) {
  PortDriver driver;
  const SomethingToWaitFor something;
  platform::endWaitOnSignal(SIGKILL);
  driver.nothingNewHappensFor(1ms);
  EXPECT_TRUE(runLoopRunOnce(1ms));
}

}  // namespace ombrix::tests
