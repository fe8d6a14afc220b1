#pragma once

#include <map>
#include <optional>
#include <string>

#include "Platform/ProcessList.h"
#include "Tests/Fuzz/Support/Input.h"

namespace ombrix::tests {

struct MadeUpProcess {
  enum class Kind : std::uint8_t {
    ordinary,
    ofOlderKernel,  // which does not say whether a process is a thread of its own
    dead,
    thread,
    threadOfOlderKernel,
    vanished,  // between the listing and the reading of its files
    garbled,   // its status file holds anything
  };

  // Whether it belongs in the process table.
  [[nodiscard]] bool counts() const;
  // The path of its executable, nothing where that may not be read.
  [[nodiscard]] std::optional<std::string> executableAsRead() const;
  // Makes its files in the directory `place`, which ends in "/".
  void write(const std::string& place) const;

  Kind kind = Kind::ordinary;
  std::string name;
  platform::UserId user = 0;
  std::string garble;
  enum class Executable : std::uint8_t { present, deleted, none, unreadable };
  Executable executable = Executable::present;
  std::string path;
};

[[nodiscard]] MadeUpProcess processIn(Input& input);

// Gives this process a machine of its own whose /proc lists itself and nothing else, and can be
// written to. Where the kernel gives it none, ends it as a skipped test.
void replaceProc();

// The processes in that /proc: this one, two more that are always there, and those that are added.
class MadeUpProc {
 public:
  MadeUpProc();
  ~MadeUpProc();
  MadeUpProc(const MadeUpProc&) = delete;
  MadeUpProc& operator=(const MadeUpProc&) = delete;

  // Lets processes come and go as the input wants it.
  void change(Input& input);

  [[nodiscard]] const std::map<platform::ProcessId, MadeUpProcess>& listed() const { return all; }

 private:
  void add(platform::ProcessId id, const MadeUpProcess& process);
  void remove(platform::ProcessId id);

  std::map<platform::ProcessId, MadeUpProcess> all;
};

}  // namespace ombrix::tests
