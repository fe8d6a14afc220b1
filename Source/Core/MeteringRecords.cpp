#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <tuple>

#include "Platform/FileDescriptor.h"
#include "Platform/SystemLog.h"
#include "Source/Core/MeteringManager.h"
#include "Utilities/DateFormatter.h"
#include "Utilities/FileUtils.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Paths.h"
#include "Utilities/Text.h"

// The files that MeteringManager writes: a record for each finished run, and the list on request.

namespace ombrix {

namespace {

double wallClockSeconds(const ProcessData& record) {
  if (!record.startTime() || !record.stopTime()) return 0.0;
  return std::chrono::duration<double>(*record.stopTime() - *record.startTime()).count();
}

// Drops a pause that cannot be true. Minutes are held against seconds on purpose: only a pause of
// more minutes than the run has seconds is beyond doubt.
void dropImplausiblePause(ProcessData& record) {
  const double wallSeconds = wallClockSeconds(record);
  if (static_cast<double>(record.pausedMinutes()) <= wallSeconds) return;
  std::array<char, 400> message{};  // a double has up to 309 digits before its point
  std::ignore = std::snprintf(message.data(), message.size(), "Diff: %f\tPaused: %i", wallSeconds,
                              static_cast<std::int32_t>(record.pausedMinutes()));
  platform::systemLog(message.data());
  record.setPausedMinutes(0);
}

// No field is quoted: a ";" in a name is the reader's to bear. The empty fields belong to it.
std::string recordLine(const ProcessData& record, const DateFormatter& formatter,
                       std::uint64_t runTimeSeconds) {
  return textOrNull(record.processName()) + ";;;;" + textOrNull(record.path()) + ";" +
         textOrNull(record.userName()) + ";;" + textOrNull(formatter.string(record.startTime())) +
         ";" + textOrNull(formatter.string(record.stopTime())) + ";" +
         std::to_string(static_cast<std::int32_t>(record.pausedMinutes())) + ";" +
         std::to_string(runTimeSeconds);
}

std::string listLine(std::size_t number, const ProcessData& record,
                     const DateFormatter& formatter) {
  const std::string digits = std::to_string(number);
  std::string line = digits.size() < 2 ? "#0" : "#";
  line.append(digits).append(" - [").append(textOrNull(record.processName()));
  line.append("]  started ").append(textOrNull(formatter.string(record.startTime())));
  return line.append("\n");
}

}  // namespace

std::uint64_t MeteringManager::processRunTimeInSeconds(const ProcessData& record) const {
  const std::uint64_t delta = record.stopTick() - record.startTick();
  return static_cast<std::uint64_t>(static_cast<double>(delta) * ticksPerNanoSec / 1000000000.0);
}

void MeteringManager::writeMeteringData(const ProcessSet& records) const {
  if (records.empty()) return;
  const DateFormatter formatter(DateFormatter::Pattern::timeStamp);
  for (const auto& record : records) {
    if (!writeRecord(*record, formatter)) return;
  }
}

// False when no file name could be had, which ends the whole set.
bool MeteringManager::writeRecord(ProcessData& record, const DateFormatter& formatter) const {
  dropImplausiblePause(record);
  const std::string line = recordLine(record, formatter, processRunTimeInSeconds(record));

  const std::optional<std::string> name = FileUtils::generateUniqueFilename(".met");
  if (!name) {
    LogManager::writeLog("Could not generate filename. Met file not saved.", LogLevel::error);
    return false;
  }
  const auto fullPath = appendingPathComponent(config->getConfiguration("StorageDirectory"), *name);
  LogManager::writeLog("Writing met file [" + textOrNull(fullPath) + "]", LogLevel::debug);
  if (!fullPath || !FileUtils::writeNewFile(*fullPath, line)) {
    LogManager::writeLog("Could not write met file [" + textOrNull(fullPath) + "]",
                         LogLevel::error);
  }
  return true;
}

void MeteringManager::receiveListNotification() {
  const auto path =
      appendingPathComponent(config->getConfiguration("StorageDirectory"), "processes.list");
  LogManager::writeLog(
      "Trying to write a list with all active processes into [" + textOrNull(path) + "].",
      LogLevel::info);

  platform::FileDescriptor file;
  if (path) {
    FileUtils::createEmptyFile(*path);
    file = FileUtils::openForAppending(*path);
  }
  if (!file.valid()) {
    LogManager::writeLog("Failed to open file for writing [" + textOrNull(path) + "].",
                         LogLevel::error);
    return;
  }

  std::string lines;
  const DateFormatter formatter(DateFormatter::Pattern::timeStamp);
  std::size_t number = 0;
  if (procMan) {
    for (const auto& record : procMan->getAllProcessesAsStopped()) {
      lines += listLine(++number, *record, formatter);
    }
  }
  if (!FileUtils::append(file, lines)) {
    LogManager::writeLog("Failed to write the whole list into [" + *path + "].", LogLevel::error);
  }
}

}  // namespace ombrix
