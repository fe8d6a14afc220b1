#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Text.h"
#include "Source/CommandLine.h"
#include "Tests/Fuzz/Support/Require.h"

// The command line: arguments as any bytes, NUL between them.

namespace ombrix::tests {

namespace {

using Arguments = std::vector<std::string>;

Arguments split(std::string_view bytes) {
  Arguments arguments;
  for (;;) {
    const std::size_t end = bytes.find('\0');
    arguments.emplace_back(bytes.substr(0, end));
    if (end == std::string_view::npos) return arguments;
    bytes.remove_prefix(end + 1);
  }
}

bool isAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

// How a person reads an argument that holds no letters but plain ones.
std::string plainWord(const std::string& argument) {
  std::string word;
  for (const char c : argument) {
    if (c != '-') word += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return word;
}

std::optional<Command> plainCommand(const std::string& word) {
  if (word == "stop") return Command::stop;
  if (word == "list") return Command::list;
  if (word == "vnum") return Command::printVersionNumber;
  if (word == "v" || word == "version") return Command::printVersion;
  if (word == "prepforupgrade") return Command::prepareForUpgrade;
  return std::nullopt;
}

// The same reading once more, as dull as can be.
CommandLine plainReading(const Arguments& arguments) {
  CommandLine line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string word = plainWord(arguments[i]);
    if (const auto command = plainCommand(word)) {
      line.command = *command;
      return line;
    }
    if (word != "c" && word != "configfile") continue;
    if (++i == arguments.size()) {
      line.command = Command::explainConfigurationOption;
      return line;
    }
    line.configurationFilePath = plainWord(arguments[i]);
  }
  return line;
}

bool same(const CommandLine& one, const CommandLine& other) {
  return one.command == other.command && one.configurationFilePath == other.configurationFilePath;
}

void requireNormalPath(const Arguments& arguments, const CommandLine& line) {
  if (!line.configurationFilePath) return;
  const std::string& path = *line.configurationFilePath;
  require(path.find('-') == std::string::npos, "no dash is left in a path");
  // Dashes go last: bytes that were no text for the dash between them may become a capital.
  if (!std::all_of(arguments.begin(), arguments.end(), platform::isUtf8)) return;
  require(platform::lowercase(path) == path, "no capital is left in a path");
}

// Only the first command counts, and what stands before it.
void requireDeafnessAfterCommand(Arguments arguments, const CommandLine& line) {
  if (line.command == Command::none || line.command == Command::explainConfigurationOption) return;
  for (const char* later : {"stop", "-c", "other.config"}) arguments.emplace_back(later);
  require(same(readCommandLine(arguments), line), "nothing is read after a command");
}

void requireIndifferenceToDashes(Arguments arguments, const CommandLine& line) {
  for (std::string& argument : arguments) argument = "--" + argument + "-";
  require(same(readCommandLine(arguments), line), "dashes around a word change nothing");
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  const Arguments arguments = split({reinterpret_cast<const char*>(bytes), size});

  const ombrix::CommandLine line = ombrix::readCommandLine(arguments);

  requireNormalPath(arguments, line);
  requireDeafnessAfterCommand(arguments, line);
  requireIndifferenceToDashes(arguments, line);
  if (std::all_of(arguments.begin(), arguments.end(), isAscii)) {
    require(same(plainReading(arguments), line), "plain words mean what they say");
  }
  return 0;
}
