#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Wait.h"

// One agent per machine, whatever happens to the others.

namespace ombrix::tests {

namespace {

constexpr const char* alreadyRunning =
    " - [Alert]\tOmbrix is already running. Shutting down this instance.\n";
constexpr std::size_t socketsOfAnAgent = 5;

}  // namespace

TEST(SecondAgent, EndsWithAnAlertWhileTheFirstGoesOn) {
  const Home firstHome("/tmp/first");
  const Home secondHome("/tmp/second");
  Agent first(firstHome);
  ASSERT_TRUE(first.hasStarted());
  Agent second(secondHome);
  EXPECT_EQ(second.waitForExit(), 1);
  EXPECT_EQ(occurrences(secondHome.log(), alreadyRunning), 1U);
  EXPECT_TRUE(secondHome.records().empty());
  ASSERT_TRUE(first.poll());
  EXPECT_EQ(first.stop(), 0);
  EXPECT_FALSE(contains(firstHome.log(), "already running"));
}

TEST(SecondAgent, LeavesItsOwnSocketsBehindItAndTheFirstOnesAlone) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  EXPECT_EQ(namesIn("/run/ombrix").size(), socketsOfAnAgent);
  EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  EXPECT_EQ(namesIn("/run/ombrix").size(), socketsOfAnAgent);
  EXPECT_EQ(first.stop(), 0);
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

TEST(SecondAgent, EndsWhateverItsLogLevelMayHide) {
  const Home secondHome("/tmp/second");
  Settings settings = secondHome.settings();
  settings.level = "Info";  // with its capital no word of a level: silence
  secondHome.configure(configurationText(settings));
  Agent first(Home("/tmp/first"));
  ASSERT_TRUE(first.hasStarted());
  EXPECT_EQ(Agent(secondHome).waitForExit(), 1);
  EXPECT_FALSE(contains(secondHome.log(), "already running"));
  EXPECT_EQ(first.stop(), 0);
}

TEST(SecondAgent, MayStartAsSoonAsTheFirstHasEnded) {
  for (int round = 0; round < 5; ++round) {
    const Home home("/tmp/home" + std::to_string(round));
    Agent agent(home);
    ASSERT_TRUE(agent.poll());
    EXPECT_EQ(agent.stop(), 0);
  }
}

TEST(SecondAgent, TenAtOnceAllEnd) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  std::vector<Home> homes;
  std::vector<Program> others;
  for (int i = 0; i < 10; ++i) homes.emplace_back("/tmp/other" + std::to_string(i));
  for (const Home& other : homes) others.push_back(Agent(other));
  for (Program& other : others) EXPECT_EQ(other.waitForExit(), 1) << other.errors();
  ASSERT_TRUE(first.poll());
  EXPECT_EQ(namesIn("/run/ombrix").size(), socketsOfAnAgent);
  EXPECT_EQ(first.stop(), 0);
}

// Two that call before either listens for calls do not notice each other; none ends but by the
// answer of one that stays.
TEST(SecondAgent, OfSeveralThatStartTogetherOneStaysAtLeast) {
  std::vector<Home> homes;
  std::vector<Agent> agents;
  for (int i = 0; i < 4; ++i) homes.emplace_back("/tmp/home" + std::to_string(i));
  for (const Home& home : homes) agents.emplace_back(home);
  for (Agent& agent : agents) {
    ASSERT_TRUE(eventually([&] { return !agent.isRunning() || agent.polls() > 0; }));
  }
  EXPECT_EQ(Agent(Home("/tmp/late")).waitForExit(), 1);
  const auto staying =
      std::count_if(agents.begin(), agents.end(), [](Agent& agent) { return agent.isRunning(); });
  EXPECT_GE(staying, 1);
}

TEST(SecondAgent, StartsAfterTheFirstWasKilled) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  first.kill();
  Agent second(home);
  ASSERT_TRUE(second.poll() && second.poll());
  EXPECT_EQ(second.stop(), 0);
}

TEST(SecondAgent, RemovesAllSocketsOfAKilledOne) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  const std::vector<std::string> stale = namesIn("/run/ombrix");
  ASSERT_EQ(stale.size(), socketsOfAnAgent);
  first.kill();
  Agent second(home);
  ASSERT_TRUE(second.hasStarted());
  const std::vector<std::string> present = namesIn("/run/ombrix");
  EXPECT_EQ(present.size(), socketsOfAnAgent);
  for (const std::string& name : present) {
    EXPECT_EQ(std::count(stale.begin(), stale.end(), name), 0) << name;
  }
  EXPECT_EQ(second.stop(), 0);
}

TEST(SecondAgent, CommandsRemoveTheirSocketsOfKilledOnes) {
  const Home home;
  for (int round = 0; round < 10; ++round) {
    Agent agent(home);
    ASSERT_TRUE(agent.hasStarted());
    agent.kill();
  }
  Agent last(home);
  ASSERT_TRUE(last.hasStarted());
  EXPECT_EQ(run(ombrix({"list"})).status, 0);
  EXPECT_EQ(last.stop(), 0);
  EXPECT_TRUE(socketsOf("Stop").empty());
  EXPECT_TRUE(socketsOf("List").empty());
}

TEST(SecondAgent, CommandsAfterAKilledOneReachNobodyAndSayNothing) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  agent.kill();
  const Outcome list = run(ombrix({"list"}));
  EXPECT_EQ(list.status, 0);
  EXPECT_EQ(list.errors, "");
  const Outcome stop = run(ombrix({"stop"}));
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.errors, "Shutting down Ombrix.\n");
}

}  // namespace ombrix::tests
