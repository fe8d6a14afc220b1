#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <tuple>

#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"

// How the metering loop ends: on which request, with which words, and what it writes.

namespace ombrix {
namespace {

using std::chrono::minutes;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::FakeMachine;
using tests::MeteringBench;

constexpr const char* writingAll = "[Info]\tWriting metering data for all processes.";

// The lines of the log that tell of the loop's end, in their order.
std::vector<std::string> endingLines() {
  std::vector<std::string> lines;
  for (const std::string& line : tests::logLines()) {
    if (line.starts_with("[Notice]") || line == writingAll) lines.push_back(line);
  }
  return lines;
}

TEST(Shutdown, HandlerIsInstalledForTheTerminationSignals) {
  const MeteringBench bench;
  MeteringManager engine(&bench.store);
  engine.startMetering();
  for (const int signalNumber : {SIGTERM, SIGINT, SIGQUIT}) {
    struct sigaction action {};
    ASSERT_EQ(::sigaction(signalNumber, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, &HandleSignals) << signalNumber;
  }
}

TEST(Shutdown, TerminationSignalsEndTheWaitAndAreNamedInTheirOrder) {
  MeteringBench bench;
  MeteringManager engine(&bench.store);
  engine.startMetering();
  // The system takes no handler for SIGKILL, so that it does not matter whether it is named.
  std::vector<int>& named = bench.machine.signalsThatEndTheWait;
  std::erase(named, SIGKILL);
  EXPECT_THAT(named, ElementsAre(SIGTERM, SIGINT, SIGQUIT));
}

TEST(Shutdown, NothingToWaitOnEndsTheLoopWithoutAMessage) {
  const MeteringBench bench;
  tests::logEverything();
  MeteringManager engine(&bench.store);
  EXPECT_EQ(engine.startMetering(), 0);
  EXPECT_THAT(endingLines(), ElementsAre(writingAll));
  EXPECT_THAT(bench.records(), SizeIs(3));
}

TEST(Shutdown, StopNotificationEndsTheLoopAndWritesEveryOpenRun) {
  MeteringBench bench;
  tests::logEverything();
  FakeMachine& machine = bench.machine;
  machine.waits.resize(3, [] {});
  machine.waits.front() = [&machine] { machine.postFromOutside(Notification::stop); };
  MeteringManager engine(&bench.store);
  EXPECT_EQ(engine.startMetering(), 0);
  EXPECT_THAT(machine.waitLimits, SizeIs(1));
  EXPECT_THAT(endingLines(),
              ElementsAre("[Notice]\tCaught stop notification. Shutting down.", writingAll));
  EXPECT_THAT(bench.records(), SizeIs(3));
}

TEST(Shutdown, StopOfAnotherUserIsNotHeard) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.waits.resize(3, [] {});
  machine.waits.front() = [&machine] {
    machine.postFromOutside(Notification::stop, FakeMachine::Poster::stranger);
  };
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(machine.waitLimits, SizeIs(4));
}

// The loop of an engine that gets `signalNumber` in the first of three waits.
void meterUntil(MeteringBench& bench, int signalNumber) {
  tests::logEverything();
  bench.machine.waits.resize(3, [] {});
  bench.machine.waits.front() = [signalNumber] { std::ignore = std::raise(signalNumber); };
  MeteringManager engine(&bench.store);
  EXPECT_EQ(engine.startMetering(), 0);
}

void expectEndedBySignal(const MeteringBench& bench) {
  EXPECT_THAT(bench.machine.waitLimits, SizeIs(1));
  EXPECT_THAT(endingLines(),
              ElementsAre("[Notice]\tThe process was asked to terminate.", writingAll));
  EXPECT_THAT(bench.records(), SizeIs(3));
}

TEST(Shutdown, TerminateEndsTheLoopAndWritesEveryOpenRun) {
  MeteringBench bench;
  meterUntil(bench, SIGTERM);
  expectEndedBySignal(bench);
}

TEST(Shutdown, InterruptEndsTheLoopAndWritesEveryOpenRun) {
  MeteringBench bench;
  meterUntil(bench, SIGINT);
  expectEndedBySignal(bench);
}

TEST(Shutdown, QuitEndsTheLoopAndWritesEveryOpenRun) {
  MeteringBench bench;
  meterUntil(bench, SIGQUIT);
  expectEndedBySignal(bench);
}

TEST(Shutdown, SignalTogetherWithStopIsToldFirst) {
  MeteringBench bench;
  tests::logEverything();
  FakeMachine& machine = bench.machine;
  machine.waits.emplace_back([&machine] {
    machine.postFromOutside(Notification::stop);
    std::ignore = std::raise(SIGTERM);
  });
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(endingLines(),
              ElementsAre("[Notice]\tThe process was asked to terminate.",
                          "[Notice]\tCaught stop notification. Shutting down.", writingAll));
}

TEST(Shutdown, RequestIsToldAlsoWhenThereIsNothingToWaitOn) {
  const MeteringBench bench;
  tests::logEverything();
  MeteringManager engine(&bench.store);
  HandleSignals(SIGTERM);
  engine.startMetering();
  EXPECT_THAT(endingLines(),
              ElementsAre("[Notice]\tThe process was asked to terminate.", writingAll));
}

TEST(Shutdown, LastWaitIsFollowedByNoPoll) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.waits.emplace_back([&machine] {
    machine.run(4, "less");
    machine.postFromOutside(Notification::stop);
  });
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_EQ(machine.fetches, 1);
  EXPECT_THAT(bench.records(), Each(Not(StartsWith("less"))));
}

TEST(Shutdown, StopIsNoticedOnlyByTheLoop) {
  MeteringBench bench;
  tests::logEverything();
  MeteringManager engine(&bench.store);
  engine.receiveStopNotification();
  HandleSignals(SIGTERM);
  EXPECT_THAT(tests::logLines(), IsEmpty());
  bench.machine.waits.resize(3, [] {});
  engine.startMetering();
  EXPECT_THAT(bench.machine.waitLimits, SizeIs(1));
}

TEST(Shutdown, LoopStartedAgainAfterAStopEndsAfterItsFirstWait) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  MeteringManager engine(&bench.store);
  machine.postFromOutside(Notification::stop);
  engine.startMetering();
  machine.waits.resize(3, [] {});
  engine.startMetering();
  EXPECT_THAT(machine.waitLimits, SizeIs(2));
  EXPECT_EQ(machine.fetches, 2);
}

TEST(Shutdown, StoppingWritesEveryOpenRunAndLeavesTheTableAsItIs) {
  MeteringBench bench;
  MeteringManager engine(&bench.store);
  engine.startMetering();
  bench.machine.pass(minutes(5));
  engine.stopMetering();
  EXPECT_THAT(bench.records(), SizeIs(6));
  EXPECT_EQ(bench.machine.fetches, 1);
  EXPECT_THAT(bench.records(), Contains(StartsWith("vim;;;;/usr/bin;root;;2024-03-01 10:00:00;"
                                                   "2024-03-01 10:05:00")));
}

TEST(Shutdown, StoppingIsAnnouncedBeforeTheRecordsAreWritten) {
  MeteringBench bench;
  tests::logEverything();
  MeteringManager engine(&bench.store);
  engine.startMetering();
  const std::vector<std::string> lines = tests::logLines();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ(lines[0], writingAll);
  EXPECT_THAT(lines[1], StartsWith("[Debug]\tWriting met file ["));
}

TEST(Shutdown, HandlerHeedsTheNumbersOfItsMask) {
  MeteringBench bench;
  bench.machine.waits.resize(2, [] {});
  MeteringManager engine(&bench.store);
  // The exit status is the number of waits: one when the signal was heeded, else three.
  const auto waitsAfter = [&](int signalNumber) {
    HandleSignals(signalNumber);
    engine.startMetering();
    std::exit(static_cast<int>(bench.machine.waitLimits.size()));
  };
  for (const int heeded : {2, 3, 6, 9, 15}) {
    EXPECT_EXIT(waitsAfter(heeded), ExitedWithCode(1), "") << heeded;
  }
  for (const int ignored : {-2147483647, -32, -30, -15, -6, -3, -2, -1, 0,  1,  4,  5,  7,  8,
                            10,          11,  12,  13,  14, 16, 17, 18, 19, 20, 31, 34, 47, 258}) {
    EXPECT_EXIT(waitsAfter(ignored), ExitedWithCode(3), "") << ignored;
  }
}

}  // namespace
}  // namespace ombrix
