#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>

#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/AllocationFailure.h"
#include "Tests/Unit/CoreTestSupport.h"

// The metering loop from its start to its end. The change of day has its own test, and so have the
// files that the loop writes.

namespace ombrix {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using tests::AllocationFailure;
using tests::FakeMachine;
using tests::MeteringBench;

TEST(MeteringManager, EngineWithoutAStoreEndsTheProcess) {
  const MeteringBench bench;
  tests::logEverything();
  const std::string message =
      "Could not initialize MeteringManager with this ConfigurationManager. Quitting.";
  EXPECT_EXIT(const MeteringManager engine(nullptr), ExitedWithCode(1), HasSubstr(message));
  EXPECT_THAT(tests::logLines(), ElementsAre("[Error]\t" + message));
}

TEST(MeteringManager, FreshEngineObservesStopAndThenList) {
  const MeteringBench bench;
  const MeteringManager engine(&bench.store);
  EXPECT_THAT(bench.machine.observedNames(), ElementsAre(Notification::stop, Notification::list));
}

TEST(MeteringManager, MachinesAgentIsNoOneToStopOrList) {
  MeteringBench bench;
  const MeteringManager engine(&bench.store);
  bench.machine.postFromOutside(Notification::stop, FakeMachine::Poster::machineAgent);
  bench.machine.postFromOutside(Notification::list, FakeMachine::Poster::machineAgent);
  EXPECT_FALSE(bench.machine.deliverOne());
}

TEST(MeteringManager, StopAndListHaveTheNamesThatCommandsPost) {
  EXPECT_STREQ(Notification::stop, "com.velkworks.Ombrix2.Stop");
  EXPECT_STREQ(Notification::list, "com.velkworks.Ombrix2.List");
}

TEST(MeteringManager, FreshEngineHasNoTableAndNothingToWrite) {
  const MeteringBench bench;
  tests::logEverything();
  MeteringManager engine(&bench.store);
  engine.stopMetering();
  engine.updateMeteringData();
  EXPECT_EQ(bench.machine.fetches, 0);
  EXPECT_THAT(bench.machine.powerCalls, IsEmpty());
  EXPECT_THAT(tests::logLines(), IsEmpty());
}

TEST(MeteringManager, NoMemoryForTheProcessManagerEndsTheProcess) {
  const MeteringBench bench;
  tests::logEverything();
  MeteringManager engine(&bench.store);
  const auto start = [&engine] {
    const AllocationFailure noMemory(tests::ofExactly(sizeof(ProcessManager)));
    engine.startMetering();
  };
  EXPECT_EXIT(start(), ExitedWithCode(1), HasSubstr("Could not initialize ProcessManager."));
  EXPECT_THAT(tests::logLines(), ElementsAre("[Error]\tCould not initialize ProcessManager."));
}

TEST(MeteringManager, NoMemoryForAMomentIsToldAndMeteringGoesOn) {
  MeteringBench bench;
  tests::logEverything();
  std::optional<AllocationFailure> noMemory;
  bench.machine.waits.emplace_back([&] {
    bench.machine.run(4, "less");
    noMemory.emplace(tests::ofAtLeast(sizeof(ProcessData)));
  });
  bench.machine.waits.emplace_back([&] { noMemory.reset(); });
  MeteringManager engine(&bench.store);
  EXPECT_EQ(engine.startMetering(), 0);
  EXPECT_THAT(bench.records(), SizeIs(4));
  EXPECT_THAT(tests::logLines(),
              Contains("[Warning]\tThe machine gave no more memory; the reserve was used."));
}

TEST(MeteringManager, StartMakesTheThreeDirectories) {
  const MeteringBench bench;
  MeteringManager engine(&bench.store);
  engine.startMetering();
  for (const char* directory : {"records", "log", "temporary"}) {
    EXPECT_TRUE(std::filesystem::is_directory(directory)) << directory;
  }
}

TEST(MeteringManager, DirectoriesAreMadeBeforeTheFirstPoll) {
  MeteringBench bench;
  bench.machine.listFails = true;
  MeteringManager engine(&bench.store);
  EXPECT_EXIT(engine.startMetering(), ExitedWithCode(1), "");
  EXPECT_TRUE(std::filesystem::is_directory("temporary"));
}

TEST(MeteringManager, StorageDirectoryThatCannotBeMadeIsLoggedAndMeteringStarts) {
  MeteringBench bench;
  tests::logEverything();
  tests::writeFile("records", "an ordinary file");
  bench.store.removeConfiguration("storagedirectory");
  bench.store.addConfiguration("storagedirectory", "records/below/");
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_TRUE(bench.machine.logged("Error: Create folder failed records/below/"));
  EXPECT_EQ(bench.machine.timesLogged("Could not create selected ."), 1);
  EXPECT_THAT(tests::logLines(), Contains("[Error]\tCould not create selected ."));
  EXPECT_EQ(bench.machine.fetches, 1);
}

TEST(MeteringManager, EachOfTheThreeDirectoriesIsTriedOnceInTheirOrder) {
  FakeMachine machine;
  const tests::ScratchFolder folder;
  tests::runThreeProcesses(machine);
  tests::writeFile("file", "an ordinary file");
  ConfigurationManager store(nullptr);
  store.addConfiguration("temporarydirectory", "file/temporary/");
  store.addConfiguration("logdirectory", "file/log/");
  store.addConfiguration("storagedirectory", "file/records/");
  MeteringManager engine(&store);
  machine.systemLog.clear();
  engine.startMetering();
  machine.systemLog.resize(7);
  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("Error: Create folder failed file/records/", "Could not create selected .",
                  "Error: Create folder failed file/log/", "Could not create selected .",
                  "Error: Create folder failed file/temporary/", "Could not create selected .",
                  "Number of registered processes: 3"));
}

TEST(MeteringManager, DirectoryWithoutASettingCannotBeMade) {
  FakeMachine machine;
  tests::runThreeProcesses(machine);
  const ConfigurationManager store(nullptr);
  MeteringManager engine(&store);
  engine.startMetering();
  EXPECT_EQ(machine.timesLogged("Error: Create folder failed (null)"), 3);
  EXPECT_EQ(machine.timesLogged("Could not create selected ."), 3);
  EXPECT_EQ(machine.fetches, 1);
}

TEST(MeteringManager, PollsAtOnceAndThenAfterEachWait) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  std::vector<int> fetchesBeforeWaits;
  for (int wait = 0; wait < 3; ++wait) {
    machine.waits.emplace_back([&] { fetchesBeforeWaits.push_back(machine.fetches); });
  }
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(fetchesBeforeWaits, ElementsAre(1, 2, 3));
}

TEST(MeteringManager, MemoryOfTheStartIsReleasedOnceAfterTheFirstPoll) {
  MeteringBench bench;
  std::vector<int> releasesSeen;
  for (int wait = 0; wait < 2; ++wait) {
    bench.machine.waits.emplace_back(
        [&] { releasesSeen.push_back(bench.machine.memoryReleases * 10 + bench.machine.fetches); });
  }
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(releasesSeen, ElementsAre(11, 12));
}

TEST(MeteringManager, ReportsReadyBetweenTheFirstPollAndTheFirstWait) {
  MeteringBench bench;
  std::optional<int> fetchesWhenReady;
  bench.machine.waits.emplace_back([&] { fetchesWhenReady = bench.machine.fetchesWhenReady; });
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_EQ(fetchesWhenReady, 1);
}

TEST(MeteringManager, EachWaitLastsAMinuteAtMost) {
  MeteringBench bench;
  bench.machine.waits.resize(2, [] {});
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(bench.machine.waitLimits, SizeIs(3));
  EXPECT_THAT(bench.machine.waitLimits, Each(seconds(60)));
}

TEST(MeteringManager, EndedRunIsWrittenByTheNextPoll) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  std::vector<std::string> recordsInSecondWait;
  machine.waits.emplace_back([&] { machine.run(4, "less"); });
  machine.waits.emplace_back([&] {
    machine.pass(minutes(1));
    machine.end(4);
  });
  machine.waits.emplace_back([&] { recordsInSecondWait = bench.records(); });
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(recordsInSecondWait,
              ElementsAre("less;;;;/usr/bin;root;;2024-03-01 10:00:00;2024-03-01 10:01:00;0;60"));
}

TEST(MeteringManager, CycleWithinTheSameDayWritesNoOpenRun) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  std::vector<std::string> recordsInLastWait = {"not looked at"};
  for (int hour = 0; hour < 13; ++hour) {
    machine.waits.emplace_back([&machine] { machine.pass(minutes(60)); });
  }
  machine.waits.emplace_back([&] { recordsInLastWait = bench.records(); });
  MeteringManager engine(&bench.store);
  engine.startMetering();
  EXPECT_THAT(recordsInLastWait, IsEmpty());
}

TEST(MeteringManager, SecondStartWritesTheRunsOfTheFirstAndStartsAnew) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  MeteringManager engine(&bench.store);
  engine.startMetering();
  machine.pass(minutes(1));
  std::vector<std::string> recordsInWait;
  machine.waits.emplace_back([&] { recordsInWait = bench.records(); });
  engine.startMetering();
  EXPECT_THAT(recordsInWait,
              Contains("vim;;;;/usr/bin;root;;2024-03-01 10:00:00;2024-03-01 10:01:00;0;60"));
  EXPECT_THAT(bench.records(),
              Contains("vim;;;;/usr/bin;root;;2024-03-01 10:01:00;2024-03-01 10:01:00;0;0"));
}

TEST(MeteringManager, UpdateIsOnePollWhoseEndedRunsAreWritten) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.run(4, "less");
  MeteringManager engine(&bench.store);
  engine.startMetering();
  machine.end(4);
  machine.pass(minutes(1));
  engine.updateMeteringData();
  EXPECT_EQ(machine.fetches, 2);
  EXPECT_THAT(bench.records(), SizeIs(5));
  EXPECT_THAT(bench.records(),
              Contains("less;;;;/usr/bin;root;;2024-03-01 10:00:00;2024-03-01 10:01:00;0;60"));
}

TEST(MeteringManager, FailureOfTheRecordWriterDoesNotEndTheLoop) {
  MeteringBench bench;
  FakeMachine& machine = bench.machine;
  machine.run(4, "less");
  machine.waits.emplace_back([&] {
    machine.end(4);
    std::filesystem::remove_all("records");
  });
  machine.waits.emplace_back([] {});
  MeteringManager engine(&bench.store);
  EXPECT_EQ(engine.startMetering(), 0);
  EXPECT_EQ(machine.fetches, 3);
}

}  // namespace
}  // namespace ombrix
