#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Source/Core/ClientSetup.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/CoreTestSupport.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"

// ClientSetup on a store that answers as it is told, also as the real one never does. The store
// takes the place of the real one in the whole program, which is why these tests have their own.

namespace ombrix {

namespace {

struct StoreScript {
  bool accepts = true;
  bool loads = true;
  std::map<std::string, ConfigurationManager::Value> values;
  std::vector<std::string> calls;
};

StoreScript script;

}  // namespace

ConfigurationManager::ConfigurationManager(const ConfigurationProtocol* contract) {
  script.calls.emplace_back(contract == nullptr ? "built without a contract" : "built");
}

bool ConfigurationManager::addConfiguration(const std::string& key, const Value& value) {
  script.calls.push_back("add " + key + "=" + value.value_or("nothing"));
  return script.accepts;
}

ConfigurationManager::Value ConfigurationManager::getConfiguration(const std::string& key) const {
  script.calls.push_back("get " + key);
  return script.values[key];
}

void ConfigurationManager::addDefaultsIfMissing() { script.calls.emplace_back("add defaults"); }

const std::vector<std::string>* ConfigurationManager::verifyAgainstContract() {
  script.calls.emplace_back("verify");
  return nullptr;
}

bool ConfigurationManager::loadConfigurationFile(const std::string& path) {
  script.calls.push_back("load " + path);
  return script.loads;
}

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// A working folder with a readable file "agent.xml", which the store names as the configuration.
struct ScriptedStoreBench {
  ScriptedStoreBench() {
    tests::setTimeZone(tests::universalTime);
    tests::writeFile("agent.xml", "");
    script.values["ConfigurationFilePath"] = "agent.xml";
    script.values["ReportMeterDataDaily"] = "yes";
  }

  tests::ScratchFolder folder;
  tests::FakeMachine machine;
  ClientSetup setup;
};

TEST(ScriptedStore, IsFilledReadAndVerifiedInOrder) {
  ScriptedStoreBench bench;
  bench.setup.loadConfigurations("given.xml");
  EXPECT_THAT(script.calls,
              ElementsAre("built", "add ConfigurationFilePath=given.xml", "add defaults",
                          "get ConfigurationFilePath", "load agent.xml", "get SetLogDirectory",
                          "get OmbrixLogLevel", "get OmbrixMaxLogSize", "get ReportMeterDataDaily",
                          "verify"));
}

TEST(ScriptedStore, GetsNoPathWhenNoneWasGiven) {
  ScriptedStoreBench bench;
  bench.setup.loadConfigurations(std::nullopt);
  EXPECT_THAT(script.calls, Not(Contains(HasSubstr("add ConfigurationFilePath"))));
}

TEST(ScriptedStore, PathThatItRefusesIsToldAtDebugAndTheAgentGoesOn) {
  ScriptedStoreBench bench;
  tests::logEverything();
  script.values["SetLogDirectory"] = "log/";
  script.accepts = false;
  bench.setup.loadConfigurations("given.xml");
  EXPECT_THAT(tests::logLines(),
              ElementsAre("[Debug]\tCould not add configuration [ConfigurationFilePath=given.xml].",
                          "[Debug]\tLoading configuration file [agent.xml]."));
  EXPECT_THAT(script.calls, Contains("verify"));
}

TEST(ScriptedStore, RefusedPathIsNotToldAtTheInitialLevel) {
  ScriptedStoreBench bench;
  script.accepts = false;
  bench.setup.loadConfigurations("given.xml");
  EXPECT_THAT(bench.machine.systemLog, IsEmpty());
}

TEST(ScriptedStore, FileThatItCannotLoadEndsTheProcess) {
  ScriptedStoreBench bench;
  tests::logEverything();
  script.loads = false;
  EXPECT_EXIT(bench.setup.loadConfigurations(std::nullopt), ExitedWithCode(1),
              HasSubstr("Could not load main configuration file [agent.xml]\n"));
  EXPECT_THAT(tests::logLines(),
              Contains("[Error]\tCould not load main configuration file [agent.xml]"));
}

TEST(ScriptedStore, MissingDailyReportSettingIsToldAtInfo) {
  ScriptedStoreBench bench;
  script.values["SetLogDirectory"] = "log/";
  script.values["OmbrixLogLevel"] = "info";
  script.values["ReportMeterDataDaily"] = std::nullopt;
  tests::logEverything();
  bench.setup.loadConfigurations(std::nullopt);
  EXPECT_THAT(tests::logLines(), Contains("[Info]\tReportMeterDataDaily is not set."));
}

TEST(ScriptedStore, DailyReportSettingIsNotMissedWhenItIsThere) {
  ScriptedStoreBench bench;
  script.values["OmbrixLogLevel"] = "verbose";
  bench.setup.loadConfigurations(std::nullopt);
  EXPECT_THAT(bench.machine.systemLog, IsEmpty());
}

TEST(ScriptedStore, EmptyLevelLeavesTheLevelAlone) {
  ScriptedStoreBench bench;
  script.values["OmbrixLogLevel"] = "";
  bench.setup.loadConfigurations(std::nullopt);
  LogManager::writeLog("a warning", LogLevel::warning);
  LogManager::writeLog("a notice", LogLevel::notice);
  EXPECT_THAT(bench.machine.systemLog, ElementsAre("a warning"));
}

TEST(ScriptedStore, EmptySizeLeavesTheSizeAlone) {
  ScriptedStoreBench bench;
  tests::logEverything();
  script.values["SetLogDirectory"] = "log/";
  script.values["OmbrixMaxLogSize"] = "";
  bench.setup.loadConfigurations(std::nullopt);
  LogManager::writeLog("kept", LogLevel::warning);
  EXPECT_THAT(tests::logLines(), Contains("[Warning]\tkept"));
}

}  // namespace
}  // namespace ombrix
