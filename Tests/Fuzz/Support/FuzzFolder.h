#pragma once

#include <string>

namespace ombrix::tests {

// A folder for the files of one process, in $TMPDIR or else in memory, and its working directory.
// Whoever ends the process in a hurry leaves it behind.
class FuzzFolder {
 public:
  FuzzFolder();
  ~FuzzFolder();
  FuzzFolder(const FuzzFolder&) = delete;
  FuzzFolder& operator=(const FuzzFolder&) = delete;

  // Absolute, with a final "/".
  [[nodiscard]] const std::string& path() const { return folder; }
  [[nodiscard]] std::string path(const std::string& name) const { return folder + name; }

  // Removes all that is in it but the file `kept`.
  void clear(const std::string& kept = "") const;

 private:
  std::string before;
  std::string folder;
};

void writeFile(const std::string& path, const std::string& contents);

// The bytes of a file; ends the process where there is none.
[[nodiscard]] std::string contentsOf(const std::string& path);

}  // namespace ombrix::tests
