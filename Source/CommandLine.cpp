#include "Source/CommandLine.h"

#include <array>
#include <string_view>
#include <utility>

#include "Platform/Text.h"
#include "Utilities/Text.h"

namespace ombrix {

namespace {

constexpr std::array<std::pair<std::string_view, Command>, 6> commandWords = {{
    {"stop", Command::stop},
    {"vnum", Command::printVersionNumber},
    {"v", Command::printVersion},
    {"version", Command::printVersion},
    {"list", Command::list},
    {"prepforupgrade", Command::prepareForUpgrade},
}};

Command commandNamed(std::string_view word) {
  for (const auto& [name, command] : commandWords) {
    if (word == name) return command;
  }
  return Command::none;
}

}  // namespace

CommandLine readCommandLine(const std::vector<std::string>& arguments) {
  CommandLine commandLine;
  bool expectPath = false;
  for (const std::string& argument : arguments) {
    std::string word = removingAll(platform::lowercase(argument), "-");
    if (expectPath) {
      commandLine.configurationFilePath = std::move(word);
      expectPath = false;
      continue;
    }
    commandLine.command = commandNamed(word);
    if (commandLine.command != Command::none) return commandLine;
    expectPath = word == "c" || word == "configfile";
  }
  if (expectPath) commandLine.command = Command::explainConfigurationOption;
  return commandLine;
}

}  // namespace ombrix
