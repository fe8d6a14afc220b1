#include "Tests/Fuzz/Support/ConfigurationBench.h"

#include <sys/mman.h>
#include <unistd.h>

#include "Tests/Fuzz/Support/DirectoryDouble.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Logging/LogManager.h"

namespace ombrix::tests {

namespace {

constexpr const char* defaultFile = "velkagent.config";

Settings read(const ConfigurationManager& store) {
  Settings settings;
  for (std::size_t i = 0; i < settings.size(); ++i) {
    settings.at(i) = store.getConfiguration(settingKeys.at(i));
  }
  for (std::size_t i = 0; i < copyKeys.size(); ++i) {
    require(store.getConfiguration(copyKeys.at(i)) == settings.at(i),
            "a directory's second name has the value of the first");
  }
  return settings;
}

}  // namespace

ConfigurationBench::ConfigurationBench()
    : descriptor(::memfd_create("configuration", MFD_CLOEXEC)),
      path("/proc/self/fd/" + std::to_string(descriptor)) {
  makeDirectoriesOnlyIn(folder.path());
  // The defaults are offered where a file of the default name lies.
  writeFile(defaultFile, "");
  LogManager::setLogFilePath(logFolder.path());
  LogManager::setMaxAllowedLogSizeInBytes(1U << 16U);
  LogManager::setLogLevel(LogLevel::debugPlus);
}

void ConfigurationBench::write(std::string_view file) const {
  const bool written =
      ::ftruncate(descriptor, 0) == 0 &&
      ::pwrite(descriptor, file.data(), file.size(), 0) == static_cast<ssize_t>(file.size());
  require(written, "there is memory for a file");
}

Settings ConfigurationBench::load(std::string_view file) {
  write(file);
  FakeMachine machine;
  const OmbrixConfigurationContract contract;
  ConfigurationManager store(&contract);
  store.addDefaultsIfMissing();
  require(store.loadConfigurationFile(path), "any file but one without a name can be tried");
  const Settings settings = read(store);
  require(store.verifyAgainstContract()->empty(), "the defaults are there, whatever the file says");

  require(store.loadConfigurationFile(path), "a file can be tried twice");
  require(read(store) == settings, "a file read twice says the same");
  saidLast = machine.systemLog;
  folder.clear(defaultFile);
  return settings;
}

const Settings& ConfigurationBench::defaults() {
  static const Settings values = {"./data/", "/tmp/velk/", "./data/", std::nullopt, std::nullopt};
  return values;
}

}  // namespace ombrix::tests
