#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Platform/SystemPower.h"
#include "Platform/Text.h"
#include "Source/Core/ClientSetup.h"
#include "Source/Core/MeteringManager.h"
#include "Source/data/OmbrixConfigurationContract.h"
#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Fuzz/Support/FuzzFolder.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Configuration/ConfigurationManager.h"
#include "Utilities/Logging/LogManager.h"

// The road of a run: processes, users, paths and a computer of any name on the scripted machine,
// and the record files and the list that come of them.

namespace ombrix::tests {

namespace {

using std::chrono::seconds;
using Process = FakeMachine::Process;

constexpr const char* storage = "records/";

struct Day {
  std::vector<Process> processes;  // the first three are always there
  std::vector<bool> ends;          // before the second poll
  platform::Date begin;
  seconds awake{0};
  seconds asleep{0};
  bool listWanted = false;
};

std::string withoutNul(const std::string& bytes) { return bytes.substr(0, bytes.find('\0')); }

std::optional<std::string> nameIn(Input& input) {
  if (input.choice(8) == 7) return std::nullopt;
  return withoutNul(input.text());
}

// All within one day, so that no midnight ends a run.
Day dayIn(Input& input) {
  constexpr platform::ProcessId firstId = 10;
  constexpr int mostProcesses = 6;
  Day day;
  for (platform::ProcessId id = 1; id <= 3; ++id) {
    day.processes.push_back({id, "usual", 0, "/usr/bin/usual", false, false});
  }
  const std::chrono::days date(input.number<std::uint16_t>());
  day.begin = platform::Date(date + seconds(input.number<std::uint16_t>() % 20000));
  day.awake = seconds(input.number<std::uint16_t>() / 2);
  day.asleep = seconds(input.number<std::uint16_t>() / 2);
  day.listWanted = input.flag();
  const int count = input.byte() % mostProcesses;
  for (int i = 0; i < count; ++i) {
    Process process{firstId + i, nameIn(input), input.choice(4), nameIn(input), false, false};
    day.processes.push_back(std::move(process));
  }
  for (std::size_t i = 0; i < day.processes.size(); ++i) {
    day.ends.push_back(i >= 3 && input.flag());
  }
  return day;
}

void furnish(FakeMachine& machine, Input& input, const Day& day) {
  machine.date = day.begin;
  machine.processes = day.processes;
  for (platform::UserId user = 1; user <= 2; ++user) {
    machine.users[user] = withoutNul(input.text());
  }
  machine.hostName = withoutNul(input.text());
  machine.digestFails = input.choice(8) == 7;
  machine.randomFails = input.choice(16) == 15;
}

// What happens while the agent waits between its two polls.
void liveThrough(FakeMachine& machine, const Day& day) {
  const auto tell = [&machine](std::uint32_t message) {
    machine.powerCallback(machine.powerReference, 0, message, nullptr);
  };
  tell(platform::messageSystemWillSleep);
  machine.pass(day.asleep);
  tell(platform::messageSystemHasPoweredOn);
  machine.pass(day.awake);
  if (day.listWanted) machine.postFromOutside(Notification::list);
  for (std::size_t i = 0; i < day.processes.size(); ++i) {
    if (day.ends[i]) machine.end(day.processes[i].id);
  }
}

std::string textOf(const std::optional<std::string>& bytes) {
  return bytes && platform::isUtf8(*bytes) ? *bytes : "(null)";
}

std::string folderOf(const std::string& executable) {
  const auto skipSlashes = [](std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
  };
  const std::string path = skipSlashes(executable);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return skipSlashes(path.substr(0, std::max<std::size_t>(slash, 1)));
}

std::string timeStamp(platform::Date date) {
  using std::chrono::floor;
  const auto day = floor<std::chrono::days>(date);
  const std::chrono::year_month_day calendar(day);
  const auto time = floor<seconds>(date - day).count();
  char text[32];
  std::snprintf(text, sizeof(text), "%04d-%02u-%02u %02d:%02d:%02d",
                static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                static_cast<unsigned>(calendar.day()), static_cast<int>(time / 3600),
                static_cast<int>(time / 60 % 60), static_cast<int>(time % 60));
  return text;
}

std::string userOf(const FakeMachine& machine, platform::UserId user) {
  const auto name = machine.users.find(user);
  return name == machine.users.end() ? "user name not found" : textOf(name->second);
}

// The lines that the records of the day must be, sorted.
std::vector<std::string> expectedRecords(const FakeMachine& machine, const Day& day) {
  const seconds length = day.awake + day.asleep;
  const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(day.asleep).count();
  const auto paused = minutes > length.count() ? 0 : minutes;
  std::vector<std::string> lines;
  std::string folder;  // of the process before, where a path may not be read
  for (const Process& process : day.processes) {
    if (process.executable) folder = folderOf(*process.executable);
    lines.push_back(textOf(process.name) + ";;;;" + textOf(folder) + ";" +
                    userOf(machine, process.user) + ";;" + timeStamp(day.begin) + ";" +
                    timeStamp(day.begin + length) + ";" + std::to_string(paused) + ";" +
                    std::to_string(length.count()));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::vector<std::string> writtenRecords() {
  std::vector<std::string> lines;
  for (const auto& entry : std::filesystem::directory_iterator(storage)) {
    const std::string name = entry.path().filename();
    if (name == "processes.list") continue;
    require(name.ends_with(".met") && entry.is_regular_file(), "records have a name of their own");
    lines.push_back(contentsOf(entry.path()));
    require(platform::isUtf8(lines.back()), "a record is UTF-8");
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

void requireRecords(const FakeMachine& machine, const Day& day) {
  const std::vector<std::string> written = writtenRecords();
  if (machine.randomFails) return require(written.empty(), "no name, no record");
  const std::vector<std::string> expected = expectedRecords(machine, day);
  if (machine.digestFails) {
    // The computer's name may then make one that no disk has room for.
    return require(std::includes(expected.begin(), expected.end(), written.begin(), written.end()),
                   "a record tells of a run");
  }
  require(written == expected, "each run has its record, and each record tells its run");
}

void requireList(const Day& day) {
  const std::string path = std::string(storage) + "processes.list";
  require(std::filesystem::exists(path) == day.listWanted, "who asks gets a list");
  if (!day.listWanted) return;
  const std::string list = contentsOf(path);
  std::size_t size = 0;
  for (const Process& process : day.processes) {
    const std::string entry =
        " - [" + textOf(process.name) + "]  started " + timeStamp(day.begin) + "\n";
    require(list.find(entry) != std::string::npos, "every process is in the list");
    size += std::string("#01").size() + entry.size();
  }
  require(list.size() == size, "nothing else is in the list");
}

void meter(Input& input) {
  FakeMachine machine;
  const Day day = dayIn(input);
  furnish(machine, input, day);
  machine.waits.emplace_back([&] { liveThrough(machine, day); });
  const OmbrixConfigurationContract contract;
  ConfigurationManager store(&contract);
  for (const char* key : {"setstoragedirectory", "setlogdirectory", "settemporarydirectory"}) {
    store.addConfiguration(key, storage);
  }
  MeteringManager engine(&store);

  engine.startMetering();

  requireRecords(machine, day);
  requireList(day);
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  ::setenv("TZ", "UTC0", 1);
  // A log without a file keeps its lines.
  ombrix::LogManager::setLogLevel(ombrix::LogLevel::emergency);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  static const FuzzFolder folder;
  Input input(bytes, size);

  meter(input);

  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    require(entry.path().filename() == "records", "nothing is written elsewhere");
  }
  folder.clear();
  return 0;
}
