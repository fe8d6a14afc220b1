#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <utility>

#include "Source/data/OmbrixConfigurationContract.h"
#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::Pointee;
using tests::namesIn;
using tests::WithoutPrivileges;
using tests::writeFile;

using Rows = std::vector<std::pair<std::string, std::string>>;

Rows rows(const std::vector<KeyValuePair>& pairs) {
  Rows rows;
  for (const KeyValuePair& pair : pairs) {
    rows.emplace_back(pair.key().value_or("absent"), pair.value().value_or("absent"));
  }
  return rows;
}

const auto onlyTheDailyReport = ElementsAre(Pair("ReportMeterDataDaily", "yes"));

class OmbrixConfigurationContractTest : public tests::ScratchFolderTest {
 protected:
  const OmbrixConfigurationContract contract{};
};

TEST_F(OmbrixConfigurationContractTest, RequiredKeysAreTheSameAtEveryCall) {
  for (int call = 0; call < 2; ++call) {
    EXPECT_THAT(contract.getRequiredSettings(),
                ElementsAre("setstoragedirectory", "configurationfilepath"));
  }
}

TEST_F(OmbrixConfigurationContractTest, OptionalKeysAreTheSameAtEveryCall) {
  for (int call = 0; call < 2; ++call) {
    EXPECT_THAT(contract.getOptionalSettings(),
                ElementsAre("settemporarydirectory", "logdirectory"));
  }
}

TEST_F(OmbrixConfigurationContractTest, AliasesAreTheSameAtEveryCall) {
  for (int call = 0; call < 2; ++call) {
    EXPECT_THAT(rows(contract.getAliases()),
                ElementsAre(Pair("setstoragedirectory", "storagedirectory"),
                            Pair("settemporarydirectory", "temporarydirectory"),
                            Pair("setlogdirectory", "logdirectory")));
  }
}

TEST_F(OmbrixConfigurationContractTest, AFileOfTheDefaultNameBringsAllFiveDefaults) {
  writeFile("velkagent.config", "");

  EXPECT_THAT(
      rows(contract.getDefaults()),
      ElementsAre(Pair("ReportMeterDataDaily", "yes"),
                  Pair("configurationfilepath", "./velkagent.config"),
                  Pair("setstoragedirectory", "./data/"),
                  Pair("settemporarydirectory", "/tmp/velk/"), Pair("setlogdirectory", "./data/")));
}

TEST_F(OmbrixConfigurationContractTest, WithoutSuchAFileThereIsOneDefaultOnly) {
  writeFile("velkagent.config.old", "");

  EXPECT_THAT(rows(contract.getDefaults()), onlyTheDailyReport);
}

TEST_F(OmbrixConfigurationContractTest, AFileThatMayNotBeReadIsAsGoodAsNone) {
  writeFile("velkagent.config", "");
  ::chmod("velkagent.config", 0);

  const WithoutPrivileges asAnyUser;
  EXPECT_THAT(rows(contract.getDefaults()), onlyTheDailyReport);
}

TEST_F(OmbrixConfigurationContractTest, TheFileIsLookedForAtEveryCall) {
  EXPECT_THAT(rows(contract.getDefaults()), onlyTheDailyReport);

  writeFile("velkagent.config", "");

  EXPECT_EQ(contract.getDefaults().size(), 5U);
}

TEST_F(OmbrixConfigurationContractTest, TheStoreIsFilledWithEightSettingsAndNoDirectoryIsMade) {
  writeFile("velkagent.config", "");
  ConfigurationManager store(&contract);

  store.addDefaultsIfMissing();

  for (const auto& [key, value] : Rows{{"reportmeterdatadaily", "yes"},
                                       {"configurationfilepath", "./velkagent.config"},
                                       {"setstoragedirectory", "./data/"},
                                       {"storagedirectory", "./data/"},
                                       {"settemporarydirectory", "/tmp/velk/"},
                                       {"temporarydirectory", "/tmp/velk/"},
                                       {"setlogdirectory", "./data/"},
                                       {"logdirectory", "./data/"}}) {
    EXPECT_EQ(store.getConfiguration(key), value) << key;
  }
  EXPECT_THAT(namesIn("."), ElementsAre("velkagent.config"));
  EXPECT_THAT(store.verifyAgainstContract(), Pointee(IsEmpty()));
}

TEST_F(OmbrixConfigurationContractTest, AFileElsewhereLeavesTheStorageDirectoryMissing) {
  ConfigurationManager store(&contract);
  store.addConfiguration("ConfigurationFilePath", "/elsewhere/agent.config");

  store.addDefaultsIfMissing();

  EXPECT_THAT(store.verifyAgainstContract(), Pointee(ElementsAre("setstoragedirectory")));
  EXPECT_EQ(store.getConfiguration("SetLogDirectory"), std::nullopt);
}

TEST_F(OmbrixConfigurationContractTest, APathGivenByTheUserIsKeptBesideTheDefaults) {
  writeFile("velkagent.config", "");
  ConfigurationManager store(&contract);
  store.addConfiguration("ConfigurationFilePath", "/elsewhere/agent.config");

  store.addDefaultsIfMissing();

  EXPECT_EQ(store.getConfiguration("configurationfilepath"), "/elsewhere/agent.config");
  EXPECT_EQ(store.getConfiguration("storagedirectory"), "./data/");
}

}  // namespace
}  // namespace ombrix
