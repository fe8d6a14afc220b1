#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ombrix {

enum class Command {
  none,
  stop,
  printVersionNumber,
  printVersion,
  list,
  prepareForUpgrade,
  explainConfigurationOption,  // the option that wants a path came last
};

// What the arguments ask for: a command that ends the process, or none and the agent is to run.
struct CommandLine {
  Command command = Command::none;
  std::optional<std::string> configurationFilePath;
};

// Reads the arguments in their order, the program's own name among them, up to the first command.
// Every argument loses its capitals and all its dashes first, a path no less than a word.
[[nodiscard]] CommandLine readCommandLine(const std::vector<std::string>& arguments);

}  // namespace ombrix
