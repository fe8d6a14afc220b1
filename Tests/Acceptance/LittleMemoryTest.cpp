#include <gtest/gtest.h>
#include <sys/resource.h>

#include <deque>
#include <fstream>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Crowd.h"
#include "Tests/Acceptance/Wait.h"

// Agents that may have little memory, or no more than they have.

namespace ombrix::tests {

namespace {

constexpr rlim_t kibibyte = 1024;

constexpr const char* reserveUsed =
    " - [Warning]\tThe machine gave no more memory; the reserve was used.\n";
constexpr const char* outOfMemory = " - [Error]\tNo memory is left. Quitting.\n";

Launch withLimit(__rlimit_resource resource, rlim_t bytes) {
  Launch launch = ombrix();
  launch.beforeExec = [resource, bytes] {
    const rlimit limit{bytes, bytes};
    ::setrlimit(resource, &limit);
  };
  return launch;
}

// What RLIMIT_DATA counts of a process (proc(5)).
rlim_t dataBytes(const Agent& agent) {
  std::ifstream status("/proc/" + std::to_string(agent.id()) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmData:")) return std::stoul(line.substr(7)) * kibibyte;
  }
  return 0;
}

void allowNoMoreMemory(const Agent& agent) {
  const rlimit asItIs{dataBytes(agent), RLIM_INFINITY};
  ASSERT_EQ(::prlimit(agent.id(), RLIMIT_DATA, &asItIs, nullptr), 0);
}

// It ended by itself and said why, or it meters until a signal ends it.
void expectEndsOrMeters(const Home& home, Agent& agent) {
  ASSERT_TRUE(eventually(
      [&] { return !agent.isRunning() || (agent.polls() > 0 && agent.state() == 'S'); }));
  if (agent.isRunning()) agent.signal(SIGTERM);
  const int status = agent.waitForExit().value_or(-1);
  EXPECT_TRUE(status == 0 || status == 1 || status == 127) << status << ": " << agent.errors();
  EXPECT_FALSE(agent.errors().empty());
  if (status == 127) return;  // by the dynamic linker
  for (const std::string& name : namesIn(home.storage())) {
    EXPECT_EQ(occurrences(contentsOf(home.storage() + "/" + name), ";"), 10U) << name;
  }
}

class LittleMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    if (OMBRIX_SANITIZED) GTEST_SKIP() << "a sanitizer's own memory is refused as well";
  }
};

// A machine with some processes that the agent knows, which may then have no more memory.
class NoMoreMemory : public LittleMemory {
 protected:
  void startAmong(std::size_t processes) {
    known = processes;
    crowd.emplace(known, "known");
    agent.emplace(home);
    ASSERT_TRUE(agent->hasStarted() && agent->isWaiting());
    allowNoMoreMemory(*agent);
  }

  // However it has ended: whom it knew when it still had memory has one record.
  void expectEveryKnownRunOnce() { EXPECT_EQ(home.recordsOf("known").size(), known); }

  const Home home;
  std::size_t known = 0;
  std::optional<Crowd> crowd;
  std::optional<Agent> agent;
};

}  // namespace

TEST_F(LittleMemory, OfAddressesFromTheStartEndsTheAgentWithAMessageOrLetsItMeter) {
  for (rlim_t mebibytes = 4; mebibytes <= 64; mebibytes += 2) {
    SCOPED_TRACE(mebibytes);
    const Home home("/tmp/home" + std::to_string(mebibytes));
    Agent agent(home, withLimit(RLIMIT_AS, mebibytes * kibibyte * kibibyte));
    expectEndsOrMeters(home, agent);
  }
}

TEST_F(LittleMemory, OfDataFromTheStartEndsTheAgentWithAMessageOrLetsItMeter) {
  const Crowd crowd(1500);
  for (rlim_t kibibytes = 100; kibibytes <= 2000; kibibytes += 100) {
    SCOPED_TRACE(kibibytes);
    const Home home("/tmp/home" + std::to_string(kibibytes));
    Agent agent(home, withLimit(RLIMIT_DATA, kibibytes * kibibyte));
    expectEndsOrMeters(home, agent);
  }
}

TEST_F(NoMoreMemory, ThanItHasIsEnoughForWhatItKnows) {
  startAmong(1000);
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(agent->poll());
  EXPECT_EQ(agent->stop(), 0);
  expectEveryKnownRunOnce();
}

// The list takes more than the agent may have, and gives it back.
TEST_F(NoMoreMemory, ForAMomentIsToldAndMeteringGoesOn) {
  startAmong(3000);
  ASSERT_TRUE(agent->poll());
  EXPECT_TRUE(contains(home.log(), reserveUsed));
  EXPECT_EQ(linesOf(home.list()).size(), 3003U);
  ASSERT_TRUE(agent->meterProgram("editor"));
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

TEST_F(NoMoreMemory, ForAListThatIsLongerThanTheReserveCostsTheListAlone) {
  startAmong(12000);
  ASSERT_TRUE(agent->poll());
  EXPECT_TRUE(contains(home.log(), " - [Error]\tThere is no memory for the list.\n"));
  EXPECT_EQ(home.list(), "");
  EXPECT_EQ(agent->stop(), 0);
  EXPECT_EQ(namesIn(home.storage()).size(), known + 4);
}

TEST_F(NoMoreMemory, ForGoodEndsTheAgentWithItsRunsWritten) {
  startAmong(1000);
  const Crowd more(9000, "later");
  EXPECT_EQ(run(ombrix({"list"})).status, 0);
  EXPECT_EQ(agent->waitForExit(), 1) << agent->errors();
  EXPECT_TRUE(contains(home.log(), outOfMemory));
  expectEveryKnownRunOnce();
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

// Only those whom the last poll was just finding have no run yet.
TEST_F(NoMoreMemory, AsMoreAndMoreProcessesStartEndsTheAgentWithItsRunsWritten) {
  startAmong(1000);
  std::deque<Crowd> later;
  while (agent->isRunning()) {
    ASSERT_LT(later.size(), 20U) << "who took so little memory?";
    later.emplace_back(200, "later");
    const std::size_t before = agent->polls();
    EXPECT_EQ(run(ombrix({"list"})).status, 0);
    ASSERT_TRUE(eventually([&] { return !agent->isRunning() || agent->polls() > before; }));
  }
  EXPECT_EQ(agent->waitForExit(), 1);
  EXPECT_TRUE(contains(home.log(), outOfMemory));
  expectEveryKnownRunOnce();
  EXPECT_GE(home.recordsOf("later").size(), (later.size() - 1) * 200);
}

}  // namespace ombrix::tests
