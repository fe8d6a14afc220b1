#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "Source/Core/ClientSetup.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"
#include "Utilities/Logging/LogManager.h"

// The loading of the configuration. The handshake has its own test.

namespace ombrix {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using tests::ConfigurationText;
using tests::FakeMachine;

constexpr const char* unreadable =
    "Could not find a readable configuration file. Make sure we got read access. Quitting.";

// A working folder without a configuration file, and an agent that reads one from elsewhere in it.
struct SetupBench {
  SetupBench() { tests::setTimeZone(tests::universalTime); }

  // Writes `text` to the file "elsewhere/agent.xml" and loads it.
  void load(const ConfigurationText& text) {
    std::filesystem::create_directory("elsewhere");
    tests::writeFile("elsewhere/agent.xml", text.xml());
    setup.loadConfigurations("elsewhere/agent.xml");
  }

  [[nodiscard]] std::optional<std::string> value(const std::string& key) const {
    return setup.mainConfigurationManager()->getConfiguration(key);
  }

  tests::ScratchFolder folder;
  FakeMachine machine;
  ClientSetup setup;
};

// True when a log file of that size is moved aside.
bool isMovedAside(std::uintmax_t bytes) {
  std::filesystem::remove("log/metering.log");
  tests::writeFile("log/metering.log", "");
  std::filesystem::resize_file("log/metering.log", bytes);
  LogManager::logSizeTrimmer();
  return !std::filesystem::exists("log/metering.log");
}

ConfigurationText withLogIn(const std::string& directory) {
  ConfigurationText text;
  text.dataDirectory = "records/";
  text.temporaryDirectory = "temporary/";
  text.logDirectory = directory;
  return text;
}

TEST(ClientSetup, ThereIsNoStoreBeforeTheConfigurationIsLoaded) {
  const FakeMachine machine;
  EXPECT_EQ(ClientSetup().mainConfigurationManager(), nullptr);
}

TEST(ClientSetup, StoreHoldsThePathTheFileAndTheDefaults) {
  SetupBench bench;
  bench.load(withLogIn("log"));
  EXPECT_EQ(bench.value("ConfigurationFilePath"), "elsewhere/agent.xml");
  EXPECT_EQ(bench.value("StorageDirectory"), "records/");
  EXPECT_EQ(bench.value("ReportMeterDataDaily"), "yes");
}

TEST(ClientSetup, SecondLoadReplacesTheStore) {
  SetupBench bench;
  bench.load(withLogIn("log"));
  ConfigurationText other;
  other.dataDirectory = "others/";
  bench.load(other);
  EXPECT_EQ(bench.value("StorageDirectory"), "others/");
  EXPECT_EQ(bench.value("LogDirectory"), std::nullopt);
}

TEST(ClientSetup, WithoutAPathTheFileOfTheDefaultNameIsLoaded) {
  SetupBench bench;
  ConfigurationText text = withLogIn("log");
  tests::writeFile("velkagent.config", text.xml());
  bench.setup.loadConfigurations(std::nullopt);
  EXPECT_EQ(bench.value("ConfigurationFilePath"), "./velkagent.config");
  EXPECT_EQ(bench.value("StorageDirectory"), "records/");
}

TEST(ClientSetup, GivenPathGoesBeforeTheFileOfTheDefaultName) {
  SetupBench bench;
  tests::writeFile("velkagent.config", withLogIn("log").xml());
  ConfigurationText given;
  given.dataDirectory = "given/";
  bench.load(given);
  EXPECT_EQ(bench.value("ConfigurationFilePath"), "elsewhere/agent.xml");
  EXPECT_EQ(bench.value("StorageDirectory"), "given/");
}

// Loads `path`, which ends the process, and expects `message` in the system log alone.
void expectFatal(SetupBench& bench, const std::optional<std::string>& path,
                 const std::string& message) {
  EXPECT_EXIT(bench.setup.loadConfigurations(path), ExitedWithCode(1), HasSubstr(message + "\n"));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
    EXPECT_THAT(entry.path().string(), Not(EndsWith("metering.log")));
  }
}

TEST(ClientSetup, NoPathAndNoFileOfTheDefaultNameEndTheProcess) {
  SetupBench bench;
  expectFatal(bench, std::nullopt, "ConfigurationFilePath is empty. Quitting.");
}

TEST(ClientSetup, UnreadableFileOfTheDefaultNameEndsTheProcess) {
  SetupBench bench;
  tests::writeFile("velkagent.config", withLogIn("log").xml());
  std::filesystem::permissions("velkagent.config", std::filesystem::perms::none);
  const tests::WithoutPrivileges nobody;
  expectFatal(bench, std::nullopt, "ConfigurationFilePath is empty. Quitting.");
}

TEST(ClientSetup, UnreadableFileEndsTheProcess) {
  SetupBench bench;
  tests::writeFile("agent.xml", withLogIn("log").xml());
  std::filesystem::permissions("agent.xml", std::filesystem::perms::none);
  const tests::WithoutPrivileges nobody;
  expectFatal(bench, "agent.xml", unreadable);
}

TEST(ClientSetup, MissingFileEndsTheProcess) {
  SetupBench bench;
  expectFatal(bench, "nowhere.xml", unreadable);
}

TEST(ClientSetup, EmptyPathIsUnreadableRatherThanMissing) {
  SetupBench bench;
  expectFatal(bench, "", unreadable);
}

TEST(ClientSetup, MissingFileEndsTheProcessThoughThereIsOneOfTheDefaultName) {
  SetupBench bench;
  tests::writeFile("velkagent.config", withLogIn("log").xml());
  expectFatal(bench, "nowhere.xml", unreadable);
}

TEST(ClientSetup, FatalMessagesAreErrors) {
  SetupBench bench;
  LogManager::setLogLevel(LogLevel::error);
  expectFatal(bench, "nowhere.xml", unreadable);
  expectFatal(bench, std::nullopt, "ConfigurationFilePath is empty. Quitting.");
  LogManager::setLogLevel(LogLevel::critical);
  EXPECT_EXIT(bench.setup.loadConfigurations("nowhere.xml"), ExitedWithCode(1), IsEmpty());
  EXPECT_EXIT(bench.setup.loadConfigurations(std::nullopt), ExitedWithCode(1), IsEmpty());
}

TEST(ClientSetup, LoadingIsToldAtDebug) {
  SetupBench bench;
  LogManager::setLogLevel(LogLevel::debug);
  bench.load(withLogIn("log"));
  EXPECT_THAT(tests::logLines(), Contains("[Debug]\tLoading configuration file "
                                          "[elsewhere/agent.xml]."));
}

TEST(ClientSetup, LevelOfTheFileComesTooLateForTheMessagesOfItsLoading) {
  SetupBench bench;
  ConfigurationText text = withLogIn("log");
  text.logLevel = "verbose";
  bench.load(text);
  EXPECT_THAT(bench.machine.systemLog, IsEmpty());
}

TEST(ClientSetup, LinesKeptSoFarAreWrittenToTheLogOfTheFile) {
  SetupBench bench;
  LogManager::writeLog("before", LogLevel::warning);
  bench.load(withLogIn("log"));
  EXPECT_THAT(tests::logLines(), ElementsAre("[Warning]\tbefore"));
}

TEST(ClientSetup, WithoutALogDirectoryTheLogLiesInTheWorkingFolderAsNull) {
  SetupBench bench;
  ConfigurationText text;
  text.dataDirectory = "records/";
  bench.load(text);
  LogManager::writeLog("after", LogLevel::warning);
  EXPECT_THAT(tests::contentsOf("(null)metering.log"), EndsWith(" - [Warning]\tafter\n"));
}

TEST(ClientSetup, MissingStorageDirectoryIsToldAndTheAgentGoesOn) {
  SetupBench bench;
  ConfigurationText text;
  text.logDirectory = "log";
  bench.load(text);
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Error]\tMissing configuration setting [setstoragedirectory]"));
}

// The level that the agent logs at after it has loaded a file with that level.
std::uint32_t levelFrom(const std::optional<std::string>& word) {
  SetupBench bench;
  ConfigurationText text = withLogIn("log");
  text.logLevel = word;
  bench.load(text);
  std::uint32_t level = LogLevel::emergency;
  for (std::uint32_t tried = LogLevel::emergency; tried <= LogLevel::debugPlus; ++tried) {
    LogManager::writeLog("at " + std::to_string(tried), tried);
    if (bench.machine.logged("at " + std::to_string(tried))) level = tried;
  }
  return level;
}

TEST(ClientSetup, LevelIsTheOneOfTheFile) { EXPECT_EQ(levelFrom("info"), LogLevel::info); }

TEST(ClientSetup, WithoutALevelItStaysAtWarning) {
  EXPECT_EQ(levelFrom(std::nullopt), LogLevel::warning);
}

TEST(ClientSetup, EmptyLevelLeavesItAtWarning) { EXPECT_EQ(levelFrom(""), LogLevel::warning); }

TEST(ClientSetup, LevelWithACapitalSilencesTheLog) {
  EXPECT_EQ(levelFrom("Info"), LogLevel::emergency);
}

// Loads a file with that maximum size of the log.
void loadSize(SetupBench& bench, const std::optional<std::string>& size) {
  ConfigurationText text = withLogIn("log");
  text.maximumLogSize = size;
  bench.load(text);
}

TEST(ClientSetup, MaximumLogSizeIsInKibibytes) {
  SetupBench bench;
  loadSize(bench, "100");
  EXPECT_FALSE(isMovedAside(102400));
  EXPECT_TRUE(isMovedAside(102401));
}

TEST(ClientSetup, MaximumLogSizeThatIsNoNumberIsZero) {
  SetupBench bench;
  loadSize(bench, "abc");
  EXPECT_FALSE(isMovedAside(0));
  EXPECT_TRUE(isMovedAside(1));
}

TEST(ClientSetup, MaximumLogSizeOfFourGibibytesWrapsToZero) {
  SetupBench bench;
  loadSize(bench, "4194304");
  EXPECT_FALSE(isMovedAside(0));
  EXPECT_TRUE(isMovedAside(1));
}

TEST(ClientSetup, MaximumLogSizeBeyondFourGibibytesWraps) {
  SetupBench bench;
  loadSize(bench, "4194305");
  EXPECT_FALSE(isMovedAside(1024));
  EXPECT_TRUE(isMovedAside(1025));
}

TEST(ClientSetup, WithoutAMaximumLogSizeItStaysAtHalfAMebibyte) {
  SetupBench bench;
  loadSize(bench, std::nullopt);
  EXPECT_FALSE(isMovedAside(524288));
  EXPECT_TRUE(isMovedAside(524289));
}

TEST(ClientSetup, EmptyMaximumLogSizeLeavesItAtHalfAMebibyte) {
  SetupBench bench;
  loadSize(bench, "");
  EXPECT_FALSE(isMovedAside(524288));
  EXPECT_TRUE(isMovedAside(524289));
}

}  // namespace
}  // namespace ombrix
