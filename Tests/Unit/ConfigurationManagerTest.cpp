#include <gmock/gmock.h>

#include <filesystem>
#include <memory>

#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix {
namespace {

using std::filesystem::is_directory;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pointee;
using tests::namesIn;
using tests::writeFile;

class ConfigurationManagerTest : public tests::ScratchFolderTest {
 protected:
  ConfigurationManagerTest() { LogManager::setLogLevel(LogLevel::debugPlus); }

  [[nodiscard]] ConfigurationManager store() const { return ConfigurationManager(&contract); }

  tests::ScriptedContract contract;
};

// --- Building ------------------------------------------------------------------------------------

TEST_F(ConfigurationManagerTest, TheContractIsAskedOnceForEachListInOrder) {
  ConfigurationManager settings = store();
  settings.addDefaultsIfMissing();
  settings.verifyAgainstContract();

  EXPECT_THAT(contract.asked, ElementsAre("required", "optional", "aliases", "defaults"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, TheContractIsNotKept) {
  auto shortLived = std::make_unique<tests::ScriptedContract>();
  shortLived->required = {"needed"};
  shortLived->aliases = {{"needed", "copy"}};
  shortLived->defaults = {{"needed", "x"}};
  ConfigurationManager settings(shortLived.get());
  shortLived.reset();

  settings.addDefaultsIfMissing();

  EXPECT_EQ(settings.getConfiguration("copy"), "x");
  EXPECT_THAT(settings.verifyAgainstContract(), Pointee(IsEmpty()));
}

TEST_F(ConfigurationManagerTest, AMissingContractIsAnError) {
  constexpr const char* message =
      "The selected protocol does not conform to ConfigurationManager::ConfigurationProtocol and "
      "will not be used. [(null)]";
  LogManager::setLogLevel(LogLevel::critical);
  const ConfigurationManager quiet(nullptr);
  EXPECT_THAT(machine.systemLog, IsEmpty());

  LogManager::setLogLevel(LogLevel::error);
  const ConfigurationManager loud(nullptr);
  EXPECT_THAT(machine.systemLog, ElementsAre(message));
}

TEST_F(ConfigurationManagerTest, WithoutAContractThereAreNoDefaultsAliasesOrRequiredKeys) {
  ConfigurationManager settings(nullptr);
  machine.systemLog.clear();

  settings.addDefaultsIfMissing();
  EXPECT_TRUE(settings.addConfiguration("setlogdirectory", "./logs/"));

  EXPECT_EQ(settings.getConfiguration("reportmeterdatadaily"), std::nullopt);
  EXPECT_EQ(settings.getConfiguration("SetLogDirectory"), "./logs/");
  EXPECT_EQ(settings.getConfiguration("logdirectory"), std::nullopt);
  EXPECT_EQ(settings.verifyAgainstContract(), nullptr);
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

// --- Keys ----------------------------------------------------------------------------------------

TEST_F(ConfigurationManagerTest, KeysHaveNoCase) {
  contract.aliases = {{"setstoragedirectory", "storagedirectory"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("SetLogDirectory", "logs/");
  settings.addConfiguration("SETSTORAGEDIRECTORY", "data/");

  for (const char* key : {"SetLogDirectory", "setlogdirectory", "SETLOGDIRECTORY"}) {
    EXPECT_EQ(settings.getConfiguration(key), "logs/") << key;
  }
  EXPECT_EQ(settings.getConfiguration("StorageDirectory"), "data/");
}

TEST_F(ConfigurationManagerTest, ASecondValueOfAKeyIsRefusedInSilence) {
  contract.aliases = {{"foo", "copy"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("foo", "old");
  machine.systemLog.clear();

  EXPECT_FALSE(settings.addConfiguration("Foo", "new"));

  EXPECT_EQ(settings.getConfiguration("foo"), "old");
  EXPECT_EQ(settings.getConfiguration("copy"), "old");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, ARefusedDirectoryIsNotMade) {
  ConfigurationManager settings = store();
  settings.addConfiguration("logdirectory", "old/");

  EXPECT_FALSE(settings.addConfiguration("LogDirectory", "new"));

  EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(ConfigurationManagerTest, AnEmptyValueIsAValueAndAnUnknownKeyHasNone) {
  ConfigurationManager settings = store();
  settings.addConfiguration("empty", "");

  EXPECT_EQ(settings.getConfiguration("empty"), "");
  EXPECT_EQ(settings.getConfiguration("unknown"), std::nullopt);
}

TEST_F(ConfigurationManagerTest, AnAbsentValueTakesItsKeyAndReadsAsAbsent) {
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("level", std::nullopt));
  EXPECT_EQ(settings.getConfiguration("level"), std::nullopt);
  EXPECT_FALSE(settings.addConfiguration("level", "info"));
}

TEST_F(ConfigurationManagerTest, SeveralValuesOfAKeyAreNeverFound) {
  ConfigurationManager settings = store();
  settings.addConfiguration("stored", "x");

  EXPECT_EQ(settings.getConfigurations("stored"), std::nullopt);
  EXPECT_EQ(settings.getConfigurations("unknown"), std::nullopt);
}

TEST_F(ConfigurationManagerTest, NothingAndTheEmptyTextAreEmpty) {
  EXPECT_TRUE(ConfigurationManager::validateIfNilOrEmpty(std::nullopt));
  EXPECT_TRUE(ConfigurationManager::validateIfNilOrEmpty(""));
  EXPECT_FALSE(ConfigurationManager::validateIfNilOrEmpty(" "));
  EXPECT_FALSE(ConfigurationManager::validateIfNilOrEmpty("(null)"));
}

// --- Removing ------------------------------------------------------------------------------------

TEST_F(ConfigurationManagerTest, RemovingAnAliasSourceLeavesItsCopy) {
  contract.aliases = {{"setstoragedirectory", "storagedirectory"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("setstoragedirectory", "data/");

  EXPECT_TRUE(settings.removeConfiguration("SetStorageDirectory"));

  EXPECT_EQ(settings.getConfiguration("setstoragedirectory"), std::nullopt);
  EXPECT_EQ(settings.getConfiguration("storagedirectory"), "data/");
}

TEST_F(ConfigurationManagerTest, RemovingWhatIsNotStoredIsTrue) {
  ConfigurationManager settings = store();
  settings.addConfiguration("other", "kept");

  EXPECT_TRUE(settings.removeConfiguration("unknown"));

  EXPECT_EQ(settings.getConfiguration("other"), "kept");
}

TEST_F(ConfigurationManagerTest, ARemovedKeyTakesANewValue) {
  ConfigurationManager settings = store();
  settings.addConfiguration("key", "old");
  settings.removeConfiguration("key");

  EXPECT_TRUE(settings.addConfiguration("key", "new"));
  EXPECT_EQ(settings.getConfiguration("key"), "new");
}

// --- Directories ---------------------------------------------------------------------------------

TEST_F(ConfigurationManagerTest, ADirectoryWithoutItsSlashGetsItAndIsMade) {
  const std::string directory = folder.path() + "/var/log/x";
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("logdirectory", directory));

  EXPECT_EQ(settings.getConfiguration("logdirectory"), directory + "/");
  EXPECT_TRUE(is_directory(directory));
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, ADirectoryWithItsSlashIsStoredUnchangedAndNotMade) {
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("logdirectory", "./var/log/x/"));

  EXPECT_EQ(settings.getConfiguration("logdirectory"), "./var/log/x/");
  EXPECT_THAT(namesIn("."), IsEmpty());
}

TEST_F(ConfigurationManagerTest, AnExistingDirectoryIsStoredAndNothingIsLogged) {
  std::filesystem::create_directories("real/kept");
  std::filesystem::create_directory_symlink("real", "link");
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("a.directory", "real"));
  EXPECT_TRUE(settings.addConfiguration("b.directory", "link"));

  EXPECT_EQ(settings.getConfiguration("a.directory"), "real/");
  EXPECT_EQ(settings.getConfiguration("b.directory"), "link/");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, EveryKeyThatEndsInDirectoryHoldsADirectory) {
  ConfigurationManager settings = store();
  for (const char* key : {"directory", "LOGDIRECTORY", "my.Directory", "setlogdirectory"}) {
    settings.addConfiguration(key, "made");
    EXPECT_EQ(settings.getConfiguration(key), "made/") << key;
  }
  for (const char* key : {"configurationfilepath", "directories", "directory "}) {
    settings.addConfiguration(key, "value");
    EXPECT_EQ(settings.getConfiguration(key), "value") << key;
  }
  EXPECT_THAT(namesIn("."), ElementsAre("made"));
}

TEST_F(ConfigurationManagerTest, AFileInThePlaceOfTheDirectoryIsAnErrorAndStored) {
  writeFile("file", "precious");
  LogManager::setLogLevel(LogLevel::error);
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("LogDirectory", "./file"));

  EXPECT_EQ(settings.getConfiguration("logdirectory"), "./file/");
  EXPECT_EQ(tests::contentsOf("file"), "precious");
  EXPECT_THAT(machine.systemLog, ElementsAre("This is not a valid path. [LogDirectory=./file/]"));
}

TEST_F(ConfigurationManagerTest, ALinkToAFileInThePlaceOfTheDirectoryIsAnError) {
  writeFile("file", "precious");
  std::filesystem::create_symlink("file", "link");
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("logdirectory", "link"));

  EXPECT_THAT(machine.systemLog, ElementsAre("This is not a valid path. [logdirectory=link/]"));
}

TEST_F(ConfigurationManagerTest, ADirectoryThatCannotBeMadeIsStoredInSilence) {
  writeFile("file", "");
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("logdirectory", "file/below/it"));

  EXPECT_EQ(settings.getConfiguration("logdirectory"), "file/below/it/");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, AnAbsentDirectoryIsTheFolderNull) {
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("logdirectory", std::nullopt));

  EXPECT_EQ(settings.getConfiguration("logdirectory"), "(null)/");
  EXPECT_TRUE(is_directory("(null)"));
}

TEST_F(ConfigurationManagerTest, AnEmptyDirectoryIsTheRoot) {
  ConfigurationManager settings = store();

  EXPECT_TRUE(settings.addConfiguration("logdirectory", ""));

  EXPECT_EQ(settings.getConfiguration("logdirectory"), "/");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

// --- Aliases -------------------------------------------------------------------------------------

TEST_F(ConfigurationManagerTest, AnAliasCopyReplacesTheTargetAndIsNoted) {
  contract.aliases = {{"source", "Target"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("target", "old");

  EXPECT_TRUE(settings.addConfiguration("SouRce", "new"));

  EXPECT_EQ(settings.getConfiguration("target"), "new");
  EXPECT_THAT(machine.systemLog,
              ElementsAre("Added configuration alias [Target] to [SouRce] => [new]"));
}

TEST_F(ConfigurationManagerTest, AnAliasCopyIsNotedAtTheLowestLevelOnly) {
  contract.aliases = {{"source", "target"}};
  LogManager::setLogLevel(LogLevel::debug);

  store().addConfiguration("source", "x");

  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, AliasesGoOneWayOnly) {
  contract.aliases = {{"source", "target"}};
  ConfigurationManager settings = store();

  settings.addConfiguration("target", "x");

  EXPECT_EQ(settings.getConfiguration("source"), std::nullopt);
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationManagerTest, AliasSourcesAreComparedAsTheContractWritesThem) {
  contract.aliases = {{"Source", "target"}};
  ConfigurationManager settings = store();

  settings.addConfiguration("Source", "x");

  EXPECT_EQ(settings.getConfiguration("target"), std::nullopt);
}

TEST_F(ConfigurationManagerTest, EveryAliasOfAKeyIsFollowedAndEveryChain) {
  contract.aliases = {{"one", "two"}, {"two", "three"}, {"one", "four"}};
  ConfigurationManager settings = store();

  settings.addConfiguration("one", std::nullopt);

  EXPECT_THAT(machine.systemLog,
              ElementsAre("Added configuration alias [two] to [one] => [(null)]",
                          "Added configuration alias [three] to [two] => [(null)]",
                          "Added configuration alias [four] to [one] => [(null)]"));
  for (const char* key : {"two", "three", "four"}) {
    EXPECT_FALSE(settings.addConfiguration(key, "late")) << key;
  }
}

TEST_F(ConfigurationManagerTest, TheCopyOfADirectoryHasItsSlash) {
  contract.aliases = {{"setlogdirectory", "logdirectory"}, {"folder", "storagedirectory"}};
  ConfigurationManager settings = store();
  settings.addConfiguration("setlogdirectory", "logs");
  settings.addConfiguration("folder", "data");

  EXPECT_EQ(settings.getConfiguration("logdirectory"), "logs/");
  EXPECT_EQ(settings.getConfiguration("folder"), "data");
  EXPECT_EQ(settings.getConfiguration("storagedirectory"), "data/");
  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("Added configuration alias [logdirectory] to [setlogdirectory] => [logs/]",
                  "Added configuration alias [storagedirectory] to [folder] => [data]"));
}

TEST_F(ConfigurationManagerTest, AWrongDirectoryIsReportedOnceAndBeforeItsCopy) {
  writeFile("file", "");
  contract.aliases = {{"setlogdirectory", "logdirectory"}};
  ConfigurationManager settings = store();

  settings.addConfiguration("setlogdirectory", "file");

  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("This is not a valid path. [setlogdirectory=file/]",
                  "Added configuration alias [logdirectory] to [setlogdirectory] => [file/]"));
}

}  // namespace
}  // namespace ombrix
