#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "Source/data/OmbrixConfigurationContract.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Fuzz/Support/FuzzFolder.h"
#include "Utilities/Configuration/ConfigurationManager.h"

// A configuration file in memory and a store that reads it as the agent does at its start. The
// directories that it names are made in a folder of this process's own and nowhere else.

namespace ombrix::tests {

// The five settings of the file, and the copies of the first three.
inline constexpr std::array<const char*, 5> settingKeys = {
    "setstoragedirectory", "settemporarydirectory", "setlogdirectory", "ombrixmaxlogsize",
    "ombrixloglevel"};
inline constexpr std::array<const char*, 3> copyKeys = {"storagedirectory", "temporarydirectory",
                                                        "logdirectory"};
using Setting = std::optional<std::string>;
using Settings = std::array<Setting, settingKeys.size()>;

class ConfigurationBench {
 public:
  // Logs everything that is said of a file from then on.
  ConfigurationBench();

  // What the settings are after the start with this file.
  [[nodiscard]] Settings load(std::string_view file);

  // What the settings are without any file. The third of them is the directory of the log.
  [[nodiscard]] static const Settings& defaults();

  // What load() made the agent say.
  [[nodiscard]] const std::vector<std::string>& said() const { return saidLast; }

 private:
  void write(std::string_view file) const;

  FuzzFolder logFolder;
  FuzzFolder folder;
  int descriptor;
  std::string path;
  std::vector<std::string> saidLast;
};

}  // namespace ombrix::tests
