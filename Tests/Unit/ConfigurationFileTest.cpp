#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <utility>

#include "Source/data/OmbrixConfigurationContract.h"
#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"

// The store's reader of the agent configuration file.

namespace ombrix {
namespace {

using std::filesystem::is_directory;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using tests::namesIn;
using tests::WithoutPrivileges;
using tests::writeFile;

constexpr const char* path = "agent.config";
constexpr const char* unreadable = "ConfigurationManager: Error setting up NSXMLDocument";

std::string setting(const std::string& key, const std::string& value) {
  return R"(<Setting key=")" + key + R"(" value=")" + value + R"("/>)";
}

std::string document(const std::string& settings, const std::string& logging = "") {
  return "<?xml version=\"1.0\"?>\n<Configuration>\n <SystemSettings>" + settings +
         "</SystemSettings>\n <Logging>" + logging + "</Logging>\n</Configuration>\n";
}

class ConfigurationFileTest : public tests::ScratchFolderTest {
 protected:
  ConfigurationFileTest() { LogManager::setLogLevel(LogLevel::info); }

  // Reads a file of these bytes; the reader's messages are then all that was logged.
  [[nodiscard]] bool load(const std::string& text) {
    writeFile(path, text);
    machine.systemLog.clear();
    return store.loadConfigurationFile(path);
  }

  [[nodiscard]] ConfigurationManager::Value get(const char* key) const {
    return store.getConfiguration(key);
  }

  void expectDefaults() const {
    EXPECT_EQ(get("storagedirectory"), "./data/");
    EXPECT_EQ(get("temporarydirectory"), "/tmp/velk/");
    EXPECT_EQ(get("logdirectory"), "./data/");
    EXPECT_EQ(get("ombrixmaxlogsize"), std::nullopt);
    EXPECT_EQ(get("ombrixloglevel"), std::nullopt);
  }

  ConfigurationManager store = storeWithDefaults();

 private:
  static ConfigurationManager storeWithDefaults() {
    // The contract offers its default directories only beside a file of the default name.
    writeFile("velkagent.config", "");
    const OmbrixConfigurationContract contract;
    ConfigurationManager filled(&contract);
    filled.addDefaultsIfMissing();
    return filled;
  }
};

// --- What is read --------------------------------------------------------------------------------

TEST_F(ConfigurationFileTest, AFileThatSetsEverythingIsLoadedInFixedOrder) {
  EXPECT_TRUE(
      load("<Configuration><Logging><Level>info</Level><MaxSize>1024</MaxSize></Logging>"
           "<SystemSettings>" +
           setting("env.log_dir", "logs/") + setting("env.temp_dir", "temporary/") +
           setting("env.data_dir", "records/") + "</SystemSettings></Configuration>"));

  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("ConfigurationManager: Loading "
                  R"(/Configuration/SystemSettings/Setting[@key = "env.data_dir"]: [records/])",
                  "ConfigurationManager: Loading "
                  R"(/Configuration/SystemSettings/Setting[@key = "env.temp_dir"]: [temporary/])",
                  "ConfigurationManager: Loading "
                  R"(/Configuration/SystemSettings/Setting[@key = "env.log_dir"]: [logs/])",
                  "ConfigurationManager: Loading /VelkQuantavoConfig/Log/MaxSize: [1024]",
                  "ConfigurationManager: Loading /VelkQuantavoConfig/Log/Level: [info]"));
  EXPECT_EQ(get("setstoragedirectory"), "records/");
  EXPECT_EQ(get("storagedirectory"), "records/");
  EXPECT_EQ(get("settemporarydirectory"), "temporary/");
  EXPECT_EQ(get("temporarydirectory"), "temporary/");
  EXPECT_EQ(get("setlogdirectory"), "logs/");
  EXPECT_EQ(get("logdirectory"), "logs/");
  EXPECT_EQ(get("ombrixmaxlogsize"), "1024");
  EXPECT_EQ(get("ombrixloglevel"), "info");
}

TEST_F(ConfigurationFileTest, LoadingIsInformation) {
  LogManager::setLogLevel(LogLevel::notice);

  EXPECT_TRUE(load(document(setting("env.data_dir", "records/"), "<Level>info</Level>")));

  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationFileTest, ADirectoryGetsItsSlashUnderBothKeysAndIsMade) {
  const std::string directory = folder.path() + "/agent/data";

  EXPECT_TRUE(load(document(setting("env.data_dir", directory))));

  EXPECT_EQ(get("setstoragedirectory"), directory + "/");
  EXPECT_EQ(get("storagedirectory"), directory + "/");
  EXPECT_TRUE(is_directory(directory));
}

TEST_F(ConfigurationFileTest, TheFileReplacesAnEarlierValue) {
  const OmbrixConfigurationContract contract;
  ConfigurationManager other(&contract);
  other.addConfiguration("SetStorageDirectory", "mine/");
  other.addConfiguration("OmbrixLogLevel", "error");
  writeFile(path, document(setting("env.data_dir", "records/"), "<Level>trace</Level>"));

  EXPECT_TRUE(other.loadConfigurationFile(path));

  EXPECT_EQ(other.getConfiguration("setstoragedirectory"), "records/");
  EXPECT_EQ(other.getConfiguration("storagedirectory"), "records/");
  EXPECT_EQ(other.getConfiguration("ombrixloglevel"), "trace");
}

TEST_F(ConfigurationFileTest, WhatTheFileDoesNotSetIsKept) {
  EXPECT_TRUE(load(document(setting("env.log_dir", "logs/"))));

  EXPECT_EQ(get("storagedirectory"), "./data/");
  EXPECT_EQ(get("logdirectory"), "logs/");
}

TEST_F(ConfigurationFileTest, ASecondCallReadsTheFileAgain) {
  EXPECT_TRUE(load(document("", "<MaxSize>1</MaxSize><Level>info</Level>")));
  EXPECT_TRUE(load(document("", "<MaxSize>2</MaxSize>")));

  EXPECT_EQ(get("ombrixmaxlogsize"), "2");
  EXPECT_EQ(get("ombrixloglevel"), "info");
}

TEST_F(ConfigurationFileTest, EverythingElseInTheFileIsIgnored) {
  EXPECT_TRUE(load(document(
      "<!-- remark --><Other key='env.data_dir' value='other/'/>"
      "<Setting key='ENV.DATA_DIR' value='capitals/'/><Setting key='env.data_dir ' value='blank/'/>"
      "<Setting Key='env.data_dir' value='other case/'/><setting key='env.data_dir' value='low/'/>"
      "<Group><Setting key='env.data_dir' value='deeper/'/></Group>" +
          setting("env.unknown", "unknown/") +
          "<Setting unknown='x' value='records/' key='env.data_dir'>text</Setting>",
      "<maxsize>1</maxsize><Unknown>x</Unknown>text")));

  EXPECT_EQ(get("storagedirectory"), "records/");
  EXPECT_EQ(get("ombrixmaxlogsize"), std::nullopt);
  EXPECT_THAT(namesIn("."), ElementsAre(path, "velkagent.config"));
}

TEST_F(ConfigurationFileTest, EntitiesAndOtherEncodingsAreRead) {
  EXPECT_TRUE(load("<?xml version='1.0' encoding='ISO-8859-1'?><Configuration><SystemSettings>" +
                   setting("env.data_dir", "\xE4&amp;&#x20AC;&quot;/") +
                   "</SystemSettings></Configuration>"));

  EXPECT_EQ(get("storagedirectory"), "ä&€\"/");
}

// --- What is not there, or there twice -----------------------------------------------------------

TEST_F(ConfigurationFileTest, ADocumentWithoutSettingsChangesNothingAndIsSilent) {
  for (const char* text :
       {"<Configuration/>", "<other/>", "<configuration><Logging/></configuration>",
        "<Configuration xmlns='urn:x'><Logging><Level>info</Level></Logging>"
        "</Configuration>"}) {
    EXPECT_TRUE(load(text)) << text;
    EXPECT_THAT(machine.systemLog, IsEmpty()) << text;
    expectDefaults();
  }
}

TEST_F(ConfigurationFileTest, AFileOfTheOlderShapeChangesNothing) {
  EXPECT_TRUE(
      load("<VelkQuantavoConfig><Client><LocalStorage>x/</LocalStorage></Client>"
           "<Log><MaxSize>1</MaxSize><Level>info</Level></Log></VelkQuantavoConfig>"));

  expectDefaults();
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationFileTest, WhatIsThereTwiceIsNotSet) {
  EXPECT_TRUE(load(
      document(setting("env.data_dir", "one/") + setting("env.data_dir", "two/") +
                   setting("env.temp_dir", "one/") + setting("env.temp_dir", "one/") +
                   setting("env.log_dir", "one/") + setting("env.log_dir", ""),
               "<MaxSize>1</MaxSize><MaxSize>2</MaxSize><Level>info</Level><Level>error</Level>")));

  expectDefaults();
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

// --- Empty and absent values ---------------------------------------------------------------------

TEST_F(ConfigurationFileTest, AnEmptyValueIsAWarningAndKeepsTheDefault) {
  LogManager::setLogLevel(LogLevel::warning);
  EXPECT_TRUE(load(document(
      setting("env.data_dir", "") + setting("env.temp_dir", "") + setting("env.log_dir", ""),
      "<MaxSize><![CDATA[]]></MaxSize><Level><!----></Level>")));

  EXPECT_THAT(
      machine.systemLog,
      ElementsAre(
          "ConfigurationManager: Could not parse: [/VelkQuantavoConfig/Client/LocalStorage]",
          "ConfigurationManager: Could not parse: "
          R"([/Configuration/SystemSettings/Setting[@key = "env.temp_dir"]])",
          "ConfigurationManager: Could not parse: "
          R"([/Configuration/SystemSettings/Setting[@key = "env.log_dir"]])",
          "ConfigurationManager: Could not parse: [/VelkQuantavoConfig/Log/MaxSize]",
          "ConfigurationManager: Could not parse: [/VelkQuantavoConfig/Log/Level]"));
  expectDefaults();
}

TEST_F(ConfigurationFileTest, AnEmptyValueIsNoError) {
  LogManager::setLogLevel(LogLevel::error);

  EXPECT_TRUE(load(document(setting("env.log_dir", ""))));

  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(ConfigurationFileTest, ASettingWithoutAValueIsTheFolderNull) {
  EXPECT_TRUE(load(document("<Setting key='env.data_dir'/>")));

  EXPECT_EQ(get("setstoragedirectory"), "(null)/");
  EXPECT_EQ(get("storagedirectory"), "(null)/");
  EXPECT_TRUE(is_directory("(null)"));
  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("ConfigurationManager: Loading "
                  R"(/Configuration/SystemSettings/Setting[@key = "env.data_dir"]: [(null)])"));
}

TEST_F(ConfigurationFileTest, AnElementWithoutATextIsAnAbsentValue) {
  EXPECT_TRUE(load(document("", "<MaxSize>1</MaxSize><Level>info</Level>")));

  EXPECT_TRUE(load(document("", "<MaxSize/><Level></Level>")));

  EXPECT_EQ(get("ombrixmaxlogsize"), std::nullopt);
  EXPECT_EQ(get("ombrixloglevel"), std::nullopt);
  EXPECT_THAT(machine.systemLog,
              ElementsAre("ConfigurationManager: Loading /VelkQuantavoConfig/Log/MaxSize: [(null)]",
                          "ConfigurationManager: Loading /VelkQuantavoConfig/Log/Level: [(null)]"));
}

// --- Blanks, sections and repair -----------------------------------------------------------------

TEST_F(ConfigurationFileTest, BlanksAroundATextAreKept) {
  EXPECT_TRUE(load(document("", "<MaxSize> 10 </MaxSize><Level> info </Level>")));

  EXPECT_EQ(get("ombrixmaxlogsize"), " 10 ");
  EXPECT_EQ(get("ombrixloglevel"), " info ");
  EXPECT_EQ(LogManager::convertLogLevel(*get("ombrixloglevel")), LogLevel::emergency);
}

TEST_F(ConfigurationFileTest, ATextOfBlanksOnlyIsAValue) {
  EXPECT_TRUE(load(document("", "<MaxSize> </MaxSize>")));

  EXPECT_EQ(get("ombrixmaxlogsize"), " ");
}

TEST_F(ConfigurationFileTest, OnlyTheFirstChildOfAnElementIsItsValue) {
  EXPECT_TRUE(load(document(
      "", "<MaxSize>10<!-- KiB -->24</MaxSize><Level><![CDATA[info]]> of the log</Level>")));

  EXPECT_EQ(get("ombrixmaxlogsize"), "10");
  EXPECT_EQ(get("ombrixloglevel"), "info");
}

TEST_F(ConfigurationFileTest, ADamagedFileIsReadAsRepairedWithoutItsBlanksAndSections) {
  EXPECT_TRUE(load("<Configuration><SystemSettings>" + setting("env.data_dir", " records/") +
                   "</SystemSettings><Logging><MaxSize>\n 10 \t</MaxSize>"
                   "<Level> in<![CDATA[fo ]]></Level></Logging>"));

  EXPECT_EQ(get("storagedirectory"), " records/");
  EXPECT_EQ(get("ombrixmaxlogsize"), "10");
  EXPECT_EQ(get("ombrixloglevel"), "info");
  EXPECT_THAT(machine.systemLog, Not(Contains(unreadable)));
}

TEST_F(ConfigurationFileTest, ATextThatIsEmptyOnceRepairedIsAWarning) {
  EXPECT_TRUE(load("<Configuration><Logging><Level><![CDATA[ ]]></Level></Logging>"));

  EXPECT_THAT(
      machine.systemLog,
      ElementsAre("ConfigurationManager: Could not parse: [/VelkQuantavoConfig/Log/Level]"));
}

// --- Files that are none -------------------------------------------------------------------------

TEST_F(ConfigurationFileTest, AnEmptyPathIsRefused) {
  LogManager::setLogLevel(LogLevel::error);

  EXPECT_FALSE(store.loadConfigurationFile(""));

  EXPECT_THAT(machine.systemLog,
              ElementsAre("ConfigurationManager: Can\xE2\x80\x99t create an URL from file: []"));
}

TEST_F(ConfigurationFileTest, AFileThatCannotBeReadIsAnErrorAndSetsNothing) {
  LogManager::setLogLevel(LogLevel::error);
  writeFile("closed", document("", "<Level>info</Level>"));
  ::chmod("closed", 0);
  std::filesystem::create_directory("folder");

  const WithoutPrivileges asAnyUser;
  for (const char* file : {"missing", "closed", "folder"}) {
    machine.systemLog.clear();
    EXPECT_TRUE(store.loadConfigurationFile(file)) << file;
    EXPECT_THAT(machine.systemLog, ElementsAre(unreadable)) << file;
    expectDefaults();
  }
}

TEST_F(ConfigurationFileTest, AFileWithoutXmlIsAnErrorAndSetsNothing) {
  LogManager::setLogLevel(LogLevel::error);
  for (const char* text : {"", "\n", "Level=info\n", "<?xml version='1.0'?>",
                           "\x7F"
                           "ELF"}) {
    EXPECT_TRUE(load(text)) << text;
    EXPECT_THAT(machine.systemLog, ElementsAre(unreadable)) << text;
    expectDefaults();
  }
}

TEST_F(ConfigurationFileTest, AnUnreadableFileIsNoLesserThanAnError) {
  LogManager::setLogLevel(LogLevel::critical);

  EXPECT_FALSE(store.loadConfigurationFile(""));
  EXPECT_TRUE(store.loadConfigurationFile("missing"));

  EXPECT_THAT(machine.systemLog, IsEmpty());
}

}  // namespace
}  // namespace ombrix
