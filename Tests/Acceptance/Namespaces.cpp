#include "Tests/Acceptance/Namespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <tuple>

#include "Platform/FileDescriptor.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

constexpr int machineNamespaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID;
constexpr int noMachine = 200;  // the exit status of a process 1 that could not furnish its machine

bool severalUsers = false;

// The one user who is left becomes root of the new user namespace (user_namespaces(7)).
void mapThisUserToRoot(uid_t user, gid_t group) {
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
  std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
}

bool enterNamespaces() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  if (user == 0 && ::unshare(machineNamespaces) == 0) {
    severalUsers = true;
    return true;
  }
  if (::unshare(machineNamespaces | CLONE_NEWUSER) != 0) return false;
  mapThisUserToRoot(user, group);
  return true;
}

bool mountFresh(const char* type, const char* folder, const char* options) {
  return ::mount(type, folder, type, MS_NOSUID, options) == 0;
}

bool copyOut(const FileDescriptor& from, const std::string& to) {
  const FileDescriptor copy(::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0755));
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t count = ::read(from.get(), block.data(), block.size());
    if (count <= 0) return count == 0 && copy.valid();
    if (::write(copy.get(), block.data(), static_cast<std::size_t>(count)) != count) return false;
  }
}

struct Executable {
  const char* builtAs;
  const char* name;
};
constexpr std::array<Executable, 5> executables = {{{OMBRIX_EXECUTABLE, "/Ombrix"},
                                                    {IDLER_EXECUTABLE, "/idler"},
                                                    {LOGIND_EXECUTABLE, "/LogindDouble"},
                                                    {CLOCK_LIBRARY, "/libMovableClock.so"},
                                                    {NAMES_LIBRARY, "/libPredictableNames.so"}}};

// The build folder may lie in a folder that is about to be hidden, or be closed to other users, so
// the executables are opened before and copied after.
bool furnish() {
  std::array<FileDescriptor, executables.size()> built;
  for (std::size_t i = 0; i < executables.size(); ++i) {
    built.at(i) = FileDescriptor(::open(executables.at(i).builtAs, O_RDONLY | O_CLOEXEC));
  }
  ::umask(S_IWGRP | S_IWOTH);
  bool furnished = ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   mountFresh("proc", "/proc", nullptr) &&
                   mountFresh("tmpfs", "/run", "mode=755") &&
                   mountFresh("tmpfs", "/tmp", "mode=1777") &&
                   ::mkdir(executableFolder().c_str(), 0755) == 0 && ::chdir("/tmp") == 0;
  // Shared memory in there is named after process ids, which are not this machine's alone.
  std::ignore = mountFresh("tmpfs", "/dev/shm", "mode=1777");
  for (std::size_t i = 0; i < executables.size(); ++i) {
    furnished = furnished && copyOut(built.at(i), executableFolder() + executables.at(i).name);
  }
  return furnished;
}

int exitStatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A test that is killed takes its machine with it.
void endWithParent() { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }

// Process 1: furnishes the machine, begins the test, and buries whoever dies meanwhile.
[[noreturn]] void runAsInit(int (*body)()) {
  endWithParent();
  if (!furnish()) {
    std::fprintf(stderr, "cannot furnish a machine: %s\n", std::strerror(errno));
    ::_exit(noMachine);
  }
  const pid_t test = ::fork();
  if (test == 0) std::exit(body());
  int status = 0;
  pid_t ended = 0;
  while (ended != test) ended = ::wait(&status);
  ::_exit(exitStatusOf(status));
}

int waitFor(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return exitStatusOf(status);
}

int skipAll(const char* reason) {
  std::printf("[  SKIPPED ] %s\n", reason);
  return 0;
}

int runInNamespaces(int (*body)()) {
  if (!enterNamespaces()) return skipAll("this machine gives nobody namespaces of his own");
  const pid_t init = ::fork();
  if (init == 0) runAsInit(body);
  const int status = waitFor(init);
  if (status == noMachine && !severalUsers) {
    return skipAll("this machine gives ordinary users no mounts of their own");
  }
  return status;
}

}  // namespace

// In a process of its own, because one whose children have another process id namespace can start
// no threads (pid_namespaces(7)), which sanitizers do at the end.
int runOnOwnMachine(int (*body)()) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    endWithParent();
    const int status = runInNamespaces(body);
    std::fflush(nullptr);
    ::_exit(status);
  }
  return waitFor(child);
}

bool hasSeveralUsers() { return severalUsers; }

const std::string& executableFolder() {
  static const std::string folder = "/run/under-test";
  return folder;
}

}  // namespace ombrix::tests
