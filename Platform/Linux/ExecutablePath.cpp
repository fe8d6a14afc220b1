#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "Platform/Linux/ProcPath.h"
#include "Platform/ProcessList.h"

namespace ombrix::platform {

namespace {

bool sameFile(const std::string& one, const char* other) {
  struct stat oneStatus {};
  struct stat otherStatus {};
  return ::stat(one.c_str(), &oneStatus) == 0 && ::stat(other, &otherStatus) == 0 &&
         oneStatus.st_dev == otherStatus.st_dev && oneStatus.st_ino == otherStatus.st_ino;
}

// The kernel adds " (deleted)" to the path of a file that has lost its name (proc(5)). A file may
// also bear that name in earnest, and then it is still there.
std::string_view withoutDeletedMark(std::string_view path, const char* link) {
  constexpr std::string_view mark = " (deleted)";
  if (!path.ends_with(mark) || sameFile(std::string(path), link)) return path;
  return path.substr(0, path.size() - mark.size());
}

// By stat(2): access(2) is refused for a process that is listed and hidden (hidepid, proc(5)).
bool exists(ProcessId processId) {
  struct stat status {};
  return ::stat(ProcPath("/proc/", processId, "").c_str(), &status) == 0;
}

}  // namespace

PathResult executablePath(ProcessId processId, ExecutablePath& path) {
  const ProcPath link("/proc/", processId, "/exe");
  ExecutablePath target;
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size() - 1);
  if (length < 0) {
    // The kernel answers EACCES for a process that ends during the call, and ENOENT both for one
    // that has ended and for one without a file.
    const int error = errno;
    if (!exists(processId)) return PathResult::processGone;
    if (error != ENOENT) return PathResult::unreadable;
    path[0] = '\0';
    return PathResult::found;
  }
  const std::string_view found =
      withoutDeletedMark({target.data(), static_cast<std::size_t>(length)}, link.c_str());
  *std::copy(found.begin(), found.end(), path.begin()) = '\0';
  return PathResult::found;
}

}  // namespace ombrix::platform
