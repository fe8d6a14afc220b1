#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Platform/FileDescriptor.h"

// Real programs, started by a test and ended with it.

namespace ombrix::tests {

// A user without a password entry, and another.
inline constexpr uid_t stranger = 12345;
inline constexpr uid_t otherStranger = 23456;

// How a program is started.
struct Launch {
  std::string executable;
  std::vector<std::string> arguments;  // the program's own name first
  std::string directory = "/tmp";
  std::optional<uid_t> user = std::nullopt;    // this test's own user where there is none
  std::vector<std::string> environment = {};   // beside a few that every program gets
  std::function<void()> beforeExec = nullptr;  // in the new process, still as the test's user
  bool machinesZone = false;                   // instead of one in which it is noon
};

// The agent's executable with these words after its name.
[[nodiscard]] Launch ombrix(const std::vector<std::string>& words = {});
// The same, by an ordinary user.
[[nodiscard]] Launch ombrixOf(uid_t user, const std::vector<std::string>& words = {});

// A child process that has begun its program. Its standard output and error are kept; its standard
// input is a pipe that ends with closeInput(). Killed and buried with the object.
class Program {
 public:
  explicit Program(const Launch& launch);
  ~Program();
  Program(Program&& other) noexcept;
  Program& operator=(Program&& other) = delete;

  [[nodiscard]] pid_t id() const { return processId; }
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string errors() const;
  void closeInput() { input.close(); }

  void signal(int signalNumber) const;
  [[nodiscard]] bool isRunning();
  // The letter of its state in /proc/PID/stat.
  [[nodiscard]] char state() const;

  // The exit status, 128 + N after signal N, and nothing when it outlives the deadline.
  std::optional<int> waitForExit();
  // Ends it at once and waits until it is gone.
  void kill();

 private:
  pid_t processId = -1;
  std::optional<int> exitStatus;
  platform::FileDescriptor input;
  platform::FileDescriptor outputFile;
  platform::FileDescriptor errorFile;
};

// What came of a program that ended by itself.
struct Outcome {
  std::optional<int> status;
  std::string output;
  std::string errors;
};
[[nodiscard]] Outcome run(const Launch& launch);

// A program that only waits, by the path `executable`, which is made. Its command name is the
// beginning of the file's name.
[[nodiscard]] Launch idler(const std::string& executable,
                           const std::vector<std::string>& words = {});

// Gives up everything but the rights of `user`; a process that cannot ends here.
void becomeUser(uid_t user);

// Carries out `deed` in a child process of `user`; true when the deed returned true.
[[nodiscard]] bool asUser(uid_t user, const std::function<bool()>& deed);

}  // namespace ombrix::tests
