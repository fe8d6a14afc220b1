#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include <fstream>

#include "Platform/ProcessMemory.h"
#include "Tests/Port/POSIX/ChildProcess.h"

namespace ombrix::tests {

namespace {

// Pages of files that this process has in memory (statm in proc(5)).
long residentFilePages() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  long shared = 0;
  statm >> size >> resident >> shared;
  return shared;
}

// By how much a release shrinks what this process has of its files in memory.
long pagesReleased() {
  const long before = residentFilePages();
  platform::releaseStartupMemory();
  return before - residentFilePages();
}

}  // namespace

TEST(ProcessMemory, ReleasesMostOfWhatTheStartHasRead) {
  const int released = exitStatusInChild([] {
    const long before = residentFilePages();
    return pagesReleased() > before / 4 ? 1 : 0;
  });
  EXPECT_EQ(released, 1);
}

TEST(ProcessMemory, LeavesATracedProcessItsBreakpoints) {
  const int status = exitStatusInChild([] {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return 2;
    return pagesReleased() > 0 ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace ombrix::tests
