#include "Tests/Acceptance/Files.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <system_error>

namespace ombrix::tests {

std::string contentsOf(const std::string& path) {
  std::ostringstream contents;
  contents << std::ifstream(path, std::ios::binary).rdbuf();
  return contents.str();
}

void writeFile(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

void replaceFile(const std::string& path, const std::string& contents) {
  writeFile(path + ".new", contents);
  std::filesystem::rename(path + ".new", path);
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

Record parseRecord(const std::string& line) {
  // [^] instead of the dot, which stops at a line feed.
  static const std::regex shape(
      "([^]*);;;;([^;]*);([^;]*);;"
      "(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d);(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d);"
      "(-?\\d+);(\\d+)");
  std::smatch fields;
  if (!std::regex_match(line, fields, shape)) return {line, {}, {}, {}, {}, {}, {}, {}};
  return {line, fields[1], fields[2], fields[3], fields[4], fields[5], fields[6], fields[7]};
}

}  // namespace ombrix::tests
