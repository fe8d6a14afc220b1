#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Tests/Acceptance/Files.h"
#include "Tests/Acceptance/Program.h"

// The agent in a folder of its own. It polls when it starts and whenever something reaches it; the
// tests bring a poll about by asking for its list.

namespace ombrix::tests {

// The settings of a configuration file; what is absent is not in the file.
struct Settings {
  std::optional<std::string> storage;
  std::optional<std::string> temporary;
  std::optional<std::string> log;
  std::optional<std::string> maxSize;
  std::optional<std::string> level;
};
[[nodiscard]] std::string configurationText(const Settings& settings);

// A folder with the agent's default configuration file, and in it folders for all that it writes.
class Home {
 public:
  explicit Home(std::string folder = "/tmp/home", uid_t owner = 0);

  // The settings by which everything lies in this folder, at the log level "info".
  [[nodiscard]] Settings settings() const;
  void configure(const std::string& text) const;

  [[nodiscard]] const std::string& folder() const { return home; }
  [[nodiscard]] std::string storage() const { return home + "/records"; }
  [[nodiscard]] std::string logFile() const { return home + "/log/metering.log"; }

  [[nodiscard]] std::string log() const { return contentsOf(logFile()); }
  [[nodiscard]] std::string list() const { return contentsOf(storage() + "/processes.list"); }
  [[nodiscard]] std::vector<Record> records() const;
  // Those with this name of the process.
  [[nodiscard]] std::vector<Record> recordsOf(const std::string& name) const;

 private:
  std::string home;
};

// An agent that runs in a home, as the user of `launch`, with its words and environment.
class Agent : public Program {
 public:
  explicit Agent(const Home& home, const Launch& launch = ombrix());

  // How many polls it has reported.
  [[nodiscard]] std::size_t polls() const;
  [[nodiscard]] bool waitForPolls(std::size_t count) const;
  [[nodiscard]] bool hasStarted() const { return waitForPolls(1); }
  // True as soon as it sleeps between two polls.
  [[nodiscard]] bool isWaiting() const;

  // Makes it poll, and waits until it has written what came of that. It is told by a datagram of
  // this test's own, because a command would be one more process to be metered.
  [[nodiscard]] bool poll() const;
  // Makes it poll until `condition` holds.
  [[nodiscard]] bool pollUntil(const std::function<bool()>& condition) const;

  // Lets a program of this name begin and end, and the agent see both.
  [[nodiscard]] bool meterProgram(const std::string& name) const;

  // The folder in which its sockets lie; empty when there is none.
  [[nodiscard]] std::string runtimeFolder() const;

  // Ends it by the command and returns its exit status.
  std::optional<int> stop();

 private:
  // Its socket for a notification, the one of its own user's.
  [[nodiscard]] std::string socketOf(const std::string& notification) const;

  uid_t user;
};

}  // namespace ombrix::tests
