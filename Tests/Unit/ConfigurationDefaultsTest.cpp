#include <gmock/gmock.h>

#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"

// What the store makes of a contract's defaults and required keys.

namespace ombrix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pointee;

class ConfigurationDefaultsTest : public tests::ScratchFolderTest {
 protected:
  ConfigurationDefaultsTest() { LogManager::setLogLevel(LogLevel::debugPlus); }

  [[nodiscard]] ConfigurationManager store() const { return ConfigurationManager(&contract); }

  tests::ScriptedContract contract;
};

TEST_F(ConfigurationDefaultsTest, MissingKeysGetTheirDefaultsInTheContractsOrder) {
  contract.defaults = {{"Second", "2"}, {"first", "1"}};
  ConfigurationManager settings = store();

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("first"), "1");
  EXPECT_EQ(settings.getConfiguration("second"), "2");
  EXPECT_THAT(machine.systemLog,
              ElementsAre("ConfigurationManager::AddedDefaultConfiguration [second] => [2]",
                          "ConfigurationManager::AddedDefaultConfiguration [first] => [1]"));
}

TEST_F(ConfigurationDefaultsTest, AnAddedDefaultIsNotedAtTheLowestLevelOnly) {
  contract.defaults = {{"key", "x"}};
  LogManager::setLogLevel(LogLevel::debug);

  store().addDefaultsIfMissing();

  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationDefaultsTest, AStoredValueIsKept) {
  contract.defaults = {{"KEY", "default"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("Key", "mine");

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("key"), "mine");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationDefaultsTest, AnEmptyValueCountsAsPresent) {
  contract.defaults = {{"key", "default"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("key", "");

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("key"), "");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationDefaultsTest, AKeyStoredWithoutAValueRefusesItsDefault) {
  contract.defaults = {{"key", "default"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("key", std::nullopt);

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("key"), std::nullopt);
}

TEST_F(ConfigurationDefaultsTest, ADefaultFillsTheAliasTargetToo) {
  contract.aliases = {{"source", "target"}};
  contract.defaults = {{"Source", "x"}};
  ConfigurationManager settings = store();

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("target"), "x");
  EXPECT_THAT(machine.systemLog,
              ElementsAre("ConfigurationManager::AddedDefaultConfiguration [source] => [x]",
                          "Added configuration alias [target] to [source] => [x]"));
}

TEST_F(ConfigurationDefaultsTest, TheCopyOfADefaultReplacesAValueStoredDirectly) {
  contract.aliases = {{"setstoragedirectory", "storagedirectory"}};
  contract.defaults = {{"setstoragedirectory", "./data/"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("storagedirectory", "mine/");

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("storagedirectory"), "./data/");
}

TEST_F(ConfigurationDefaultsTest, ADefaultForAFilledAliasTargetIsNotNeeded) {
  contract.aliases = {{"source", "target"}};
  contract.defaults = {{"source", "copied"}, {"target", "default"}};
  ConfigurationManager settings = store();

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("target"), "copied");
}

TEST_F(ConfigurationDefaultsTest, EveryRequiredKeyWithoutAValueIsAnError) {
  contract.required = {"SetStorageDirectory", "level", "configurationfilepath"};
  LogManager::setLogLevel(LogLevel::error);
  ConfigurationManager settings = store();
  settings.addConfiguration("Level", "info");

  const std::vector<std::string>* missing = settings.verifyAgainstContract();

  EXPECT_THAT(missing, Pointee(ElementsAre("SetStorageDirectory", "configurationfilepath")));
  EXPECT_THAT(machine.systemLog,
              ElementsAre("Missing configuration setting [SetStorageDirectory]",
                          "Missing configuration setting [configurationfilepath]"));
}

TEST_F(ConfigurationDefaultsTest, ARequiredKeyMayBeInCapitalsInTheContract) {
  contract.required = {"LEVEL"};
  ConfigurationManager settings = store();
  settings.addConfiguration("level", "info");

  EXPECT_THAT(settings.verifyAgainstContract(), Pointee(IsEmpty()));
}

TEST_F(ConfigurationDefaultsTest, ARequiredKeyWithAnEmptyValueIsNotMissing) {
  contract.required = {"level"};
  ConfigurationManager settings = store();
  settings.addConfiguration("level", "");

  EXPECT_THAT(settings.verifyAgainstContract(), Pointee(IsEmpty()));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationDefaultsTest, ARequiredKeyWithAnAbsentValueIsMissing) {
  contract.required = {"level"};
  ConfigurationManager settings = store();
  settings.addConfiguration("level", std::nullopt);

  EXPECT_THAT(settings.verifyAgainstContract(), Pointee(ElementsAre("level")));
}

TEST_F(ConfigurationDefaultsTest, OptionalKeysAreNeitherVerifiedNorAllThatMayBeStored) {
  contract.optional = {"comfort"};
  ConfigurationManager settings = store();

  EXPECT_THAT(settings.verifyAgainstContract(), Pointee(IsEmpty()));
  EXPECT_TRUE(settings.addConfiguration("unheard of", "x"));
}

TEST_F(ConfigurationDefaultsTest, EveryVerificationFillsTheSameListAnew) {
  contract.required = {"one", "two"};
  ConfigurationManager settings = store();
  const std::vector<std::string>* const missing = settings.verifyAgainstContract();
  EXPECT_THAT(missing, Pointee(ElementsAre("one", "two")));

  settings.addConfiguration("one", "x");

  EXPECT_EQ(settings.verifyAgainstContract(), missing);
  EXPECT_THAT(missing, Pointee(ElementsAre("two")));
}

}  // namespace
}  // namespace ombrix
