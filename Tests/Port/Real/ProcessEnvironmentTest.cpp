#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "Platform/ProcessEnvironment.h"
#include "Tests/Port/POSIX/ChildProcess.h"

namespace ombrix::tests {

namespace {

// The number that the next file of this process gets.
int nextDescriptor() {
  const int opened = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(opened);
  return opened;
}

// The mask of a process that was started with `inherited`.
mode_t maskAfter(mode_t inherited) {
  return static_cast<mode_t>(exitStatusInChild([inherited] {
    ::umask(inherited);
    platform::secureProcessEnvironment();
    return static_cast<int>(::umask(0));
  }));
}

// Makes this process the leader of a session at a terminal that takes nothing from the background.
// Returns the terminal, whose other end stays open, or -1.
int ownQuietTerminal() {
  const int screen = ::posix_openpt(O_RDWR | O_NOCTTY);
  if (screen < 0 || ::grantpt(screen) != 0 || ::unlockpt(screen) != 0) return -1;
  const int terminal = ::open(::ptsname(screen), O_RDWR | O_NOCTTY);
  termios settings{};
  if (::setsid() < 0 || ::ioctl(terminal, TIOCSCTTY, 0) != 0) return -1;
  if (::tcgetattr(terminal, &settings) != 0) return -1;
  settings.c_lflag |= TOSTOP;
  return ::tcsetattr(terminal, TCSANOW, &settings) == 0 ? terminal : -1;
}

// Writes to the terminal from a process in the background. True when that came to its end.
bool writesFromTheBackground(int terminal) {
  const pid_t writer = ::fork();
  if (writer == 0) {
    ::setpgid(0, 0);
    platform::secureProcessEnvironment();
    ::_exit(::write(terminal, "x", 1) == 1 ? 0 : 1);
  }
  int status = 0;
  ::waitpid(writer, &status, WUNTRACED);
  if (WIFSTOPPED(status)) ::kill(writer, SIGKILL);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Waits until `child` is no more, without burying it. False when it has become a zombie instead.
bool vanishes(pid_t child) {
  siginfo_t end{};
  return ::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT) != 0 && errno == ECHILD;
}

}  // namespace

TEST(ProcessEnvironment, OpensTheStandardDescriptorsThatTheParentClosed) {
  const int next = exitStatusInChild([] {
    for (const int descriptor : {0, 1, 2}) ::close(descriptor);
    platform::secureProcessEnvironment();
    return nextDescriptor();
  });
  EXPECT_GT(next, STDERR_FILENO);
}

TEST(ProcessEnvironment, OpensTheOneThatIsMissing) {
  const int next = exitStatusInChild([] {
    ::close(STDOUT_FILENO);
    platform::secureProcessEnvironment();
    return nextDescriptor();
  });
  EXPECT_GT(next, STDERR_FILENO);
}

TEST(ProcessEnvironment, WhatItOpensCanBeReadAndWritten) {
  const int status = exitStatusInChild([] {
    for (const int descriptor : {0, 1, 2}) ::close(descriptor);
    platform::secureProcessEnvironment();
    char byte = 'x';
    const bool readable = ::read(STDIN_FILENO, &byte, 1) == 0;
    return readable && ::write(STDERR_FILENO, &byte, 1) == 1 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ProcessEnvironment, LeavesDescriptorsThatAreOpenAsTheyAre) {
  const int status = exitStatusInChild([] {
    struct stat before {};
    struct stat after {};
    if (::fstat(STDERR_FILENO, &before) != 0) return 1;
    const int next = nextDescriptor();
    platform::secureProcessEnvironment();
    if (::fstat(STDERR_FILENO, &after) != 0 || before.st_ino != after.st_ino) return 1;
    return nextDescriptor() == next ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ProcessEnvironment, LetsNobodyElseWriteToNewFiles) {
  EXPECT_EQ(maskAfter(0), static_cast<mode_t>(S_IWGRP | S_IWOTH));
}

TEST(ProcessEnvironment, KeepsAStricterMask) {
  EXPECT_EQ(maskAfter(S_IRWXG | S_IRWXO), static_cast<mode_t>(S_IRWXG | S_IRWXO));
}

TEST(ProcessEnvironment, DeniesThisUserNothingOfItsOwn) {
  EXPECT_EQ(maskAfter(S_IRWXU | S_IRWXG | S_IRWXO), static_cast<mode_t>(S_IRWXG | S_IRWXO));
}

TEST(ProcessEnvironment, SurvivesAReaderThatWentAway) {
  const int error = exitStatusInChild([] {
    platform::secureProcessEnvironment();
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) return 0;
    ::close(ends[0]);
    return ::write(ends[1], "x", 1) < 0 ? errno : 0;
  });
  EXPECT_EQ(error, EPIPE);
}

TEST(ProcessEnvironment, SurvivesALimitOnTheSizeOfFiles) {
  const int error = exitStatusInChild([] {
    platform::secureProcessEnvironment();
    const rlimit nothing{0, RLIM_INFINITY};
    if (::setrlimit(RLIMIT_FSIZE, &nothing) != 0) return 0;
    FILE* const file = std::tmpfile();
    if (file == nullptr) return 0;
    return ::write(::fileno(file), "x", 1) < 0 ? errno : 0;
  });
  EXPECT_EQ(error, EFBIG);
}

TEST(ProcessEnvironment, IsNotStoppedByATerminalThatTakesNothingFromTheBackground) {
  const int status = exitStatusInChild([] {
    const int terminal = ownQuietTerminal();
    if (terminal < 0) return 2;
    return writesFromTheBackground(terminal) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ProcessEnvironment, KeepsNoZombieOfAChildThatEndsLater) {
  const int status = exitStatusInChild([] {
    const pid_t child = ::fork();
    if (child == 0) ::pause();
    platform::secureProcessEnvironment();
    ::kill(child, SIGKILL);
    return vanishes(child) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ProcessEnvironment, KeepsNoZombieOfAChildThatEndedBefore) {
  const int status = exitStatusInChild([] {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    siginfo_t end{};
    ::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT);
    platform::secureProcessEnvironment();
    return vanishes(child) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace ombrix::tests
