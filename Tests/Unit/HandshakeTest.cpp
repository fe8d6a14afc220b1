#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "Platform/NotificationCenter.h"
#include "Source/Core/ClientSetup.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/AllocationFailure.h"
#include "Tests/Unit/CoreTestSupport.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/MakeOrNull.h"

// How ClientSetup finds out that another agent runs, and tells others of its own.

namespace ombrix {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using tests::AllocationFailure;
using tests::FakeMachine;

constexpr const char* alreadyRunning = "Ombrix is already running. Shutting down this instance.";

// Delivers all that is pending, what it brings about included.
void deliverAll(FakeMachine& machine) {
  while (machine.deliverOne()) {
  }
}

TEST(Handshake, NotificationsHaveTheNamesThatAllAgentsShare) {
  EXPECT_STREQ(Notification::launchCall, "com.velkworks.Ombrix2.LaunchCall");
  EXPECT_STREQ(Notification::launchResponse, "com.velkworks.Ombrix2.LaunchResponse");
}

TEST(Handshake, CallsOnceAndObservesResponsesAndThenCalls) {
  const FakeMachine machine;
  const ClientSetup setup;
  EXPECT_THAT(machine.posted, ElementsAre(Notification::launchCall));
  EXPECT_THAT(machine.observedNames(),
              ElementsAre(Notification::launchResponse, Notification::launchCall));
}

TEST(Handshake, ResponsesAreObservedBeforeTheCallIsPosted) {
  const FakeMachine machine;
  // What is observed right after the post, when the next allocation is made.
  std::optional<std::vector<std::string>> observedAfterPost;
  const AllocationFailure look([&](std::size_t) {
    if (!machine.posted.empty() && !observedAfterPost) observedAfterPost = machine.observedNames();
    return false;
  });
  const ClientSetup setup;
  ASSERT_TRUE(observedAfterPost);
  EXPECT_THAT(*observedAfterPost, ElementsAre(Notification::launchResponse));
}

TEST(Handshake, AgentDoesNotHearItsOwnCall) {
  FakeMachine machine;
  const ClientSetup setup;
  EXPECT_FALSE(machine.deliverOne());
}

TEST(Handshake, CallOfALaterAgentIsAnsweredSilently) {
  FakeMachine machine;
  LogManager::setLogLevel(LogLevel::debugPlus);
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchCall);
  deliverAll(machine);
  EXPECT_THAT(machine.posted, ElementsAre(Notification::launchCall, Notification::launchResponse));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST(Handshake, EachCallIsAnswered) {
  FakeMachine machine;
  const ClientSetup setup;
  for (int agent = 0; agent < 3; ++agent) {
    machine.postFromOutside(Notification::launchCall);
    deliverAll(machine);
  }
  EXPECT_EQ(std::count(machine.posted.begin(), machine.posted.end(), Notification::launchResponse),
            3);
}

TEST(Handshake, CallOfAStrangerIsAnswered) {
  FakeMachine machine;
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchCall, FakeMachine::Poster::stranger);
  deliverAll(machine);
  EXPECT_THAT(machine.posted, Contains(Notification::launchResponse));
}

TEST(Handshake, CallPostedBeforeItObservesIsNotAnswered) {
  FakeMachine machine;
  machine.postFromOutside(Notification::launchCall);
  const ClientSetup setup;
  deliverAll(machine);
  EXPECT_THAT(machine.posted, ElementsAre(Notification::launchCall));
}

TEST(Handshake, ResponseEndsTheAgent) {
  const tests::ScratchFolder folder;
  FakeMachine machine;
  tests::logEverything();
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchResponse);
  EXPECT_EXIT(deliverAll(machine), ExitedWithCode(1), HasSubstr(alreadyRunning));
  EXPECT_THAT(tests::logLines(), ElementsAre(std::string("[Alert]\t") + alreadyRunning));
}

TEST(Handshake, ResponseOfTheMachinesAgentEndsTheAgent) {
  FakeMachine machine;
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchResponse, FakeMachine::Poster::machineAgent);
  EXPECT_EXIT(deliverAll(machine), ExitedWithCode(1), HasSubstr(alreadyRunning));
}

TEST(Handshake, ResponseThatCameBeforeTheRunLoopRanIsNotMissed) {
  FakeMachine machine;
  // The agent that runs already; it answers as soon as its run loop hears the call.
  const platform::NotificationObserver runningAgent(
      Notification::launchCall, platform::Posters::everyone,
      [&machine] { machine.postFromOutside(Notification::launchResponse); });
  const ClientSetup setup;
  EXPECT_EXIT(deliverAll(machine), ExitedWithCode(1), HasSubstr(alreadyRunning));
}

TEST(Handshake, AgentThatEndsOnAResponseObservesNothingAnyMore) {
  FakeMachine machine;
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchResponse);
  const auto hear = [&machine] {
    tests::tellNotificationsAtExit();
    deliverAll(machine);
  };
  EXPECT_EXIT(hear(), ExitedWithCode(1), HasSubstr("observed at exit: []\n"));
}

TEST(Handshake, ResponseOfAStrangerIsNotHeard) {
  FakeMachine machine;
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchResponse, FakeMachine::Poster::stranger);
  EXPECT_FALSE(machine.deliverOne());
}

TEST(Handshake, AgentThatHasAnsweredNeverEndsOnAResponse) {
  FakeMachine machine;
  const ClientSetup setup;
  machine.postFromOutside(Notification::launchCall);
  deliverAll(machine);
  machine.postFromOutside(Notification::launchResponse);
  deliverAll(machine);
  EXPECT_FALSE(machine.logged(alreadyRunning));
  EXPECT_THAT(machine.observedNames(),
              ElementsAre(Notification::launchResponse, Notification::launchCall));
}

TEST(Handshake, OfTwoThatStartTogetherTheOneThatHeardTheOtherStays) {
  FakeMachine machine;
  const ClientSetup setup;
  // The other agent observed nothing yet when this one called.
  machine.postFromOutside(Notification::launchCall);
  deliverAll(machine);
  EXPECT_THAT(machine.posted, ElementsAre(Notification::launchCall, Notification::launchResponse));
  EXPECT_FALSE(machine.logged(alreadyRunning));
}

TEST(Handshake, ObservesNothingOnceItIsGone) {
  const FakeMachine machine;
  { const ClientSetup setup; }
  EXPECT_THAT(machine.observedNames(), IsEmpty());
}

TEST(Handshake, NoMemoryHalfwayLeavesNoObserverBehind) {
  const FakeMachine machine;
  for (std::size_t number = 1;; ++number) {
    const AllocationFailure noMemory(tests::theNth(number));
    const auto setup = makeOrNull<ClientSetup>();
    if (!noMemory.happened()) break;
    EXPECT_EQ(setup, nullptr) << number;
    EXPECT_THAT(machine.observedNames(), IsEmpty()) << number;
  }
}

}  // namespace
}  // namespace ombrix
