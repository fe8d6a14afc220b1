#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "Tests/FakePlatform/FakeMachine.h"
#include "Tests/Fuzz/Support/FuzzFolder.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Logging/LogManager.h"

// A log that begins as any file, or as something else in its place, and goes on with any messages
// under changing levels and limits: what is in it afterwards, and in the copy that is moved aside.

namespace ombrix::tests {

namespace {

constexpr const char* logName = "metering.log";
constexpr const char* oldName = "metering.log.old";
constexpr const char* victimName = "victim";
constexpr const char* victimText = "somebody else's";

// What bears a name: nothing, an ordinary file of our own, or what is not to be written to.
enum class Kind : std::uint8_t { nothing, file, secondNameOfVictim, linkToVictim, folder };

struct Place {
  Kind kind = Kind::nothing;
  std::string contents;
};

bool isFile(Kind kind) { return kind == Kind::file || kind == Kind::secondNameOfVictim; }

// What the log should be, by the rules alone.
class LogModel {
 public:
  LogModel(Place logPlace, Place oldPlace)
      : logPlace(std::move(logPlace)), oldPlace(std::move(oldPlace)) {}

  void write(const std::string& line) {
    if (logPlace.kind == Kind::nothing) logPlace = {Kind::file, ""};
    if (logPlace.kind == Kind::file) logPlace.contents += line;
    trim();
  }

  void trim() {
    if (!isFile(logPlace.kind) || logPlace.contents.size() <= limit) return;
    if (oldPlace.kind == Kind::folder) return;
    oldPlace = logPlace;
    logPlace = {};
  }

  [[nodiscard]] const Place& log() const { return logPlace; }
  [[nodiscard]] const Place& old() const { return oldPlace; }
  std::size_t limit = 524288;
  std::uint32_t level = LogLevel::warning;

 private:
  Place logPlace;
  Place oldPlace;
};

void put(const Place& place, const char* name) {
  switch (place.kind) {
    case Kind::nothing:
      return;
    case Kind::file:
      return writeFile(name, place.contents);
    case Kind::secondNameOfVictim:
      return std::filesystem::create_hard_link(victimName, name);
    case Kind::linkToVictim:
      return std::filesystem::create_symlink(victimName, name);
    case Kind::folder:
      std::filesystem::create_directory(name);
  }
}

void requireAt(const Place& place, const char* name) {
  namespace fs = std::filesystem;
  const fs::file_status status = fs::symlink_status(name);
  if (place.kind == Kind::nothing) return require(!fs::exists(status), "nothing is left there");
  if (place.kind == Kind::folder) return require(fs::is_directory(status), "a folder stays one");
  if (place.kind == Kind::linkToVictim) return require(fs::is_symlink(status), "a link stays one");
  require(fs::is_regular_file(status) && contentsOf(name) == place.contents,
          "the file holds what was logged and what was there before");
}

Place placeIn(Input& input) {
  Place place{static_cast<Kind>(input.choice(5)), ""};
  if (place.kind == Kind::file) place.contents = input.text();
  if (place.kind == Kind::secondNameOfVictim) place.contents = victimText;
  return place;
}

void log(Input& input, LogModel& model) {
  const std::uint32_t level = input.byte() % 12;
  const std::string message = input.text();
  LogManager::writeLog(message, level);
  if (level > model.level) return;
  model.write("2024-03-01 10:00:00 - [" + std::string(LogManager::logLevelToString(level)) + "]\t" +
              message + "\n");
}

void doOneThing(Input& input, LogModel& model) {
  switch (input.choice(6)) {
    case 0:
      model.level = input.byte() % 12;
      return LogManager::setLogLevel(model.level);
    case 1:
      model.limit = input.number<std::uint16_t>();
      return LogManager::setMaxAllowedLogSizeInBytes(static_cast<std::uint32_t>(model.limit));
    case 2:
      model.trim();
      return LogManager::logSizeTrimmer();
    default:
      return log(input, model);
  }
}

void keepLog(Input& input) {
  constexpr int mostSteps = 32;
  LogModel model(placeIn(input), placeIn(input));
  writeFile(victimName, victimText);
  put(model.log(), logName);
  put(model.old(), oldName);
  LogManager::setLogLevel(model.level);
  LogManager::setMaxAllowedLogSizeInBytes(static_cast<std::uint32_t>(model.limit));

  for (int step = 0; step < mostSteps && !input.empty(); ++step) doOneThing(input, model);

  requireAt(model.log(), logName);
  requireAt(model.old(), oldName);
  require(contentsOf(victimName) == victimText, "what is somebody else's stays as it was");
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  ::setenv("TZ", "UTC0", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  static const FuzzFolder folder;
  const FakeMachine machine;
  ombrix::LogManager::setLogFilePath(folder.path());
  Input input(bytes, size);

  keepLog(input);

  folder.clear();
  return 0;
}
