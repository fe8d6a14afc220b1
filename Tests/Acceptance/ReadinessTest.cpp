#include <gtest/gtest.h>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Wait.h"

// What a service manager is told of the agent.

namespace ombrix::tests {

namespace {

constexpr const char* managersSocket = "/tmp/manager";

Launch asAService(Launch launch) {
  launch.environment.push_back(std::string("NOTIFY_SOCKET=") + managersSocket);
  return launch;
}

}  // namespace

TEST(Readiness, IsToldOnceWhenTheFirstPollIsDone) {
  const int manager = bindSocket(managersSocket);
  const Home home;
  Agent agent(home, asAService(ombrix()));
  std::optional<std::string> told;
  ASSERT_TRUE(eventually([&] { return (told = takeDatagram(manager)).has_value(); }));
  EXPECT_EQ(told, "READY=1");
  EXPECT_EQ(agent.polls(), 1U);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(takeDatagram(manager), std::nullopt);
}

TEST(Readiness, IsNotToldByAnAgentWithoutAConfiguration) {
  const int manager = bindSocket(managersSocket);
  EXPECT_EQ(run(asAService(ombrix({"-c", "/nowhere"}))).status, 1);
  EXPECT_EQ(takeDatagram(manager), std::nullopt);
}

TEST(Readiness, OfNoConcernToACommand) {
  const int manager = bindSocket(managersSocket);
  EXPECT_EQ(run(asAService(ombrix({"stop"}))).status, 0);
  EXPECT_EQ(takeDatagram(manager), std::nullopt);
}

// A manager that does not answer must not keep the agent from metering.
TEST(Readiness, ToldToNobodyHoldsNothingUp) {
  const Home home;
  Agent agent(home, asAService(ombrix()));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace ombrix::tests
