#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Acceptance/Agent.h"

// What the configured level lets through, in the log file and on standard error.

namespace ombrix::tests {

namespace {

// The level names in a log, each as often as it occurs on a line of its own.
bool logHolds(const std::string& log, const std::string& level) {
  return contains(log, " - [" + level + "]\t");
}

// The log of an agent that has once listed and then stopped.
std::string logAtLevel(const std::optional<std::string>& level) {
  const Home home;
  Settings settings = home.settings();
  settings.level = level;
  home.configure(configurationText(settings));
  Agent agent(home);
  EXPECT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  return home.log();
}

}  // namespace

TEST(LogLevel, InfoShowsTheLifeOfTheAgent) {
  const std::string log = logAtLevel("info");
  EXPECT_TRUE(contains(log, " - [Info]\tStarting Ombrix\n"));
  EXPECT_TRUE(contains(log, " - [Notice]\tCaught stop notification. Shutting down.\n"));
  EXPECT_TRUE(contains(log, " - [Info]\tShutting down Ombrix\n"));
  EXPECT_FALSE(logHolds(log, "Debug"));
}

TEST(LogLevel, TraceShowsEveryRecord) {
  const std::string log = logAtLevel("trace");
  EXPECT_TRUE(contains(log, " - [Debug]\tWriting met file [/tmp/home/records/"));
}

TEST(LogLevel, VerboseShowsAllThatTraceShows) {
  EXPECT_TRUE(logHolds(logAtLevel("verbose"), "Debug"));
}

TEST(LogLevel, DefaultIsWarning) {
  const std::string log = logAtLevel(std::nullopt);
  EXPECT_FALSE(logHolds(log, "Notice"));
  EXPECT_FALSE(logHolds(log, "Info"));
}

TEST(LogLevel, WordsWithCapitalsOrBlanksSilenceEverything) {
  for (const char* word : {"Info", " info ", "notice", "8"}) {
    SCOPED_TRACE(word);
    const std::string log = logAtLevel(word);
    EXPECT_FALSE(logHolds(log, "Notice"));
    EXPECT_FALSE(logHolds(log, "Info"));
  }
}

TEST(LogLevel, SettingsAreReadAtTheInitialLevel) {
  const Home home;
  Settings settings = home.settings();
  settings.level = "verbose";
  home.configure(configurationText(settings));
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(contains(agent.errors(), "ConfigurationManager"));
  EXPECT_TRUE(contains(agent.errors(), "Starting Ombrix\n"));
}

TEST(LogLevel, StandardErrorHasTheBareMessageOfEveryLine) {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  const std::vector<std::string> messages = linesOf(agent.errors());
  for (const std::string& line : linesOf(home.log())) {
    const std::size_t tab = line.find('\t');
    ASSERT_NE(tab, std::string::npos) << line;
    EXPECT_GE(std::count(messages.begin(), messages.end(), line.substr(tab + 1)), 1) << line;
  }
}

TEST(LogLevel, FatalErrorsReachStandardErrorOnly) {
  const Home home;
  const Outcome outcome = run(ombrix({"-c", "/tmp/none.config"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(namesIn("/tmp/home").size() == 1) << "only the configuration file";
}

}  // namespace ombrix::tests
