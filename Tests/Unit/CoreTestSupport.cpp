#include "Tests/Unit/CoreTestSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <tuple>
#include <utility>

#include "Utilities/Logging/LogManager.h"

namespace ombrix::tests {

namespace {

std::string commaSeparated(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string setting(const char* key, const std::optional<std::string>& value) {
  if (!value) return {};
  return std::string("<Setting key=\"env.") + key + "\" value=\"" + *value + "\"/>";
}

std::string element(const std::string& name, const std::optional<std::string>& text) {
  if (!text) return {};
  return "<" + name + ">" + *text + "</" + name + ">";
}

}  // namespace

platform::Date utc(int year, unsigned month, unsigned day, int hour, int minute, int second) {
  using std::chrono::hours, std::chrono::minutes, std::chrono::seconds, std::chrono::sys_days;
  return sys_days(std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day)) +
         hours(hour) + minutes(minute) + seconds(second);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> recordsIn(const std::string& directory) {
  std::vector<std::string> records;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.path().extension() == ".met") records.push_back(contentsOf(entry.path()));
  }
  std::sort(records.begin(), records.end());
  return records;
}

std::string field(const std::string& record, std::size_t number) {
  std::istringstream stream(record);
  std::string text;
  for (std::size_t index = 0; index < number; ++index) std::getline(stream, text, ';');
  return text;
}

void logEverything() {
  std::filesystem::create_directory("log");
  LogManager::setLogFilePath("log/");
  LogManager::setLogLevel(LogLevel::debugPlus);
}

std::vector<std::string> logLines() {
  constexpr std::size_t stampLength = sizeof "2024-03-01 10:00:00 - " - 1;
  std::vector<std::string> lines = std::filesystem::exists("log/metering.log")
                                       ? linesOf(contentsOf("log/metering.log"))
                                       : std::vector<std::string>();
  for (std::string& line : lines) line.erase(0, stampLength);
  return lines;
}

void runThreeProcesses(FakeMachine& machine) {
  machine.run(1, "init");
  machine.run(2, "cron");
  machine.run(3, "vim");
}

std::shared_ptr<ProcessData> named(const ProcessSet& records, const std::string& name) {
  const auto hasName = [&name](const auto& record) { return record->processName() == name; };
  const auto found = std::find_if(records.begin(), records.end(), hasName);
  return found == records.end() ? nullptr : *found;
}

ClosedFolder::ClosedFolder(std::string path) : path(std::move(path)) {
  std::filesystem::permissions(this->path, std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::remove);
  nobody.emplace();
}

ClosedFolder::~ClosedFolder() {
  nobody.reset();
  std::error_code error;
  std::filesystem::permissions(path, std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::add, error);
}

void tellNotificationsAtExit() {
  std::ignore = std::atexit([] {
    const FakeMachine& machine = FakeMachine::current();
    std::ignore = std::fprintf(stderr, "observed at exit: [%s]\nposted at exit: [%s]\n",
                               commaSeparated(machine.observedNames()).c_str(),
                               commaSeparated(machine.posted).c_str());
  });
}

std::string ConfigurationText::xml() const {
  return "<Configuration><SystemSettings>" + setting("data_dir", dataDirectory) +
         setting("temp_dir", temporaryDirectory) + setting("log_dir", logDirectory) +
         "</SystemSettings><Logging>" + element("MaxSize", maximumLogSize) +
         element("Level", logLevel) + "</Logging></Configuration>\n";
}

MeteringBench::MeteringBench() {
  setTimeZone(universalTime);
  store.addConfiguration("setstoragedirectory", path("records/"));
  store.addConfiguration("setlogdirectory", path("log/"));
  store.addConfiguration("settemporarydirectory", path("temporary/"));
  runThreeProcesses(machine);
}

std::string MeteringBench::path(const std::string& name) const {
  return folder.path() + "/" + name;
}

std::vector<std::string> MeteringBench::records() const { return recordsIn("records"); }

}  // namespace ombrix::tests
