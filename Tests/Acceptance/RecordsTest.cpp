#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <tuple>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Namespaces.h"

// The runs of real programs, and the record that each of them leaves.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

// A program that starts with the process id `wanted`, once the kernel is made to give that next.
Program startWithId(pid_t wanted, const Launch& launch) {
  std::ofstream("/proc/sys/kernel/ns_last_pid") << wanted - 1;
  return Program(launch);
}

// The two ways of reading a record's start and stop in the order of time.
void expectInOrder(const Record& record) { EXPECT_LE(record.start, record.stop) << record.line; }

}  // namespace

TEST(Records, ProgramThatStartsAndEndsLeavesOneRecord) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Program program(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  program.kill();
  ASSERT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));

  const Record record = home.recordsOf("editor").front();
  EXPECT_EQ(record.path, "/tmp/tools");
  EXPECT_EQ(record.user, "root");
  EXPECT_EQ(record.pausedMinutes, "0");
  EXPECT_LE(std::stoi(record.seconds), 25);
  expectInOrder(record);
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

TEST(Records, RecordIsOneLineWithoutAnEnd) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  for (const Record& record : home.records()) {
    EXPECT_FALSE(record.start.empty()) << record.line;
    EXPECT_FALSE(contains(record.line, "\n"));
    EXPECT_EQ(occurrences(record.line, ";"), 10U) << record.line;
  }
}

TEST(Records, FileNamesAreFortyDigitsOfTheirOwn) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  const auto names = namesIn(home.storage());
  EXPECT_EQ(names.size(), 3U);
  for (const std::string& name : names) {
    EXPECT_TRUE(std::regex_match(name, std::regex("[0-9a-f]{40}\\.met"))) << name;
  }
}

TEST(Records, RunThatIsOpenWhenTheAgentStopsIsWrittenThen) {
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_TRUE(home.records().empty());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(home.records().size(), 4U);
}

TEST(Records, PollWithinTheDayWritesNoOpenRun) {
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  Agent agent(home);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_TRUE(home.recordsOf("editor").empty());
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Records, ProgramThatComesAndGoesBetweenTwoPollsLeavesNone) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  Program(idler("/tmp/tools/editor")).kill();
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(home.recordsOf("editor").empty());
}

TEST(Records, EveryProcessOfAProgramHasARecordOfItsOwn) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  const Program one(idler("/tmp/tools/editor"));
  const Program other(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 2U);
}

TEST(Records, ProgramThatBecomesAnotherKeepsItsFirstName) {
  const Home home;
  std::ignore = idler("/tmp/after/after");
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Program program(idler("/tmp/before/before", {"exec", "/tmp/after/after"}));
  ASSERT_TRUE(agent.poll());
  program.closeInput();
  const fs::path link = "/proc/" + std::to_string(program.id()) + "/exe";
  ASSERT_TRUE(agent.pollUntil([&] { return fs::read_symlink(link) == "/tmp/after/after"; }));
  EXPECT_EQ(agent.stop(), 0);
  ASSERT_EQ(home.recordsOf("before").size(), 1U);
  EXPECT_EQ(home.recordsOf("before").front().path, "/tmp/before");
  EXPECT_TRUE(home.recordsOf("after").empty());
}

TEST(Records, ReusedProcessIdContinuesTheOldRun) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Program first(idler("/tmp/tools/first"));
  ASSERT_TRUE(agent.poll());
  first.kill();
  const Program second = startWithId(first.id(), idler("/tmp/tools/second"));
  ASSERT_EQ(second.id(), first.id());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("first").size(), 1U);
  EXPECT_TRUE(home.recordsOf("second").empty());
}

TEST(Records, ReusedProcessIdIsANewRunWhenAPollSawItFree) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Program first(idler("/tmp/tools/first"));
  ASSERT_TRUE(agent.poll());
  first.kill();
  ASSERT_TRUE(agent.pollUntil([&] { return home.recordsOf("first").size() == 1; }));
  const Program second = startWithId(first.id(), idler("/tmp/tools/second"));
  ASSERT_EQ(second.id(), first.id());
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("second").size(), 1U);
}

TEST(Records, ProgramWhoseFileIsRemovedKeepsItsFolder) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  const Program program(idler("/tmp/tools/editor"));
  fs::remove_all("/tmp/tools");
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  ASSERT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(home.recordsOf("editor").front().path, "/tmp/tools");
}

TEST(Records, DeadProcessThatNobodyBuriesStillCountsAndHasNoPath) {
  const Home home;
  const Program program(idler("/tmp/tools/editor"));
  program.signal(SIGKILL);
  siginfo_t ignored{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(program.id()), &ignored, WEXITED | WNOWAIT), 0);
  ASSERT_EQ(program.state(), 'Z');
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  ASSERT_EQ(home.recordsOf("editor").size(), 1U);
  EXPECT_EQ(home.recordsOf("editor").front().path, "");
}

TEST(Records, RunEndsWhenTheDeadProcessIsBuried) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  Program program(idler("/tmp/tools/editor"));
  ASSERT_TRUE(agent.poll());
  program.signal(SIGKILL);
  siginfo_t ignored{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(program.id()), &ignored, WEXITED | WNOWAIT), 0);
  ASSERT_TRUE(agent.poll() && agent.poll());
  EXPECT_TRUE(home.recordsOf("editor").empty());
  ASSERT_FALSE(program.isRunning());
  EXPECT_TRUE(agent.pollUntil([&] { return home.recordsOf("editor").size() == 1; }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST(Records, AgentMetersItself) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  ASSERT_EQ(home.recordsOf("Ombrix").size(), 1U);
  EXPECT_EQ(home.recordsOf("Ombrix").front().path, executableFolder());
}

}  // namespace ombrix::tests
