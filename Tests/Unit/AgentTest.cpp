#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <tuple>

#include "Source/Agent.h"
#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/AllocationFailure.h"
#include "Tests/Unit/CoreTestSupport.h"

// The agent from its start to its end.

namespace ombrix {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::AllocationFailure;
using tests::FakeMachine;

// A machine with three processes, and a configuration in the working folder that logs at `level`.
struct AgentBench {
  explicit AgentBench(const std::optional<std::string>& level = "info") {
    tests::setTimeZone(tests::universalTime);
    tests::runThreeProcesses(machine);
    tests::ConfigurationText text;
    text.dataDirectory = "records";
    text.temporaryDirectory = "temporary";
    text.logDirectory = "log";
    text.logLevel = level;
    tests::writeFile("agent.xml", text.xml());
  }

  void stopInFirstWait() {
    machine.waits.emplace_back([this] { machine.postFromOutside(Notification::stop); });
  }

  tests::ScratchFolder folder;
  FakeMachine machine;
};

TEST(Agent, StopEndsItWithStatusZeroAndEveryRunWritten) {
  AgentBench bench;
  bench.stopInFirstWait();
  EXPECT_EQ(runAgent("agent.xml"), 0);
  EXPECT_THAT(tests::recordsIn("records"), SizeIs(3));
}

TEST(Agent, TerminationSignalEndsItWithStatusZeroAndEveryRunWritten) {
  AgentBench bench;
  bench.machine.waits.emplace_back([] { std::ignore = std::raise(SIGTERM); });
  EXPECT_EQ(runAgent("agent.xml"), 0);
  EXPECT_THAT(tests::recordsIn("records"), SizeIs(3));
}

TEST(Agent, StartAndEndAreToldAtInfo) {
  AgentBench bench("info");
  bench.stopInFirstWait();
  std::ignore = runAgent("agent.xml");
  EXPECT_THAT(tests::logLines(), ElementsAre("[Info]\tStarting Ombrix",
                                             "[Notice]\tCaught stop notification. Shutting down.",
                                             "[Info]\tWriting metering data for all processes.",
                                             "[Info]\tShutting down Ombrix"));
}

TEST(Agent, StartAndEndAreNotToldAtTheInitialLevel) {
  AgentBench bench(std::nullopt);
  bench.stopInFirstWait();
  std::ignore = runAgent("agent.xml");
  EXPECT_THAT(bench.machine.systemLog, ElementsAre("Number of registered processes: 3"));
  EXPECT_THAT(tests::logLines(), IsEmpty());
}

TEST(Agent, WithoutAPathTheFileOfTheDefaultNameIsUsed) {
  AgentBench bench;
  std::filesystem::rename("agent.xml", "velkagent.config");
  EXPECT_EQ(runAgent(std::nullopt), 0);
  EXPECT_THAT(tests::recordsIn("records"), SizeIs(3));
}

TEST(Agent, ObservesInTheOrderInWhichItIsBuiltAndNothingAtTheEnd) {
  AgentBench bench;
  std::vector<std::string> observed;
  bench.machine.waits.emplace_back([&] { observed = bench.machine.observedNames(); });
  std::ignore = runAgent("agent.xml");
  EXPECT_THAT(observed, ElementsAre(Notification::launchResponse, Notification::launchCall,
                                    Notification::stop, Notification::list));
  EXPECT_THAT(bench.machine.observedNames(), IsEmpty());
}

TEST(Agent, PowerRegistrationIsEndedAtTheEnd) {
  AgentBench bench;
  std::ignore = runAgent("agent.xml");
  EXPECT_THAT(bench.machine.powerCalls,
              ElementsAre("register", "deregister 2", "close 1", "release 2"));
}

TEST(Agent, CallsForARunningAgentBeforeItReadsItsConfiguration) {
  const AgentBench bench;
  const auto start = [] {
    tests::tellNotificationsAtExit();
    std::ignore = runAgent("nowhere.xml");
  };
  EXPECT_EXIT(start(), ExitedWithCode(1),
              HasSubstr(std::string("posted at exit: [") + Notification::launchCall + "]"));
}

TEST(Agent, FatalConfigurationErrorEndsItBeforeItMeters) {
  const AgentBench bench;
  EXPECT_EXIT(std::ignore = runAgent("nowhere.xml"), ExitedWithCode(1),
              AllOf(HasSubstr("Could not find a readable configuration file. Make sure we got read "
                              "access. Quitting."),
                    Not(HasSubstr("Number of registered processes"))));
}

TEST(Agent, LaterAgentsAreAnsweredWhileItRuns) {
  AgentBench bench;
  bench.machine.waits.emplace_back(
      [&bench] { bench.machine.postFromOutside(Notification::launchCall); });
  EXPECT_EQ(runAgent("agent.xml"), 0);
  EXPECT_THAT(bench.machine.posted,
              ElementsAre(Notification::launchCall, Notification::launchResponse));
}

TEST(Agent, SecondAgentEndsWithStatusOneInItsFirstWait) {
  AgentBench bench;
  bench.machine.waits.emplace_back(
      [&bench] { bench.machine.postFromOutside(Notification::launchResponse); });
  EXPECT_EXIT(std::ignore = runAgent("agent.xml"), ExitedWithCode(1),
              HasSubstr("Number of registered processes: 3\n"
                        "Ombrix is already running. Shutting down this instance.\n"));
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Info]\tStarting Ombrix",
                          "[Alert]\tOmbrix is already running. Shutting down this instance."));
  EXPECT_THAT(tests::recordsIn("records"), IsEmpty());
}

TEST(Agent, TooFewProcessesEndItAndItsOpenRunsAreNotWritten) {
  AgentBench bench;
  bench.machine.waits.emplace_back([&bench] { bench.machine.end(3); });
  bench.machine.waits.emplace_back([] {});
  EXPECT_EXIT(std::ignore = runAgent("agent.xml"), ExitedWithCode(1), "");
  EXPECT_THAT(tests::recordsIn("records"), ElementsAre(StartsWith("vim;")));
}

TEST(Agent, NoMemoryForClientSetupEndsTheProcess) {
  const AgentBench bench;
  const auto start = [] {
    const AllocationFailure noMemory(tests::ofExactly(sizeof(ClientSetup)));
    std::ignore = runAgent("agent.xml");
  };
  EXPECT_EXIT(start(), ExitedWithCode(1), HasSubstr("Could not initialize ClientSetup.\n"));
  EXPECT_FALSE(std::filesystem::exists("log")) << "it reaches the system log only";
}

TEST(Agent, MissingClientSetupIsAnError) {
  const AgentBench bench;
  tests::logEverything();
  const auto start = [] {
    const AllocationFailure noMemory(tests::ofExactly(sizeof(ClientSetup)));
    std::ignore = runAgent("agent.xml");
  };
  EXPECT_EXIT(start(), ExitedWithCode(1), "");
  EXPECT_THAT(tests::logLines(), ElementsAre("[Error]\tCould not initialize ClientSetup."));
}

TEST(Agent, NoMemoryForTheEngineIsStatusOneToReturn) {
  AgentBench bench;
  const AllocationFailure noMemory([&bench](std::size_t bytes) {
    return bytes == sizeof(MeteringManager) && bench.machine.logged("Starting Ombrix");
  });
  EXPECT_EQ(runAgent("agent.xml"), 1);
  EXPECT_THAT(tests::logLines(), ElementsAre("[Info]\tStarting Ombrix",
                                             "[Error]\tCould not initialize the metering engine."));
  EXPECT_EQ(bench.machine.fetches, 0);
  EXPECT_THAT(bench.machine.observedNames(), IsEmpty());
}

}  // namespace
}  // namespace ombrix
