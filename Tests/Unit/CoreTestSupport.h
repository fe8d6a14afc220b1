#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Source/data/OmbrixConfigurationContract.h"
#include "Source/data/ProcessData.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Configuration/ConfigurationManager.h"

// What the tests of the agent's core share: processes to run, settings to run with, and a look at
// what the agent left behind.

namespace ombrix::tests {

// Zones that need no zone files, for setTimeZone().
inline constexpr const char* universalTime = "UTC0";
inline constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

// A moment of universal time, as in utc(2024, 3, 1, 10).
[[nodiscard]] platform::Date utc(int year, unsigned month, unsigned day, int hour = 0,
                                 int minute = 0, int second = 0);

[[nodiscard]] std::vector<std::string> linesOf(const std::string& text);

// The contents of the record files in a directory, sorted.
[[nodiscard]] std::vector<std::string> recordsIn(const std::string& directory);
// Field 1 to 11 of a record.
[[nodiscard]] std::string field(const std::string& record, std::size_t number);

// Logs messages of every level, to log/metering.log in the working directory.
void logEverything();
// The lines of that file without their time: "[Level]\tmessage".
[[nodiscard]] std::vector<std::string> logLines();

// The three processes that every healthy poll finds: "init" (1), "cron" (2) and "vim" (3).
void runThreeProcesses(FakeMachine& machine);
// The one record of that process name; null when there is none.
[[nodiscard]] std::shared_ptr<ProcessData> named(const ProcessSet& records,
                                                 const std::string& name);

// Takes from the agent the right to make or remove anything in a folder, while it lives.
class ClosedFolder {
 public:
  explicit ClosedFolder(std::string path);
  ~ClosedFolder();
  ClosedFolder(const ClosedFolder&) = delete;
  ClosedFolder& operator=(const ClosedFolder&) = delete;

 private:
  std::string path;
  std::optional<WithoutPrivileges> nobody;
};

// Prints to standard error when the process exits what it then observes and has posted.
void tellNotificationsAtExit();

// An agent configuration file.
struct ConfigurationText {
  std::optional<std::string> dataDirectory;
  std::optional<std::string> temporaryDirectory;
  std::optional<std::string> logDirectory;
  std::optional<std::string> maximumLogSize;
  std::optional<std::string> logLevel;

  [[nodiscard]] std::string xml() const;
};

// All that an engine needs: a folder, a machine with three processes, the zone of universal time
// and a store that names the directories records/, log/ and temporary/, none of which exists.
struct MeteringBench {
  MeteringBench();

  ScratchFolder folder;
  FakeMachine machine;
  OmbrixConfigurationContract contract;
  ConfigurationManager store{&contract};

  [[nodiscard]] std::vector<std::string> records() const;
  [[nodiscard]] std::string path(const std::string& name) const;
};

}  // namespace ombrix::tests
