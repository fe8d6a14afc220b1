#include "Utilities/Logging/LogManager.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <tuple>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/FileDescriptor.h"
#include "Platform/SystemLog.h"
#include "Utilities/DateFormatter.h"
#include "Utilities/FileUtils.h"
#include "Utilities/Text.h"

namespace ombrix {

static std::uint32_t activeLogLevel = LogLevel::warning;
static std::uint32_t maxAllowedSize = 524288;
static std::optional<std::string> logFileFullPath;
static std::optional<std::vector<std::string>> storedLogs;

namespace {

constexpr std::array<std::string_view, 9> levelNames = {
    "Emergency", "Alert", "Critical", "Error", "Warning", "Notice", "Info", "Debug", "Debug+"};

std::string logLine(std::string_view message, std::uint32_t level) {
  std::string line =
      DateFormatter(DateFormatter::Pattern::timeStamp).string(platform::currentDate());
  line.append(" - [").append(LogManager::logLevelToString(level)).append("]\t");
  return line.append(message).append("\n");
}

}  // namespace

std::uint32_t LogManager::convertLogLevel(std::string_view word) {
  if (word == "error") return LogLevel::error;
  if (word == "warning") return LogLevel::warning;
  if (word == "info") return LogLevel::info;
  if (word == "trace") return LogLevel::debug;
  if (word == "verbose") return LogLevel::debugPlus;
  return LogLevel::emergency;
}

void LogManager::setLogLevel(std::uint32_t level) { activeLogLevel = level; }

void LogManager::setLogFilePath(const std::optional<std::string>& directory) {
  logFileFullPath = textOrNull(directory) + "metering.log";
  if (!storedLogs) return;
  for (const std::string& line : *storedLogs) {
    if (!writeLogToFile(line)) {
      platform::systemLog("LogManager::setLogFilePath - Failed writing log to [" +
                          *logFileFullPath + "]");
    }
  }
  storedLogs.reset();
}

void LogManager::setMaxAllowedLogSizeInBytes(std::uint32_t bytes) { maxAllowedSize = bytes; }

std::string_view LogManager::logLevelToString(std::uint32_t level) {
  if (level >= levelNames.size()) return "Log ";
  return levelNames[level];
}

void LogManager::logSizeTrimmer() {
  struct stat status {};
  // Only a file of our own making is moved; a link or a pipe in its place is not ours.
  if (!logFileFullPath || ::lstat(logFileFullPath->c_str(), &status) != 0) return;
  if (!S_ISREG(status.st_mode)) return;
  if (static_cast<std::uint64_t>(status.st_size) <= maxAllowedSize) return;
  const std::string old = *logFileFullPath + ".old";
  ::unlink(old.c_str());
  FileUtils::moveItem(*logFileFullPath, old);
}

bool LogManager::writeLogToFile(std::string_view line) {
  platform::FileDescriptor file;
  if (logFileFullPath) {
    if (!FileUtils::fileExistsAndReadable(*logFileFullPath)) {
      FileUtils::createFileIfMissing(*logFileFullPath);
    }
    file = FileUtils::openForAppending(*logFileFullPath);
  }
  if (!file.valid()) {
    platform::systemLog("Failed to open file for writing.");
    return false;
  }
  // A full disk costs the line; the system log has it.
  std::ignore = FileUtils::append(file, line);
  return true;
}

void LogManager::writeLog(std::string_view message, std::uint32_t level) {
  if (level > activeLogLevel) return;
  platform::systemLog(message);
  std::string line = logLine(message, level);
  if (!logFileFullPath) {
    if (!storedLogs) storedLogs.emplace();
    storedLogs->push_back(std::move(line));
    return;
  }
  writeLogToFile(line);
  logSizeTrimmer();
}

}  // namespace ombrix
