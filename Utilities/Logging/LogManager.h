#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The agent's one logger. An accepted message goes bare to the system log and, as a line with time
// and level, to the file "metering.log". Until the file's directory is known, lines are kept in
// memory. No failure here ends the process or reaches the caller.

namespace ombrix {

// Severity; the lower, the more severe. A message passes when its level is at most the active one.
namespace LogLevel {
inline constexpr std::uint32_t emergency = 0;
inline constexpr std::uint32_t alert = 1;
inline constexpr std::uint32_t critical = 2;
inline constexpr std::uint32_t error = 3;
inline constexpr std::uint32_t warning = 4;
inline constexpr std::uint32_t notice = 5;
inline constexpr std::uint32_t info = 6;
inline constexpr std::uint32_t debug = 7;
inline constexpr std::uint32_t debugPlus = 8;
}  // namespace LogLevel

class LogManager {
 public:
  LogManager() = delete;

  // The level of a configuration word: "error", "warning", "info", "trace" or "verbose", with this
  // case; emergency for any other word.
  [[nodiscard]] static std::uint32_t convertLogLevel(std::string_view word);

  // Any number is taken; initially warning.
  static void setLogLevel(std::uint32_t level);

  // Starts logging to `directory` followed directly by "metering.log" (so the directory ends in
  // "/"), and writes the lines kept so far. May be called again to move on to another file.
  static void setLogFilePath(const std::optional<std::string>& directory);

  // A file that has grown beyond this many bytes is moved aside; initially 512 KiB.
  static void setMaxAllowedLogSizeInBytes(std::uint32_t bytes);

  // The name of a level in the file; "Log " for a number that is none.
  [[nodiscard]] static std::string_view logLevelToString(std::uint32_t level);

  // Moves a log file beyond the allowed size to the same path with ".old" added, over the last one.
  static void logSizeTrimmer();

  // Appends one finished line to the file. False when the file could not be opened.
  static bool writeLogToFile(std::string_view line);

  // Logs one message, which is not escaped, under a level of LogLevel.
  static void writeLog(std::string_view message, std::uint32_t level);
};

}  // namespace ombrix
