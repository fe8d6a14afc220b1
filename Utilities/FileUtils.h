#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/FileDescriptor.h"

// What the agent asks of the file system. Stateless; no operation throws, and only those that say
// so log anything. Nothing is ever written through a link, be it symbolic or hard.

namespace ombrix {

class FileUtils {
 public:
  FileUtils() = delete;

  // `path` made absolute, with links, "." and ".." resolved and every component spelled as it is
  // stored on disk; `path` itself when it cannot be resolved.
  [[nodiscard]] static std::string caseSensitiveFilePath(const std::string& path);

  // True for anything that exists and may be read, a directory included.
  [[nodiscard]] static bool fileExistsAndReadable(const std::string& path);

  // The lines of a text file, split at each "\n": a final line end yields a last empty piece, an
  // unreadable file one empty piece, a file that is not UTF-8 nothing. Reads the whole file.
  [[nodiscard]] static std::optional<std::vector<std::string>> fileToStringArray(
      const std::string& path);

  // True when anything exists at `path`, or when the directory could be made with all its parents.
  // Otherwise, or without a path, says so in the system log.
  [[nodiscard]] static bool makeSureDirExist(const std::optional<std::string>& path);

  // A name that no other file has: 40 hexadecimal digits, drawn from the time, this computer's
  // name and a random number, and then `suffix`. Nothing when the machine has no random number.
  [[nodiscard]] static std::optional<std::string> generateUniqueFilename(std::string_view suffix);

  // Writes `contents` to a file that must not exist yet, with one open and one write. Returns
  // false, leaving no file behind, when it could not be written whole.
  [[nodiscard]] static bool writeNewFile(const std::string& path, std::string_view contents);

  // Creates an empty file unless something exists at `path`. A failure shows when it is opened.
  static void createFileIfMissing(const std::string& path);

  // Puts an empty file in the place of whatever file or link was at `path`; a directory stays. A
  // failure shows when it is opened.
  static void createEmptyFile(const std::string& path);

  // Opens an existing ordinary file; what is written goes to its end. Invalid when it is missing,
  // a link, anything but an ordinary file, has another name as well, or may not be written.
  [[nodiscard]] static platform::FileDescriptor openForAppending(const std::string& path);

  // Writes `contents` whole, or returns false and cuts the file back to what it was.
  [[nodiscard]] static bool append(const platform::FileDescriptor& file, std::string_view contents);

  // The bytes of an ordinary file of at most `maximumBytes`; nothing for any other.
  [[nodiscard]] static std::optional<std::string> readFile(const std::string& path,
                                                           std::size_t maximumBytes);

  // Renames `from` to `to` unless something exists there.
  static void moveItem(const std::string& from, const std::string& to);
};

}  // namespace ombrix
