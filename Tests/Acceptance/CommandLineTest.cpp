#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Program.h"

namespace ombrix::tests {

namespace {

constexpr const char* versionLine = "Quantavo Metering for OS X - version 6.2.1 \n";
constexpr const char* explanation =
    "With the -C/ConfigFile option you must also specify a full path to the configuration file. "
    "Example: ./Ombrix -C velkagent.config\n";
constexpr const char* unreadable =
    "Could not find a readable configuration file. Make sure we got read access. Quitting.\n";

Outcome runUnderTheName(const std::string& name, const std::vector<std::string>& words = {}) {
  Launch launch = ombrix(words);
  launch.arguments.at(0) = name;
  return run(launch);
}

void expectOutcome(const Outcome& outcome, int status, const std::string& output,
                   const std::string& errors) {
  EXPECT_EQ(outcome.status, status);
  EXPECT_EQ(outcome.output, output);
  EXPECT_EQ(outcome.errors, errors);
}

}  // namespace

TEST(CommandLine, EverySpellingOfVersionPrintsTheLongLine) {
  for (const char* word : {"v", "-v", "-V", "version", "--VERSION", "ver-sion", "-Version-"}) {
    SCOPED_TRACE(word);
    expectOutcome(run(ombrix({word})), 0, versionLine, "");
  }
}

TEST(CommandLine, EverySpellingOfVnumPrintsTheBareNumber) {
  for (const char* word : {"vnum", "-vnum", "--VNum", "v-num"}) {
    SCOPED_TRACE(word);
    expectOutcome(run(ombrix({word})), 0, "6.2.1\n", "");
  }
}

TEST(CommandLine, EverySpellingOfStopSaysSoOnStandardError) {
  for (const char* word : {"stop", "-stop", "--STOP", "s-top"}) {
    SCOPED_TRACE(word);
    expectOutcome(run(ombrix({word})), 0, "", "Shutting down Ombrix.\n");
  }
}

TEST(CommandLine, EverySpellingOfListPrintsNothing) {
  for (const char* word : {"list", "-list", "--LIST", "li-st"}) {
    SCOPED_TRACE(word);
    expectOutcome(run(ombrix({word})), 0, "", "");
  }
}

TEST(CommandLine, EverySpellingOfPrepareForUpgradePrintsNothing) {
  for (const char* word : {"prepforupgrade", "-PrepForUpgrade", "--prep-for-upgrade"}) {
    SCOPED_TRACE(word);
    expectOutcome(run(ombrix({word})), 0, "", "");
  }
}

TEST(CommandLine, OptionWithoutItsPathExplainsItself) {
  const std::vector<std::vector<std::string>> rows = {
      {"c"}, {"-c"}, {"-C"}, {"configfile"}, {"-ConfigFile"}, {"--config-file"}, {"-c", "a", "-C"},
  };
  for (const auto& words : rows) {
    SCOPED_TRACE(words.front() + " of " + std::to_string(words.size()));
    expectOutcome(run(ombrix(words)), 1, "", explanation);
  }
}

TEST(CommandLine, WordsThatMeanNothingAreIgnored) {
  expectOutcome(run(ombrix({"", "-", "versions", "stopp", "-vnum"})), 0, "6.2.1\n", "");
}

TEST(CommandLine, FirstCommandEndsTheProgram) {
  expectOutcome(run(ombrix({"-vnum", "-v", "stop"})), 0, "6.2.1\n", "");
}

TEST(CommandLine, CommandAfterAPathEndsTheProgram) {
  expectOutcome(run(ombrix({"-c", "/tmp/none.config", "stop"})), 0, "", "Shutting down Ombrix.\n");
}

TEST(CommandLine, OwnNameOfTheProgramIsAWordToo) {
  expectOutcome(runUnderTheName("stop"), 0, "", "Shutting down Ombrix.\n");
  expectOutcome(runUnderTheName("-V"), 0, versionLine, "");
  expectOutcome(runUnderTheName("v-num", {"-v"}), 0, "6.2.1\n", "");
  expectOutcome(runUnderTheName("-c"), 1, "", explanation);
}

TEST(CommandLine, OwnNameMayBeTheOptionAndThenTheFirstWordIsAPath) {
  expectOutcome(runUnderTheName("-c", {"-v"}), 1, "", unreadable);
}

TEST(CommandLine, WordAfterTheOptionIsAPathAndNoCommand) {
  for (const char* word : {"stop", "-v", "-c", "list", "prepforupgrade"}) {
    SCOPED_TRACE(word);
    expectOutcome(run(ombrix({"-c", word})), 1, "", unreadable);
  }
}

TEST(CommandLine, PathLosesItsCapitalsAndDashes) {
  const Home home;
  std::filesystem::rename("/tmp/home/velkagent.config", "/tmp/ab.config");
  Agent agent(home, ombrix({"-C", "/Tmp/A-B.Config"}));
  EXPECT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(home.records().empty());
}

TEST(CommandLine, LastOfSeveralPathsWins) {
  const Home home;
  std::filesystem::rename("/tmp/home/velkagent.config", "/tmp/last.config");
  Agent agent(home, ombrix({"-c", "/tmp/none.config", "-configfile", "/tmp/last.config"}));
  EXPECT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(home.records().empty());
}

TEST(CommandLine, LowerCaseIsUnicodesInEveryLocale) {
  for (const char* locale : {"LC_ALL=C", "LC_ALL=C.UTF-8", "LC_ALL=tr_TR.UTF-8"}) {
    SCOPED_TRACE(locale);
    const Home home;
    std::filesystem::rename("/tmp/home/velkagent.config", "/tmp/größe.config");
    Launch launch = ombrix({"-CONFIGFILE", "/tmp/GRÖßE.config"});
    launch.environment = {locale};
    Agent agent(home, launch);
    EXPECT_TRUE(agent.hasStarted());
    EXPECT_EQ(agent.stop(), 0);
  }
}

TEST(CommandLine, BytesOfAPathThatAreNotUtf8AreKept) {
  const Home home;
  std::filesystem::rename("/tmp/home/velkagent.config", "/tmp/\xff\xc9.config");
  Agent agent(home, ombrix({"-c", "/tmp/\xff\xc9.CONFIG"}));
  EXPECT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
}

TEST(CommandLine, OutputThatNobodyTakesIsNoFailure) {
  Launch launch = ombrix({"-v"});
  launch.beforeExec = [] { ::close(STDOUT_FILENO); };
  EXPECT_EQ(run(launch).status, 0);
}

}  // namespace ombrix::tests
