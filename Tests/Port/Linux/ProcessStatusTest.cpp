#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/Linux/ProcessStatus.h"
#include "Tests/Port/Linux/ProcessFixtures.h"

namespace ombrix::tests {

namespace {

using platform::hasKernelThreadFlag;
using platform::parseProcessStatus;

// As older kernels write it.
std::string withoutKthreadLine(std::string status) {
  const std::size_t begin = status.find("Kthread:");
  return status.erase(begin, status.find('\n', begin) + 1 - begin);
}

// A stat file of a process with this name and these flags, both as text.
std::string statWith(const std::string& name, const std::string& flags) {
  return "77 (" + name + ") S 1 77 77 0 -1 " + flags + " 118 0 0 0 0 0 0 0 20 0 1 0 5\n";
}

}  // namespace

TEST(ProcessStatus, ReadsTheNameAsTheKernelHasIt) {
  const auto status = parseProcessStatus(oddlyNamedStatus);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->commandName, "a) R 1\n\\b c");
}

TEST(ProcessStatus, UndoesTheKernelsEscapes) {
  struct Name {
    const char* written;
    const char* meant;
  };
  const std::vector<Name> table = {
      {"cat", "cat"},
      {"", ""},
      {" two  blanks ", " two  blanks "},
      {"a\tb", "a\tb"},
      {"a\\nb", "a\nb"},
      {"a\\\\b", "a\\b"},
      {"a\\\\nb", "a\\nb"},
      {"\\n\\n", "\n\n"},
      {"\\\\\\\\", "\\\\"},
      {"Uid:\\n", "Uid:\n"},
      {"caf\xE9", "caf\xE9"},
      {"(sd-pam)", "(sd-pam)"},
      {"cut\\", "cut\\"},
  };
  for (const Name& row : table) {
    const auto status =
        parseProcessStatus("Name:\t" + std::string(row.written) + "\nUid:\t0\t0\t0\t0\n");
    ASSERT_TRUE(status) << row.written;
    EXPECT_EQ(status->commandName, row.meant);
  }
}

TEST(ProcessStatus, ReadsTheEffectiveUser) {
  const auto status = parseProcessStatus("Name:\tsudo\nUid:\t1000\t1001\t1002\t1003\n");
  ASSERT_TRUE(status);
  EXPECT_EQ(status->effectiveUserId, 1001U);
}

TEST(ProcessStatus, ReadsTheLargestUserId) {
  const auto status = parseProcessStatus("Name:\tx\nUid:\t0\t4294967295\t0\t0\n");
  ASSERT_TRUE(status);
  EXPECT_EQ(status->effectiveUserId, 4294967295U);
}

TEST(ProcessStatus, TellsKernelThreadsFromProcessesWhereTheKernelDoes) {
  EXPECT_EQ(parseProcessStatus(kernelThreadStatus)->kernelThread, true);
  EXPECT_EQ(parseProcessStatus(oddlyNamedStatus)->kernelThread, false);
  EXPECT_EQ(parseProcessStatus(zombieStatus)->kernelThread, false);
}

TEST(ProcessStatus, TellsProcessesOfOlderKernelsByTheirMemoryOrTheirDeath) {
  EXPECT_EQ(parseProcessStatus(withoutKthreadLine(oddlyNamedStatus))->kernelThread, false);
  EXPECT_EQ(parseProcessStatus(withoutKthreadLine(zombieStatus))->kernelThread, false);
  EXPECT_EQ(parseProcessStatus(withoutKthreadLine(kernelThreadStatus))->kernelThread, std::nullopt);
}

TEST(ProcessStatus, NeedsANameAndAUser) {
  const std::vector<const char*> table = {
      "",
      "\n",
      "Name:\tcat\n",
      "Uid:\t0\t0\t0\t0\n",
      "Name:\tcat\nUid:\t0\n",
      "Name:\tcat\nUid:\tx\ty\t0\t0\n",
      "Name:\tcat\nUid:\t0\t-1\t0\t0\n",
      "Name:\tcat\nUid:\t0\t12x\t0\t0\n",
      "Name:\tcat\nUid:\t0\t4294967296\t0\t0\n",
      "Name: cat\nUid: 0 0 0 0\n",
      "no status at all",
  };
  for (const char* status : table) EXPECT_FALSE(parseProcessStatus(status)) << status;
}

TEST(ProcessStatus, BelievesNoLineThatIsCutOff) {
  EXPECT_FALSE(parseProcessStatus("Name:\tcat\nUid:\t1000\t1001\t1002\t10"));
  EXPECT_FALSE(parseProcessStatus("Uid:\t0\t0\t0\t0\nName:\tca"));
  EXPECT_EQ(parseProcessStatus("Name:\tcat\nUid:\t0\t0\t0\t0\nKthread:\t1")->kernelThread,
            std::nullopt);
}

TEST(ProcessStatus, CopesWithEveryTruncation) {
  const std::string whole = oddlyNamedStatus;
  const std::size_t userEnd = whole.find('\n', whole.find("Uid:")) + 1;
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    EXPECT_EQ(parseProcessStatus(whole.substr(0, length)).has_value(), length >= userEnd) << length;
  }
}

TEST(KernelThreadFlag, IsFoundBehindAnyName) {
  EXPECT_TRUE(hasKernelThreadFlag(kernelThreadStat));
  EXPECT_TRUE(hasKernelThreadFlag(kernelWorkerStat));
  EXPECT_FALSE(hasKernelThreadFlag(oddlyNamedStat));
  EXPECT_FALSE(hasKernelThreadFlag(zombieStat));
  for (const char* name : {"x", "", " ", ")", ") S 1 2 3 4 5 2097152 7", "a) (b", "\n"}) {
    EXPECT_TRUE(hasKernelThreadFlag(statWith(name, "2097152"))) << name;
    EXPECT_FALSE(hasKernelThreadFlag(statWith(name, "4194560"))) << name;
  }
}

TEST(KernelThreadFlag, IsMissingWhereTheFlagsAre) {
  const std::vector<const char*> table = {
      "",
      "77",
      "77 (x",
      "77 (x)",
      "77 (x) S",
      "77 (x) S 1 77 77 0 -1",
      "77 (x) S 1 77 77 0 -1 ",
      "77 (x) S 1 77 77 0 -1 flags 0",
      "77 (x) S 1 77 77 0 -1 -2097152 0",
      "77 (x) S 1 77 77 0 -1 99999999999 0",
  };
  for (const char* stat : table) EXPECT_FALSE(hasKernelThreadFlag(stat)) << stat;
}

}  // namespace ombrix::tests
