#pragma once

#include <string>
#include <vector>

// Files as the tests look at them.

namespace ombrix::tests {

// The bytes of a file; none when it cannot be read.
[[nodiscard]] std::string contentsOf(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);
// In one step, so that nobody reads half of it.
void replaceFile(const std::string& path, const std::string& contents);
// The names in a folder; none when there is no such folder.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& folder);
[[nodiscard]] std::vector<std::string> linesOf(const std::string& text);
[[nodiscard]] bool contains(const std::string& text, const std::string& part);
[[nodiscard]] std::size_t occurrences(const std::string& text, const std::string& part);

// What a record file tells of a run.
struct Record {
  std::string line;
  std::string name;
  std::string path;
  std::string user;
  std::string start;
  std::string stop;
  std::string pausedMinutes;
  std::string seconds;
};
// Takes a line apart; a name may hold anything, the other fields no ";". A line that is no record
// yields only itself.
[[nodiscard]] Record parseRecord(const std::string& line);

}  // namespace ombrix::tests
