#include "Tests/Unit/UtilityTestSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ombrix::tests {

namespace {

// A test that cannot have its surroundings must not go on: it might write where it should not.
void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace

ScratchFolder::ScratchFolder() : before(std::filesystem::current_path()) {
  std::string name = std::filesystem::temp_directory_path() / "ombrix-XXXXXX";
  require(::mkdtemp(name.data()) != nullptr, "no temporary folder");
  folder = std::filesystem::canonical(name);
  require(::chmod(folder.c_str(), 0755) == 0, "no mode for the temporary folder");
  std::filesystem::current_path(folder);
}

ScratchFolder::~ScratchFolder() {
  std::error_code error;
  std::filesystem::current_path(before, error);
  std::filesystem::remove_all(folder, error);
}

WithoutPrivileges::WithoutPrivileges() : before(::geteuid()) {
  constexpr uid_t nobody = 65534;
  if (before == 0) require(::seteuid(nobody) == 0, "root cannot become another user");
}

WithoutPrivileges::~WithoutPrivileges() {
  if (::geteuid() != before && ::seteuid(before) != 0) std::abort();
}

FileSizeLimit::FileSizeLimit(rlim_t bytes) {
  // Without this the kernel ends the process that writes beyond the limit (setrlimit(2)).
  handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
  require(::getrlimit(RLIMIT_FSIZE, &before) == 0, "no limits");
  const rlimit limit{bytes, before.rlim_max};
  require(::setrlimit(RLIMIT_FSIZE, &limit) == 0, "no limit of file sizes");
}

FileSizeLimit::~FileSizeLimit() {
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handlerBefore);
}

Watchdog::Watchdog() { ::alarm(30); }

Watchdog::~Watchdog() { ::alarm(0); }

std::vector<std::string> ScriptedContract::getRequiredSettings() const {
  asked.emplace_back("required");
  return required;
}

std::vector<std::string> ScriptedContract::getOptionalSettings() const {
  asked.emplace_back("optional");
  return optional;
}

std::vector<KeyValuePair> ScriptedContract::getAliases() const {
  asked.emplace_back("aliases");
  return aliases;
}

std::vector<KeyValuePair> ScriptedContract::getDefaults() const {
  asked.emplace_back("defaults");
  return defaults;
}

void writeFile(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  require(file.good(), "no room for a test's file");
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool somethingAt(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

void setTimeZone(const char* zone) {
  ::setenv("TZ", zone, 1);
  ::tzset();
}

}  // namespace ombrix::tests
