#include <gtest/gtest.h>

#include <regex>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Crowd.h"
#include "Tests/Acceptance/Wait.h"

// The list of running processes that the agent writes on request.

namespace ombrix::tests {

namespace {

// This test, its machine's process 1, and the agent.
constexpr std::size_t everPresent = 3;

// The list of an agent that started while `others` more processes ran.
std::vector<std::string> listBeside(std::size_t others) {
  std::vector<Program> crowd;
  if (others > 0) {
    crowd.emplace_back(idler("/tmp/tools/crowd", {std::to_string(others - 1)}));
    const std::size_t wanted = everPresent - 1 + others;
    EXPECT_TRUE(eventually([wanted] { return processesNow() == wanted; }));
  }
  const Home home;
  Agent agent(home);
  EXPECT_TRUE(agent.poll());
  const std::string list = home.list();
  EXPECT_EQ(agent.stop(), 0);
  return linesOf(list);
}

void expectNumberedLines(const std::vector<std::string>& lines) {
  const std::regex shape("#(\\d+) - \\[.*\\]  started \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d");
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::smatch fields;
    ASSERT_TRUE(std::regex_match(lines[i], fields, shape)) << lines[i];
    const std::string number = std::to_string(i + 1);
    EXPECT_EQ(fields[1], number.size() < 2 ? "0" + number : number);
  }
}

}  // namespace

TEST(List, ThreeProcessesMakeThreeLines) {
  const std::vector<std::string> lines = listBeside(0);
  EXPECT_EQ(lines.size(), 3U);
  expectNumberedLines(lines);
}

TEST(List, TenProcessesReachTwoDigits) {
  const std::vector<std::string> lines = listBeside(10 - everPresent);
  EXPECT_EQ(lines.size(), 10U);
  expectNumberedLines(lines);
}

TEST(List, FifteenHundredProcessesAreAllListed) {
  const std::vector<std::string> lines = listBeside(1500 - everPresent);
  EXPECT_EQ(lines.size(), 1500U);
  expectNumberedLines(lines);
}

TEST(List, EachLineEndsWithOneLineFeed) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  const std::string list = home.list();
  EXPECT_EQ(occurrences(list, "\n"), 3U);
  EXPECT_TRUE(list.ends_with("\n"));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(List, NamesThePrograms) {
  const Program program(idler("/tmp/tools/my [own] tool"));
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_TRUE(contains(home.list(), " - [my [own] tool]  started "));
  EXPECT_TRUE(contains(home.list(), " - [Ombrix]  started "));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(List, LaterRequestReplacesTheFile) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  replaceFile(home.storage() + "/processes.list", std::string(100000, 'x'));
  ASSERT_TRUE(agent.poll());
  EXPECT_FALSE(contains(home.list(), "xx"));
  EXPECT_TRUE(home.list().starts_with("#01 - ["));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(List, ShowsWhatTheLastPollSaw) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Program program(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  EXPECT_FALSE(contains(home.list(), "[editor]"));
  ASSERT_TRUE(agent.poll());
  EXPECT_TRUE(contains(home.list(), "[editor]"));
  program.kill();
  EXPECT_TRUE(agent.pollUntil([&] { return !contains(home.list(), "[editor]"); }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(List, RequestClosesNoRun) {
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

TEST(List, IsAnnouncedInTheLog) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(occurrences(home.log(),
                        " - [Info]\tTrying to write a list with all active processes into "
                        "[/tmp/home/records/processes.list].\n"),
            1U);
}

TEST(List, WorksFromAnyWorkingDirectory) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Launch list = ombrix({"list"});
  list.directory = "/proc";
  EXPECT_EQ(run(list).status, 0);
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(agent.stop(), 0);
}

}  // namespace ombrix::tests
