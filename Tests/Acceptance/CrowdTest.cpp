#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Crowd.h"
#include "Tests/Acceptance/Wait.h"

// More of everything than any desktop has. These take long, and much of the machine.

namespace ombrix::tests {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t manyProcesses = 20000;
constexpr std::size_t manyAgents = 200;
constexpr std::size_t socketsOfAnAgent = 5;

// A sanitizer makes everything slower and larger; there it is enough that all goes well.
constexpr seconds longestPoll = OMBRIX_SANITIZED ? deadline : seconds{5};
constexpr seconds mostWork = OMBRIX_SANITIZED ? seconds{60} : seconds{10};
constexpr long mostKibibytes = OMBRIX_SANITIZED ? 1024L * 1024 : 64L * 1024;

// As many as the kernel lets this test allow; where that is too few, the crowd shows it.
void allowProcesses(std::size_t count) {
  for (const char* limit : {"pid_max", "threads-max"}) {
    const std::string path = std::string("/proc/sys/kernel/") + limit;
    if (std::stoul("0" + contentsOf(path)) < count) writeFile(path, std::to_string(count));
  }
}

long peakKibibytes(const Agent& agent) {
  std::ifstream status("/proc/" + std::to_string(agent.id()) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
  }
  return -1;
}

// The processor time that the agent has taken.
seconds workOf(const Agent& agent) {
  const std::string stat = contentsOf("/proc/" + std::to_string(agent.id()) + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(") ") + 2));
  std::string skipped;
  for (int i = 0; i < 11; ++i) fields >> skipped;
  long inUser = 0;
  long inKernel = 0;
  fields >> inUser >> inKernel;
  return seconds((inUser + inKernel) / ::sysconf(_SC_CLK_TCK));
}

// Brings polls about for as long as that; how long the longest of them took.
steady_clock::duration pollFor(seconds duration, const Agent& agent) {
  steady_clock::duration longest{0};
  const auto end = steady_clock::now() + duration;
  while (steady_clock::now() < end) {
    const auto begin = steady_clock::now();
    EXPECT_TRUE(agent.poll());
    longest = std::max(longest, steady_clock::now() - begin);
    std::this_thread::sleep_for(seconds{5});
  }
  return longest;
}

// Every file in the storage is one whole record; how many there are by the name of the process.
std::map<std::string, std::size_t> wholeRecords(const Home& home) {
  std::map<std::string, std::size_t> counts;
  for (const std::string& name : namesIn(home.storage())) {
    if (!name.ends_with(".met")) continue;
    const std::string line = contentsOf(home.storage() + "/" + name);
    EXPECT_EQ(std::count(line.begin(), line.end(), ';'), 10) << line;
    ++counts[line.substr(0, line.find(';'))];
  }
  return counts;
}

class ManyAgents : public ::testing::Test {
 protected:
  void startThem() {
    for (std::size_t i = 0; i < manyAgents; ++i) {
      homes.emplace_back("/tmp/home" + std::to_string(i));
      agents.emplace_back(homes.back());
    }
  }

  // How many of them do not end.
  std::size_t waitUntilSettled() {
    std::size_t staying = 0;
    for (Agent& agent : agents) {
      if (settles(agent) && agent.isRunning()) ++staying;
    }
    return staying;
  }

  void expectEndedWithStatus(int status) {
    for (Agent& agent : agents) EXPECT_EQ(agent.waitForExit(), status) << agent.errors();
  }

  std::deque<Home> homes;
  std::deque<Agent> agents;

 private:
  static bool settles(Agent& agent) {
    return eventually(
        [&agent] { return !agent.isRunning() || (agent.polls() > 0 && agent.state() == 'S'); });
  }
};

}  // namespace

TEST(CrowdOfProcesses, TwentyThousandWithFiveHundredStartsASecondAreMeteredForAMinute) {
  allowProcesses(2 * manyProcesses);
  const Crowd crowd(manyProcesses);
  if (crowd.refused()) GTEST_SKIP() << "this machine lets no more than " << crowd.size() << " live";
  ASSERT_EQ(crowd.size(), manyProcesses);
  const Program churn(idler("/tmp/tools/churn", {"churn", "500"}));
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());

  EXPECT_LE(pollFor(seconds{60}, agent), longestPoll);
  EXPECT_LE(workOf(agent), mostWork);
  EXPECT_LE(peakKibibytes(agent), mostKibibytes);

  const auto begin = steady_clock::now();
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_LE(steady_clock::now() - begin, longestPoll);
  const auto records = wholeRecords(home);
  EXPECT_EQ(records.at("crowd"), manyProcesses);
  EXPECT_GT(records.at("churn"), 500U);
  EXPECT_FALSE(contains(home.log(), "[Error]")) << home.log();
}

TEST_F(ManyAgents, TwoHundredBesideARunningOneAllEnd) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  startThem();
  expectEndedWithStatus(1);
  ASSERT_TRUE(first.poll());
  EXPECT_EQ(namesIn("/run/ombrix").size(), socketsOfAnAgent);
  EXPECT_EQ(first.stop(), 0);
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

// Those that call before any of them listens do not notice each other, as ever; whoever comes later
// is answered, and one command ends all that have stayed.
TEST_F(ManyAgents, TwoHundredAtOnceLeaveAtLeastOneWhichIsHeard) {
  startThem();
  EXPECT_GE(waitUntilSettled(), 1U);
  EXPECT_EQ(Agent(Home("/tmp/late")).waitForExit(), 1);
  EXPECT_EQ(run(ombrix({"stop"})).status, 0);
  for (Agent& agent : agents) {
    const std::optional<int> status = agent.waitForExit();
    EXPECT_TRUE(status == 0 || status == 1) << agent.errors();
  }
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

}  // namespace ombrix::tests
