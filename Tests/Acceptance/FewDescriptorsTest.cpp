#include <gtest/gtest.h>
#include <sys/resource.h>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Wait.h"

// Agents that may open few descriptors, or none for a while.

namespace ombrix::tests {

namespace {

// What an agent has open between two polls, and some that it opens during one.
constexpr rlim_t enoughDescriptors = 40;

Launch withDescriptors(rlim_t count) {
  Launch launch = ombrix();
  launch.beforeExec = [count] {
    const rlimit limit{count, count};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  };
  return launch;
}

// An agent that has run out of descriptors for as long as one of these lives.
class Exhaustion {
 public:
  explicit Exhaustion(const Agent& agent) : agent(agent) {
    const std::size_t open = namesIn("/proc/" + std::to_string(agent.id()) + "/fd").size();
    EXPECT_EQ(::prlimit(agent.id(), RLIMIT_NOFILE, nullptr, &before), 0);
    const rlimit none{open, before.rlim_max};
    EXPECT_EQ(::prlimit(agent.id(), RLIMIT_NOFILE, &none, nullptr), 0);
  }
  ~Exhaustion() { EXPECT_EQ(::prlimit(agent.id(), RLIMIT_NOFILE, &before, nullptr), 0); }
  Exhaustion(const Exhaustion&) = delete;
  Exhaustion& operator=(const Exhaustion&) = delete;

 private:
  const Agent& agent;
  rlimit before{};
};

// It ended by itself and said why, or it meters until a signal ends it.
void expectEndsOrMeters(const Home& home, Agent& agent) {
  ASSERT_TRUE(eventually(
      [&] { return !agent.isRunning() || (agent.polls() > 0 && agent.state() == 'S'); }));
  if (agent.isRunning()) {
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.waitForExit(), 0);
    for (const Record& record : home.records()) EXPECT_FALSE(record.start.empty());
    return;
  }
  const int status = agent.waitForExit().value_or(-1);
  EXPECT_TRUE(status == 1 || status == 127) << status;  // 127 by the dynamic linker
  EXPECT_FALSE(agent.errors().empty());
  EXPECT_TRUE(home.records().empty());
}

}  // namespace

TEST(FewDescriptors, FromTheStartEndTheAgentWithAMessageOrLetItMeter) {
  for (rlim_t count = 0; count <= enoughDescriptors; ++count) {
    SCOPED_TRACE(count);
    const Home home("/tmp/home" + std::to_string(count));
    Agent agent(home, withDescriptors(count));
    expectEndsOrMeters(home, agent);
  }
}

TEST(FewDescriptors, AreEnoughForAllThatAnAgentDoes) {
  const Home home;
  Agent agent(home, withDescriptors(enoughDescriptors));
  ASSERT_TRUE(agent.meterProgram("editor"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(linesOf(home.list()).size(), 3U);
}

TEST(FewDescriptors, ProgramThatStartsWhileThereAreNoneIsSeenLater) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  std::optional<Exhaustion> exhaustion(agent);
  const Program program(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  exhaustion.reset();
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  ASSERT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(home.recordsOf("editor").front().path, "/tmp/tools");
}

TEST(FewDescriptors, RunThatEndsWhileThereAreNoneIsReportedAsLost) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  Program program(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  std::optional<Exhaustion> exhaustion(agent);
  program.kill();
  ASSERT_TRUE(agent.poll());
  exhaustion.reset();
  EXPECT_TRUE(contains(agent.errors(), "Could not write met file [/tmp/home/records/"));
  ASSERT_TRUE(agent.meterProgram("viewer"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(home.recordsOf("viewer").size(), 1U);
}

TEST(FewDescriptors, AgentThatStartsWhenThereAreSomeAgainIsAnswered) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  std::optional<Exhaustion> exhaustion(agent);
  Agent unanswered(Home("/tmp/second"));
  ASSERT_TRUE(unanswered.hasStarted() && agent.waitForPolls(2) && agent.isWaiting());
  exhaustion.reset();
  EXPECT_EQ(Agent(Home("/tmp/third")).waitForExit(), 1);
}

}  // namespace ombrix::tests
