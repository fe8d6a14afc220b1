#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Platform/Text.h"
#include "Platform/UserDirectory.h"
#include "Source/Core/ProcessManager.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/MadeUpProc.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Paths.h"
#include "Utilities/Text.h"

// A whole /proc that is made up: processes that come, go, are dead, are the kernel's or have files
// of any bytes, polled twice by the process table through the real port.

namespace ombrix::tests {

namespace {

using platform::ProcessId;
using Text = std::optional<std::string>;

// What a record tells of its process.
using Told = std::tuple<Text, Text, Text>;

Told toldBy(const ProcessData& record) {
  return {record.processName(), record.path(), record.userName()};
}

std::vector<Told> toldBy(const ProcessSet& records) {
  std::vector<Told> all;
  all.reserve(records.size());
  for (const auto& record : records) all.push_back(toldBy(*record));
  std::sort(all.begin(), all.end());
  return all;
}

Text userOf(platform::UserId user) {
  return utf8OrNothing(platform::userName(user).value_or("user name not found"));
}

// The table as it should be.
class TableModel {
 public:
  void poll(const std::map<ProcessId, MadeUpProcess>& listed) {
    for (auto known = runs.begin(); known != runs.end();) {
      known = listed.count(known->first) == 0 ? end(known) : std::next(known);
    }
    std::string folder;  // of the process before, where a path may not be read
    for (const auto& [id, process] : listed) {
      if (runs.count(id) > 0 || !process.counts()) continue;
      if (const auto executable = process.executableAsRead()) {
        folder = deletingLastPathComponent(*executable);
      }
      runs[id] = {utf8OrNothing(process.name), utf8OrNothing(folder), userOf(process.user)};
    }
  }

  [[nodiscard]] std::vector<Told> takeEnded() { return sorted(std::exchange(ended, {})); }
  [[nodiscard]] std::vector<Told> all() const {
    std::vector<Told> told;
    for (const auto& [id, run] : runs) told.push_back(run);
    return sorted(std::move(told));
  }

 private:
  using Runs = std::map<ProcessId, Told>;

  Runs::iterator end(Runs::iterator run) {
    ended.push_back(run->second);
    return runs.erase(run);
  }
  static std::vector<Told> sorted(std::vector<Told> told) {
    std::sort(told.begin(), told.end());
    return told;
  }

  Runs runs;
  std::vector<Told> ended;
};

void pollTwice(ProcessManager& table, Input& input) {
  constexpr int polls = 2;
  // Forgets what the input before has left.
  MadeUpProc proc;
  std::ignore = table.refreshAndGetStopped();
  table.resetProcessList();

  TableModel model;
  for (int i = 0; i < polls; ++i) {
    proc.change(input);
    model.poll(proc.listed());
    require(toldBy(table.refreshAndGetStopped()) == model.takeEnded(), "ended is who is gone");
    require(toldBy(table.getAllProcessesAsStopped()) == model.all(), "watched is who is there");
  }
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  ombrix::tests::replaceProc();
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/nobody", 1);
  // A log without a file keeps its lines.
  ombrix::LogManager::setLogLevel(ombrix::LogLevel::emergency);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  static ombrix::ProcessManager table;
  Input input(bytes, size);
  pollTwice(table, input);
  return 0;
}
