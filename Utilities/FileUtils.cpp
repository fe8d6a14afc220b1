#include "Utilities/FileUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>
#include <tuple>

#include "Platform/Clock.h"
#include "Platform/Digest.h"
#include "Platform/FileDescriptor.h"
#include "Platform/HostName.h"
#include "Platform/RandomNumber.h"
#include "Platform/SystemLog.h"
#include "Platform/Text.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Paths.h"
#include "Utilities/Text.h"

namespace ombrix {

namespace {

using platform::FileDescriptor;

constexpr mode_t fileMode = 0666;  // less the umask, as any editor's new file

std::string hexadecimal(const platform::Sha1Digest& digest) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(digest.size() * 2);
  for (const std::uint8_t byte : digest) {
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

std::vector<std::string> splitAtLineFeeds(std::string_view text) {
  std::vector<std::string> pieces;
  for (;;) {
    const std::size_t end = text.find('\n');
    pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

bool writeWhole(const FileDescriptor& file, std::string_view contents) {
  return ::write(file.get(), contents.data(), contents.size()) ==
         static_cast<ssize_t>(contents.size());
}

// O_NONBLOCK: a named pipe in the place of a file must not make the agent wait for its other end
// (fifo(7)); it means nothing to an ordinary file.
FileDescriptor openOrdinaryFile(const std::string& path, int flags) {
  FileDescriptor file(::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

FileDescriptor createExclusively(const std::string& path) {
  return FileDescriptor(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode));
}

}  // namespace

std::string FileUtils::caseSensitiveFilePath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                             &std::free);
  return resolved ? std::string(resolved.get()) : path;
}

bool FileUtils::fileExistsAndReadable(const std::string& path) {
  // access() asks with the real user id, faccessat(AT_EACCESS) with the one that will open.
  return ::faccessat(AT_FDCWD, caseSensitiveFilePath(path).c_str(), R_OK, AT_EACCESS) == 0;
}

std::optional<std::vector<std::string>> FileUtils::fileToStringArray(const std::string& path) {
  constexpr auto unlimited = std::numeric_limits<std::size_t>::max();
  const auto bytes = readFile(caseSensitiveFilePath(path), unlimited).value_or("");
  if (!platform::isUtf8(bytes)) return std::nullopt;
  return splitAtLineFeeds(bytes);
}

bool FileUtils::makeSureDirExist(const std::optional<std::string>& path) {
  std::error_code error;
  if (path) {
    if (std::filesystem::exists(withoutTrailingSlashes(*path), error)) return true;
    std::filesystem::create_directories(*path, error);
    if (!error) return true;
  }
  platform::systemLog("Error: Create folder failed " + textOrNull(path));
  return false;
}

std::optional<std::string> FileUtils::generateUniqueFilename(std::string_view suffix) {
  const auto sinceEpoch = platform::currentDate().time_since_epoch();
  const auto seconds = static_cast<std::int32_t>(
      std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count());
  const std::optional<std::uint32_t> random = platform::randomNumber();
  if (!random) return std::nullopt;

  std::string name = std::to_string(seconds) + platform::hostName() +
                     std::to_string(static_cast<std::int32_t>(*random));
  if (const auto digest = platform::sha1(name)) {
    name = hexadecimal(*digest);
  } else {
    LogManager::writeLog("FileUtils::generateUniqueFilename failed.", LogLevel::error);
  }
  return removingAll(name.append(suffix), "-/:+= ");
}

bool FileUtils::writeNewFile(const std::string& path, std::string_view contents) {
  FileDescriptor file = createExclusively(path);
  if (!file.valid()) return false;
  // Some file systems tell only on closing that there was no room.
  const bool written = writeWhole(file, contents);
  if (file.close() && written) return true;
  ::unlink(path.c_str());
  return false;
}

void FileUtils::createFileIfMissing(const std::string& path) {
  std::ignore = createExclusively(path);
}

void FileUtils::createEmptyFile(const std::string& path) {
  // Removed first, so that neither a link nor another name of the same file is ever emptied.
  ::unlink(path.c_str());
  if (createExclusively(path).valid()) return;
  // The folder may be closed to us and the file in it open.
  const FileDescriptor existing = openForAppending(path);
  if (existing.valid()) std::ignore = ::ftruncate(existing.get(), 0);
}

// A second name of somebody's file is as good a trap as a symbolic link to it.
FileDescriptor FileUtils::openForAppending(const std::string& path) {
  FileDescriptor file = openOrdinaryFile(path, O_WRONLY | O_APPEND | O_NOFOLLOW);
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || status.st_nlink > 1) return {};
  return file;
}

bool FileUtils::append(const FileDescriptor& file, std::string_view contents) {
  struct stat before {};
  const bool measured = ::fstat(file.get(), &before) == 0;
  if (writeWhole(file, contents)) return true;
  // Half a line would spoil the next one. Where even this fails, nothing is left to be tried.
  if (measured) std::ignore = ::ftruncate(file.get(), before.st_size);
  return false;
}

std::optional<std::string> FileUtils::readFile(const std::string& path, std::size_t maximumBytes) {
  const FileDescriptor file = openOrdinaryFile(path, O_RDONLY);
  if (!file.valid()) return std::nullopt;
  std::string contents;
  std::array<char, 16384> block{};
  // Until the end and not for the size that the system tells: files of /proc tell none.
  for (;;) {
    const ssize_t count = ::read(file.get(), block.data(), block.size());
    if (count < 0) return std::nullopt;
    if (count == 0) return contents;
    if (static_cast<std::size_t>(count) > maximumBytes - contents.size()) return std::nullopt;
    contents.append(block.data(), static_cast<std::size_t>(count));
  }
}

void FileUtils::moveItem(const std::string& from, const std::string& to) {
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) return;
  // The callers have no use for a failure: what could not be moved stays where it is.
  std::ignore = std::rename(from.c_str(), to.c_str());
}

}  // namespace ombrix
