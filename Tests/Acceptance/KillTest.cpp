#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <map>
#include <thread>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Crowd.h"
#include "Tests/Acceptance/Wait.h"

// An agent that is killed, and the one that is started after it.

namespace ombrix::tests {

namespace {

using Contents = std::map<std::string, std::string>;

Contents filesIn(const std::string& folder) {
  Contents files;
  for (const std::string& name : namesIn(folder)) files[name] = contentsOf(folder + "/" + name);
  return files;
}

void expectWholeButOne(const Contents& files) {
  std::size_t empty = 0;
  for (const auto& [name, contents] : files) {
    if (contents.empty()) ++empty;
    EXPECT_TRUE(contents.empty() || !parseRecord(contents).start.empty()) << contents;
  }
  EXPECT_LE(empty, 1U);
}

}  // namespace

TEST(Kill, OpenRunsAreCountedAnewByTheNextAgentAndWrittenOnce) {
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  Agent first(home);
  ASSERT_TRUE(first.poll());
  first.kill();
  EXPECT_TRUE(home.records().empty());
  Agent second(home);
  ASSERT_TRUE(second.poll());
  EXPECT_EQ(second.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(home.records().size(), 4U);
}

TEST(Kill, RecordsThatWereWrittenBeforeStayAsTheyAre) {
  const Home home;
  Agent first(home);
  ASSERT_TRUE(first.hasStarted());
  {
    const Program program(idler("/tmp/tools/editor"));
    ASSERT_TRUE(first.poll());
  }
  ASSERT_TRUE(first.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  first.kill();
  const Contents before = filesIn(home.storage());
  Agent second(home);
  ASSERT_TRUE(second.hasStarted());
  EXPECT_EQ(second.stop(), 0);
  Contents after = filesIn(home.storage());
  for (const auto& [name, contents] : before) EXPECT_EQ(after[name], contents) << name;
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

// The record that it has just created may still be empty, but no collector ever meets a part of
// one.
TEST(Kill, InTheMidstOfWritingLeavesNoPartOfARecord) {
  const Crowd crowd(3000);
  bool inTheMidst = false;
  for (const std::size_t written : {1U, 10U, 100U, 500U, 1000U}) {
    const Home home("/tmp/home" + std::to_string(written));
    Agent agent(home);
    ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
    agent.signal(SIGTERM);
    ASSERT_TRUE(eventually([&] { return namesIn(home.storage()).size() >= written; }));
    agent.kill();
    const Contents files = filesIn(home.storage());
    inTheMidst = inTheMidst || files.size() < 3000;
    expectWholeButOne(files);
  }
  EXPECT_TRUE(inTheMidst) << "it always ended before it was killed";
}

TEST(Kill, AtAnyMomentOfItsStartHindersNoLaterAgent) {
  const Home home;
  for (int round = 0; round < 40; ++round) {
    Agent agent(home);
    std::this_thread::sleep_for(std::chrono::microseconds(250 * round));
    agent.kill();
  }
  Agent last(home);
  ASSERT_TRUE(last.poll());
  EXPECT_EQ(last.stop(), 0);
  EXPECT_EQ(home.records().size(), 3U);
  EXPECT_TRUE(namesIn("/run/ombrix").empty());
}

}  // namespace ombrix::tests
