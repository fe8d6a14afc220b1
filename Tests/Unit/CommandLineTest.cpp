#include <gtest/gtest.h>

#include <utility>

#include "Source/CommandLine.h"

namespace ombrix {
namespace {

// What the words after the program's own name ask for.
CommandLine readWords(std::vector<std::string> words) {
  words.insert(words.begin(), "./Ombrix");
  return readCommandLine(words);
}

TEST(CommandLine, EveryWordNamesItsCommandInEverySpelling) {
  const std::pair<const char*, Command> table[] = {
      {"stop", Command::stop},
      {"-stop", Command::stop},
      {"--STOP", Command::stop},
      {"s-top", Command::stop},
      {"vnum", Command::printVersionNumber},
      {"-vnum", Command::printVersionNumber},
      {"-VNum", Command::printVersionNumber},
      {"v", Command::printVersion},
      {"-V", Command::printVersion},
      {"version", Command::printVersion},
      {"--VERSION", Command::printVersion},
      {"ver-sion", Command::printVersion},
      {"list", Command::list},
      {"-List-", Command::list},
      {"prepforupgrade", Command::prepareForUpgrade},
      {"-PrepForUpgrade", Command::prepareForUpgrade},
      {"--prep-for-upgrade", Command::prepareForUpgrade},
  };
  for (const auto& [word, command] : table) {
    EXPECT_EQ(readWords({word}).command, command) << word;
  }
}

TEST(CommandLine, OnlyAWholeWordIsACommand) {
  for (const char* word : {"", "-", "sto", "stopp", " stop", "stop ", "vn", "versions", "listen",
                           "prepforupgrades", "st_op", "/stop", "./stop", "st\u2010op"}) {
    EXPECT_EQ(readWords({word}).command, Command::none) << word;
  }
}

TEST(CommandLine, WithoutArgumentsTheAgentRuns) {
  EXPECT_EQ(readCommandLine({}).command, Command::none);
  EXPECT_EQ(readWords({}).command, Command::none);
  EXPECT_EQ(readWords({}).configurationFilePath, std::nullopt);
}

TEST(CommandLine, AWordThatMatchesNothingIsIgnored) {
  const CommandLine commandLine = readWords({"--verbose", "agent.config", "list"});

  EXPECT_EQ(commandLine.command, Command::list);
  EXPECT_EQ(commandLine.configurationFilePath, std::nullopt);
}

TEST(CommandLine, TheFirstCommandEndsTheReading) {
  EXPECT_EQ(readWords({"list", "stop"}).command, Command::list);
  EXPECT_EQ(readWords({"stop", "vnum", "-c"}).command, Command::stop);
}

TEST(CommandLine, TheProgramsOwnNameIsTestedLikeAnyOtherWord) {
  EXPECT_EQ(readCommandLine({"stop"}).command, Command::stop);
  EXPECT_EQ(readCommandLine({"-V", "list"}).command, Command::printVersion);
  EXPECT_EQ(readCommandLine({"C", "x.config"}).configurationFilePath, "x.config");
}

TEST(CommandLine, ThePathAfterTheOptionIsKeptAndTheAgentRuns) {
  for (const char* option : {"c", "-c", "-C", "configfile", "-ConfigFile", "--CONFIG-FILE"}) {
    const CommandLine commandLine = readWords({option, "agent.config"});
    EXPECT_EQ(commandLine.configurationFilePath, "agent.config") << option;
    EXPECT_EQ(commandLine.command, Command::none) << option;
  }
}

TEST(CommandLine, ThePathLosesItsCapitalsAndAllItsDashes) {
  const std::pair<const char*, const char*> table[] = {
      {"/Tmp/A-B.config", "/tmp/ab.config"},
      {"/Library/My-Agent/Agent.config", "/library/myagent/agent.config"},
      {"--", ""},
      {"", ""},
      {" A b ", " a b "},
  };
  for (const auto& [typed, stored] : table) {
    EXPECT_EQ(readWords({"-c", typed}).configurationFilePath, stored) << typed;
  }
}

TEST(CommandLine, TheArgumentAfterTheOptionIsNeverACommand) {
  for (const char* word :
       {"stop", "vnum", "v", "version", "list", "c", "configfile", "prepforupgrade"}) {
    const CommandLine commandLine = readWords({"-c", word});
    EXPECT_EQ(commandLine.command, Command::none) << word;
    EXPECT_EQ(commandLine.configurationFilePath, word) << word;
  }
}

TEST(CommandLine, OnlyOneArgumentIsThePath) {
  const CommandLine commandLine = readWords({"-c", "-c", "stop"});

  EXPECT_EQ(commandLine.configurationFilePath, "c");
  EXPECT_EQ(commandLine.command, Command::stop);
}

TEST(CommandLine, TheLastPathGivenWins) {
  EXPECT_EQ(readWords({"-c", "a", "-ConfigFile", "b"}).configurationFilePath, "b");
}

TEST(CommandLine, ACommandAfterThePathStillActs) {
  const CommandLine commandLine = readWords({"-c", "a.config", "stop"});

  EXPECT_EQ(commandLine.command, Command::stop);
  EXPECT_EQ(commandLine.configurationFilePath, "a.config");
}

TEST(CommandLine, TheOptionAsTheLastArgumentIsExplained) {
  EXPECT_EQ(readWords({"-c"}).command, Command::explainConfigurationOption);
  EXPECT_EQ(readWords({"-ConfigFile"}).command, Command::explainConfigurationOption);
  EXPECT_EQ(readWords({"-c", "a", "other", "-c"}).command, Command::explainConfigurationOption);
}

TEST(CommandLine, AnyAlphabetIsLowerCasedAsUnicodeSays) {
  const std::pair<const char*, const char*> table[] = {
      {"/ÄÖÜ.config", "/äöü.config"},
      {"/ПУТЬ", "/путь"},
      {"/ΣΑΣ", "/σας"},    // a sigma at a word's end has a form of its own
      {"/İ", "/i\u0307"},  // one letter becomes two code points
      {"/\u212A", "/k"},   // the Kelvin sign
      {"/ẞ", "/ß"},        // grows no second letter
      {"/日本語", "/日本語"},
      {"/A\u2013B", "/a\u2013b"},  // the en dash is no dash of ours
  };
  for (const auto& [typed, stored] : table) {
    EXPECT_EQ(readWords({"-c", typed}).configurationFilePath, stored) << typed;
  }
}

TEST(CommandLine, ADottedCapitalMakesAnotherWord) {
  EXPECT_EQ(readWords({"LİST"}).command, Command::none);
}

TEST(CommandLine, BytesThatAreNotUtf8StayAndTheRestIsLowerCased) {
  EXPECT_EQ(readWords({"-c", "/\xFF-ABC\xC3/Ä\xE2\x82"}).configurationFilePath,
            "/\xFF"
            "abc\xC3/ä\xE2\x82");
  EXPECT_EQ(readWords({"STOP\xFF"}).command, Command::none);
}

}  // namespace
}  // namespace ombrix
