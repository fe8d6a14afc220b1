#include "Platform/Linux/RuntimeDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <utility>

namespace ombrix::platform {

namespace {

constexpr const char* machineDirectory = "/run/ombrix";
constexpr const char* userDirectories = "/run/user";
// Not $TMPDIR: root must find the directory without knowing a user's environment.
constexpr const char* temporaryFolder = "/tmp";
constexpr const char* temporaryPrefix = "ombrix-";

// Enough for every user of a machine, and no work for whoever fills a folder with names.
constexpr std::size_t mostNamesRead = 4096;

struct DirectoryCloser {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

std::string inRunUser(uid_t user) {
  return std::string(userDirectories) + "/" + std::to_string(user) + "/ombrix";
}

std::string inTemporaryFolder(uid_t user) {
  return std::string(temporaryFolder) + "/" + temporaryPrefix + std::to_string(user);
}

// The places where this user's own directory may be, best first.
std::vector<std::string> ownCandidates() {
  const uid_t user = ::geteuid();
  std::vector<std::string> candidates;
  const char* const session = std::getenv("XDG_RUNTIME_DIR");
  if (session != nullptr && session[0] == '/') {
    candidates.push_back(std::string(session) + "/ombrix");
  }
  candidates.push_back(inRunUser(user));
  candidates.push_back(inTemporaryFolder(user));
  return candidates;
}

std::string mountOf(const FileDescriptor& place) {
  std::ifstream information("/proc/self/fdinfo/" + std::to_string(place.get()));
  for (std::string field, value; information >> field >> value;) {
    if (field == "mnt_id:") return value;
  }
  return {};
}

// What the kernel itself knows; a file system is not asked (statx(2)).
bool onSameDevice(const FileDescriptor& place, const char* folder) {
  struct statx here {};
  struct statx there {};
  return ::statx(place.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, 0, &here) == 0 &&
         ::statx(AT_FDCWD, folder, AT_STATX_DONT_SYNC, 0, &there) == 0 &&
         here.stx_dev_major == there.stx_dev_major && here.stx_dev_minor == there.stx_dev_minor;
}

// True when a program answers for what lies there, as any user's may (fuse(4)). It may never do so:
// whoever asks the file system itself of which kind it is already waits.
bool isServedByProgram(const FileDescriptor& place) {
  // Only root mounts over these two, and every mount of a program has a device of its own. That
  // saves most places the long look at the table.
  if (onSameDevice(place, "/run") || onSameDevice(place, temporaryFolder)) return false;
  const std::string beginning = mountOf(place) + " ";
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    // No blank of a path is written as one (proc(5)), so that this dash is the one before the kind.
    if (line.starts_with(beginning)) return line.find(" - fuse") != std::string::npos;
  }
  return true;  // it has been taken away in the meantime
}

// Opens the directory after a look at it from outside, through names alone.
FileDescriptor openDirectory(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const FileDescriptor parent(
      ::open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!parent.valid() || isServedByProgram(parent)) return {};
  const FileDescriptor place(::openat(parent.get(), path.c_str() + slash + 1,
                                      O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!place.valid() || isServedByProgram(place)) return {};
  return FileDescriptor(::openat(place.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// The directory at `path` if it belongs to `owner` and nobody else can write to it.
std::optional<RuntimeDirectory> open(const std::string& path, uid_t owner) {
  FileDescriptor descriptor = openDirectory(path);
  struct stat status {};
  if (!descriptor.valid() || ::fstat(descriptor.get(), &status) != 0) return std::nullopt;
  if (status.st_uid != owner || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return std::nullopt;
  const bool trusted = owner == 0 || owner == ::geteuid();
  return RuntimeDirectory{std::move(descriptor), owner, trusted};
}

bool isWritable(const RuntimeDirectory& directory) {
  return ::faccessat(directory.descriptor.get(), ".", W_OK, AT_EACCESS) == 0;
}

// True when nobody else can replace what this user makes in the directory at `path`. Root, for one,
// may have been given the session of another user by sudo(8).
bool isSafeParent(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
  const bool ours = status.st_uid == 0 || status.st_uid == ::geteuid();
  const bool othersWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return ours && (!othersWrite || (status.st_mode & S_ISVTX) != 0);
}

std::optional<RuntimeDirectory> openOrMake(const std::string& path, mode_t mode) {
  if (!isSafeParent(path.substr(0, path.rfind('/')))) return std::nullopt;
  const bool made = ::mkdir(path.c_str(), mode) == 0;
  if (!made && errno != EEXIST) return std::nullopt;
  auto directory = open(path, ::geteuid());
  // The umask of whoever started the agent is not to close the machine's directory to its users.
  if (made && directory) ::fchmod(directory->descriptor.get(), mode);
  // It may be on a file system that is mounted read-only.
  if (directory && !isWritable(*directory)) return std::nullopt;
  return directory;
}

std::optional<uid_t> userNamed(std::string_view digits) {
  uid_t user = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), user);
  if (error != std::errc() || stop != digits.data() + digits.size()) return std::nullopt;
  return user;
}

// Where the agents of other users have their directories, with the owners that these must have.
std::vector<std::pair<std::string, uid_t>> directoriesOfOtherUsers() {
  std::vector<std::pair<std::string, uid_t>> found;
  const auto collect = [&found](const char* folder, std::string_view prefix, auto pathOf) {
    const FileDescriptor descriptor(::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const std::string& name : namesIn(descriptor, mostNamesRead)) {
      if (!name.starts_with(prefix)) continue;
      const auto user = userNamed(std::string_view(name).substr(prefix.size()));
      if (user && *user != ::geteuid()) found.emplace_back(pathOf(*user), *user);
    }
  };
  collect(userDirectories, "", inRunUser);
  collect(temporaryFolder, temporaryPrefix, inTemporaryFolder);
  return found;
}

class Search {
 public:
  void add(const std::string& path, uid_t owner) {
    if (seen.insert(path).second) add(open(path, owner));
  }
  void add(std::optional<RuntimeDirectory> directory) {
    if (directory) found.push_back(std::move(*directory));
  }
  std::vector<RuntimeDirectory> take() { return std::move(found); }

 private:
  std::set<std::string> seen;
  std::vector<RuntimeDirectory> found;
};

}  // namespace

std::optional<RuntimeDirectory> ownRuntimeDirectory() {
  constexpr mode_t visibleToAll = 0755;
  constexpr mode_t privateToUser = 0700;
  if (auto directory = openOrMake(machineDirectory, visibleToAll)) return directory;
  if (auto directory = machineAgentDirectory();
      directory && directory->owner == ::geteuid() && isWritable(*directory)) {
    return directory;
  }
  for (const std::string& candidate : ownCandidates()) {
    if (auto directory = openOrMake(candidate, privateToUser)) return directory;
  }
  return std::nullopt;
}

std::optional<RuntimeDirectory> machineAgentDirectory() {
  struct stat status {};
  if (!open(machineDirectory, 0) || ::lstat(machineAgentPath, &status) != 0) return std::nullopt;
  auto directory = open(machineAgentPath, status.st_uid);
  if (directory) directory->ofMachineAgent = true;
  return directory;
}

std::vector<RuntimeDirectory> searchedRuntimeDirectories() {
  Search search;
  const bool isRoot = ::geteuid() == 0;
  struct stat machine {};
  const bool machineHasOne = ::lstat(machineDirectory, &machine) == 0;
  const bool machineTrusted = machine.st_uid == 0 || machine.st_uid == ::geteuid();
  if (machineHasOne && machineTrusted) search.add(machineDirectory, machine.st_uid);
  for (const std::string& path : ownCandidates()) search.add(path, ::geteuid());
  search.add(machineAgentDirectory());
  if (!isRoot) return search.take();

  if (machineHasOne && !machineTrusted) search.add(machineDirectory, machine.st_uid);
  for (const auto& [path, owner] : directoriesOfOtherUsers()) search.add(path, owner);
  return search.take();
}

std::vector<std::string> namesIn(const FileDescriptor& directory, std::size_t limit) {
  std::vector<std::string> names;
  // A descriptor of its own, because closedir(3) ends the one that it was given.
  FileDescriptor reading(::openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, DirectoryCloser> stream(reading.valid() ? ::fdopendir(reading.get())
                                                                     : nullptr);
  if (!stream) return names;
  std::ignore = reading.release();
  while (names.size() < limit) {
    const dirent* const entry = ::readdir(stream.get());
    if (entry == nullptr) break;
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      names.emplace_back(entry->d_name);
    }
  }
  return names;
}

}  // namespace ombrix::platform
