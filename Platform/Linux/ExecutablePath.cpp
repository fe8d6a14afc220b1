#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/ProcPath.h"
#include "Platform/ProcessList.h"

namespace ombrix::platform {

namespace {

// The file of that name, unless the kernel would have to ask its file system, which may be a dead
// server's or a program's and never answer. The file of a program that runs is known without that,
// and so are the folders above it; kernels before 5.12 can't be asked like this (openat2(2)).
FileDescriptor knownFile(const std::string& path) {
  open_how how{};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_CACHED;
  return FileDescriptor(
      static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof(how))));
}

// What the kernel knows of a file, again without a question.
bool look(int directory, const char* path, int flags, struct statx& status) {
  return ::statx(directory, path, flags | AT_STATX_DONT_SYNC, STATX_INO, &status) == 0;
}

bool sameFile(const std::string& one, const char* other) {
  const FileDescriptor file = knownFile(one);
  struct statx oneStatus {};
  struct statx otherStatus {};
  return file.valid() && look(file.get(), "", AT_EMPTY_PATH, oneStatus) &&
         look(AT_FDCWD, other, 0, otherStatus) && oneStatus.stx_ino == otherStatus.stx_ino &&
         oneStatus.stx_dev_major == otherStatus.stx_dev_major &&
         oneStatus.stx_dev_minor == otherStatus.stx_dev_minor;
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
