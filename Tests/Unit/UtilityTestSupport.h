#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/FakePlatform/FakeMachine.h"
#include "Utilities/Configuration/ConfigurationProtocol.h"
#include "Utilities/Containers/KeyValuePair.h"

// What the tests of the utilities need of the real file system, which the scripted machine does not
// imitate: a folder of their own, users without root's power, disks without room; and a contract.

namespace ombrix::tests {

// A fresh folder, readable by every user. The working directory while it lives; removed afterwards
// with all that it holds.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // Absolute, without links, without a final "/".
  [[nodiscard]] const std::string& path() const { return folder; }

 private:
  std::string before;
  std::string folder;
};

// The usual fixture: a folder to work in and a machine that stands still.
class ScratchFolderTest : public ::testing::Test {
 protected:
  ScratchFolder folder;
  FakeMachine machine;
};

// Takes from root the right to open any file, while it lives. Nothing to do for other users.
class WithoutPrivileges {
 public:
  WithoutPrivileges();
  ~WithoutPrivileges();
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

 private:
  uid_t before;
};

// No file grows beyond `bytes` while it lives: writes end short, as they do on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes);
  ~FileSizeLimit();
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before{};
  void (*handlerBefore)(int) = nullptr;
};

// Ends the whole test when a call that may not wait does: a hang is a failure, and not a wait for
// whoever looks at the screen first.
class Watchdog {
 public:
  Watchdog();
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
};

// A contract whose answers a test fills in, and which notes what it was asked.
struct ScriptedContract : ConfigurationProtocol {
  std::vector<std::string> required;
  std::vector<std::string> optional;
  std::vector<KeyValuePair> aliases;
  std::vector<KeyValuePair> defaults;
  mutable std::vector<std::string> asked;

  [[nodiscard]] std::vector<std::string> getRequiredSettings() const override;
  [[nodiscard]] std::vector<std::string> getOptionalSettings() const override;
  [[nodiscard]] std::vector<KeyValuePair> getAliases() const override;
  [[nodiscard]] std::vector<KeyValuePair> getDefaults() const override;
};

void writeFile(const std::string& path, std::string_view text);

// The bytes of a file; fails the test when there is none.
[[nodiscard]] std::string contentsOf(const std::string& path);

// The names in a folder, sorted.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& folder);

// True for anything that bears this name, a link that leads nowhere included.
[[nodiscard]] bool somethingAt(const std::string& path);

// The zone of every date that is formatted from now on, in the notation of tzset(3).
void setTimeZone(const char* zone);

}  // namespace ombrix::tests
