#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>

#include "Platform/NotificationCenter.h"
#include "Platform/RunLoop.h"
#include "Tests/Port/Linux/Resources.h"

namespace ombrix::tests {

namespace {

using namespace std::chrono_literals;
using platform::NotificationObserver;
using platform::Posters;
using platform::runLoopRunOnce;
using std::chrono::steady_clock;

constexpr auto longEnough = 60s;

volatile std::sig_atomic_t signalsHandled = 0;

void countSignal(int /*signalNumber*/) { signalsHandled = signalsHandled + 1; }

void handle(int signalNumber) {
  platform::endWaitOnSignal(signalNumber);
  std::ignore = std::signal(signalNumber, countSignal);
}

bool isAsleep(pid_t process) {
  std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(stat), {}};
  return text.find(") S ") != std::string::npos;
}

// In a child process, which signals this one as soon as it sees it asleep.
void signalOnceAsleep(int signalNumber) {
  const pid_t sleeper = ::getpid();
  if (::fork() != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  while (!isAsleep(sleeper)) ::sched_yield();
  ::kill(sleeper, signalNumber);
  ::_exit(0);
}

}  // namespace

TEST(RunLoopOnLinux, ASignalThatComesDuringTheWaitEndsIt) {
  handle(SIGTERM);
  const auto start = steady_clock::now();

  signalOnceAsleep(SIGTERM);
  EXPECT_TRUE(runLoopRunOnce(longEnough));

  EXPECT_EQ(signalsHandled, 1);
  EXPECT_LT(steady_clock::now() - start, longEnough);
}

TEST(RunLoopOnLinux, ALimitOfNoDescriptorsIsNoEndOfWaiting) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const bool waited = runLoopRunOnce(1ms);
  ::setrlimit(RLIMIT_NOFILE, &before);  // a sanitizer needs some
  EXPECT_TRUE(waited);
}

// So that none slips in between the agent's look at its flag and the wait.
TEST(RunLoopOnLinux, SignalsAreHeldBackUntilTheWait) {
  handle(SIGTERM);
  ::raise(SIGTERM);
  EXPECT_EQ(signalsHandled, 0);
  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_EQ(signalsHandled, 1);
}

TEST(RunLoopOnLinux, ASignalIsHeardAlsoWhenASourceIsAlwaysReadable) {
  handle(SIGTERM);
  int heard = 0;
  const NotificationObserver observer("Stop", Posters::everyone, [&heard] { ++heard; });
  platform::postNotification("Stop");
  ::raise(SIGTERM);

  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_EQ(signalsHandled, 1);
  EXPECT_EQ(heard, 0);

  EXPECT_TRUE(runLoopRunOnce(longEnough));
  EXPECT_EQ(heard, 1);
}

TEST(RunLoopOnLinux, SignalsThatWereNotNamedAreNotHeldBack) {
  handle(SIGTERM);
  std::ignore = std::signal(SIGHUP, countSignal);
  ::raise(SIGHUP);
  EXPECT_EQ(signalsHandled, 1);
}

TEST(RunLoopOnLinux, WaitsOutItsLimitWithNothingToWaitOn) {
  const auto start = steady_clock::now();
  EXPECT_TRUE(runLoopRunOnce(50ms));
  EXPECT_GE(steady_clock::now() - start, 50ms);
}

TEST(RunLoopOnLinux, WaitsOutItsLimitAlsoWithoutAFreeDescriptor) {
  ::testing::internal::CaptureStderr();
  {
    const NoFreeDescriptor none;
    const auto start = steady_clock::now();
    EXPECT_TRUE(runLoopRunOnce(20ms));
    EXPECT_TRUE(runLoopRunOnce(20ms));
    EXPECT_GE(steady_clock::now() - start, 40ms);
  }
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST(RunLoopOnLinux, ASignalEndsTheWaitAlsoWithoutAFreeDescriptor) {
  handle(SIGTERM);
  ::testing::internal::CaptureStderr();
  const auto start = steady_clock::now();
  ::raise(SIGTERM);
  {
    const NoFreeDescriptor none;
    EXPECT_TRUE(runLoopRunOnce(longEnough));
  }
  EXPECT_EQ(signalsHandled, 1);
  EXPECT_LT(steady_clock::now() - start, longEnough);
  std::ignore = ::testing::internal::GetCapturedStderr();
}

}  // namespace ombrix::tests
