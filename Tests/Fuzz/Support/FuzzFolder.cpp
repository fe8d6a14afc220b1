#include "Tests/Fuzz/Support/FuzzFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "Tests/Fuzz/Support/Require.h"

namespace ombrix::tests {

namespace {

std::string temporaryFolder() {
  const char* const chosen = std::getenv("TMPDIR");
  if (chosen != nullptr) return chosen;
  return std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
}

}  // namespace

FuzzFolder::FuzzFolder() : before(std::filesystem::current_path()) {
  std::string name = temporaryFolder() + "/ombrix-fuzz-XXXXXX";
  require(::mkdtemp(name.data()) != nullptr, "a folder can be made");
  folder = std::filesystem::canonical(name).string() + "/";
  std::filesystem::current_path(folder);
}

FuzzFolder::~FuzzFolder() {
  std::error_code error;
  std::filesystem::current_path(before, error);
  std::filesystem::remove_all(folder, error);
}

void FuzzFolder::clear(const std::string& kept) const {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().filename() != kept) std::filesystem::remove_all(entry.path());
  }
}

void writeFile(const std::string& path, const std::string& contents) {
  std::ofstream file(path, std::ios::binary);
  file << contents;
  file.close();
  require(file.good(), "a file can be written");
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  require(file.is_open(), "the file is there");
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace ombrix::tests
