#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Wait.h"

// The names, folders and users of processes as they come out in the records.

namespace ombrix::tests {

namespace {

// The records of an agent that began and ended while the present programs ran.
std::vector<Record> recordsOfNow(const Launch& launch = ombrix()) {
  std::filesystem::remove_all("/tmp/home");
  const Home home("/tmp/home", launch.user.value_or(0));
  Agent agent(home, launch);
  EXPECT_TRUE(agent.hasStarted()) << agent.errors();
  EXPECT_EQ(agent.stop(), 0);
  return home.records();
}

std::size_t countWhere(const std::vector<Record>& records, const std::string& name,
                       const std::string& path, const std::string& user = "root") {
  std::size_t count = 0;
  for (const Record& record : records) {
    if (record.name == name && record.path == path && record.user == user) ++count;
  }
  return count;
}

std::string listed(const std::vector<Record>& records) {
  std::string text;
  for (const Record& record : records) text += record.line + "\n";
  return text;
}

void expectOneRecord(const std::string& name, const std::string& path,
                     const std::string& user = "root") {
  const std::vector<Record> records = recordsOfNow();
  EXPECT_EQ(countWhere(records, name, path, user), 1U) << listed(records);
}

// Runs a copy of the program under the file name `name`.
Program programNamed(const std::string& name, std::optional<uid_t> user = std::nullopt) {
  Launch launch = idler("/tmp/tools/" + name);
  launch.user = user;
  return Program(launch);
}

// Runs a program that calls itself `name`, which no file need be able to bear.
Program programCalling(const std::string& name) {
  Program program(idler("/tmp/tools/anonymous", {"name", name}));
  const std::string file = "/proc/" + std::to_string(program.id()) + "/comm";
  EXPECT_TRUE(eventually([&] { return contentsOf(file) == name + "\n"; }));
  return program;
}

}  // namespace

TEST(ProcessNames, NamesAreWrittenAsTheyAre) {
  for (const std::string name :
       {"semi;colon", ";;;;", " two  blanks ", "line\nfeed", "\n", "paren) R 1 (x", ") S 1",
        "back\\slash\\n", "tab\tbed", "größe", "Name:\tx"}) {
    SCOPED_TRACE(name);
    const Program program = programNamed(name);
    expectOneRecord(name, "/tmp/tools");
  }
}

TEST(ProcessNames, NamesThatNoFileCouldHaveAreWrittenAsTheyAre) {
  for (const std::string name : {"", "kworker/0:1", "/", ".."}) {
    SCOPED_TRACE(name);
    const Program program = programCalling(name);
    expectOneRecord(name, "/tmp/tools");
  }
}

TEST(ProcessNames, NameCannotPassForAnotherUser) {
  const std::string name = "a\nUid:\t9\t9\t9\t9";
  const Program program = programNamed(name);
  expectOneRecord(name, "/tmp/tools");
}

TEST(ProcessNames, LongNamesAreCutByTheKernel) {
  const Program program = programNamed("name-of-more-than-fifteen-bytes");
  expectOneRecord("name-of-more-th", "/tmp/tools");
}

TEST(ProcessNames, BytesThatAreNotUtf8MakeTheNameNull) {
  for (const std::string name : {"\xff\xfe", "latin-\xe9", "\xed\xa0\x80"}) {
    const Program program = programNamed(name);
    expectOneRecord("(null)", "/tmp/tools");
  }
}

TEST(ProcessNames, LetterThatTheKernelCutsInTwoMakesTheNameNull) {
  const Program program = programNamed("fourteen-bytes\xc3\xa9");
  expectOneRecord("(null)", "/tmp/tools");
}

TEST(ProcessNames, FoldersAreWrittenAsTheyAre) {
  for (const std::string folder : {"/tmp/with blanks ", "/tmp/line\nfeed", "/tmp/größe",
                                   "/tmp/x (deleted)", "/tmp/back\\slash"}) {
    SCOPED_TRACE(folder);
    const Program program(idler(folder + "/editor"));
    expectOneRecord("editor", folder);
  }
}

TEST(ProcessNames, FolderThatIsNotUtf8IsNull) {
  const Program program(idler("/tmp/\xff/editor"));
  expectOneRecord("editor", "(null)");
}

TEST(ProcessNames, FolderMayBeLong) {
  std::string folder = "/tmp";
  for (int depth = 0; depth < 15; ++depth) folder += "/" + std::string(200, 'x');
  const Program program(idler(folder + "/editor"));
  expectOneRecord("editor", folder);
}

TEST(ProcessNames, UserWithAPasswordEntryIsNamed) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  const passwd* const nobody = ::getpwnam("nobody");
  if (nobody == nullptr) GTEST_SKIP() << "this machine has no user nobody";
  const Program program = programNamed("editor", nobody->pw_uid);
  expectOneRecord("editor", "/tmp/tools", "nobody");
}

TEST(ProcessNames, UserWithoutAPasswordEntryIsNotFound) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  const Program program = programNamed("editor", stranger);
  expectOneRecord("editor", "/tmp/tools", "user name not found");
}

TEST(ProcessNames, EffectiveUserCountsAndNotTheRealOne) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  Launch launch = idler("/tmp/tools/editor");
  launch.beforeExec = [] {
    if (::setresuid(0, stranger, stranger) != 0) ::_exit(124);
  };
  const Program program(launch);
  expectOneRecord("editor", "/tmp/tools", "user name not found");
}

TEST(ProcessNames, OrdinaryUsersAgentMetersEverybodysProcesses) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  const Program program = programNamed("editor");
  const std::vector<Record> records = recordsOfNow(ombrixOf(stranger));
  EXPECT_EQ(countWhere(records, "editor", ""), 1U) << listed(records);
  EXPECT_EQ(countWhere(records, "Ombrix", executableFolder(), "user name not found"), 1U);
}

TEST(ProcessNames, PathThatMayNotBeReadIsThatOfTheProcessBefore) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  Launch own = idler("/tmp/own/own");
  own.user = stranger;
  const Program before(own);
  const Program closed = programNamed("closed");
  ASSERT_LT(before.id(), closed.id());
  const std::vector<Record> records = recordsOfNow(ombrixOf(stranger));
  EXPECT_EQ(countWhere(records, "closed", "/tmp/own"), 1U) << listed(records);
}

TEST(ProcessNames, ProcessesWithClosedFilesHaveNoName) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  if (::mount("proc", "/proc", "proc", MS_REMOUNT, "hidepid=1") != 0) {
    GTEST_SKIP() << "this kernel hides no processes";
  }
  const Program program = programNamed("editor");
  const std::vector<Record> records = recordsOfNow(ombrixOf(stranger));
  EXPECT_EQ(countWhere(records, "(null)", ""), 3U) << listed(records);
}

}  // namespace ombrix::tests
