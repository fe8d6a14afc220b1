#include "Tests/Port/Linux/PrivateMachine.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <utility>

namespace ombrix::tests {

namespace {

constexpr int ownNamespaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWUTS;

// An ordinary user may have them as root of a user namespace, in which there is nobody else
// (user_namespaces(7)).
bool enterUserNamespace() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  if (::unshare(ownNamespaces | CLONE_NEWUSER) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
  std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  return true;
}

}  // namespace

bool mountMemory(const std::string& folder, const char* options, unsigned long flags) {
  return ::mount("tmpfs", folder.c_str(), "tmpfs", flags, options) == 0;
}

bool enterPrivateNamespaces() {
  if (::unshare(ownNamespaces) != 0 && !enterUserNamespace()) return false;
  return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool enterPrivateMachine() {
  ::unsetenv("XDG_RUNTIME_DIR");
  return enterPrivateNamespaces() && mountMemory("/run", "mode=755") &&
         mountMemory("/tmp", "mode=1777");
}

SilentFileSystem::SilentFileSystem(std::string folder)
    : folder(std::move(folder)), connection(::open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
  const std::string options =
      "fd=" + std::to_string(connection.get()) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
  isMounted = connection.valid() &&
              ::mount("silence", this->folder.c_str(), "fuse", 0, options.c_str()) == 0;
}

SilentFileSystem::~SilentFileSystem() {
  if (isMounted) ::umount2(folder.c_str(), MNT_DETACH);
}

}  // namespace ombrix::tests
