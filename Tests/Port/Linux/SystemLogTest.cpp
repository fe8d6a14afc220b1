#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "Platform/FileDescriptor.h"
#include "Platform/SystemLog.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

// A call that waits for its reader ends the test's process after this time.
constexpr unsigned secondsUntilStuck = 20;

// Standard error as something else, for as long as it lives.
class Redirection {
 public:
  explicit Redirection(int replacement) : original(::dup(STDERR_FILENO)) {
    ::dup2(replacement, STDERR_FILENO);
    ::alarm(secondsUntilStuck);
  }
  ~Redirection() { ::dup2(original.get(), STDERR_FILENO); }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

 private:
  FileDescriptor original;
};

// Standard error as a terminal, at whose other end the test sits.
class LogTerminal {
 public:
  LogTerminal() {
    int user = -1;
    int program = -1;
    if (::openpty(&user, &program, nullptr, nullptr, nullptr) != 0) return;
    screen = FileDescriptor(user);
    const FileDescriptor terminal(program);
    redirection.emplace(terminal.get());
  }

  // What is shown next.
  [[nodiscard]] std::string next() const {
    std::array<char, 4096> block{};
    const ssize_t count = ::read(screen.get(), block.data(), block.size());
    return count > 0 ? std::string(block.data(), static_cast<std::size_t>(count)) : "";
  }

 private:
  FileDescriptor screen;
  std::optional<Redirection> redirection;
};

// Standard error as a pipe, whose reader the test is.
class LogPipe {
 public:
  LogPipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return;
    reader = FileDescriptor(ends[0]);
    ::fcntl(reader.get(), F_SETFL, O_NONBLOCK);
    const FileDescriptor writer(ends[1]);
    redirection.emplace(writer.get());
  }

  static void fill() {
    ::fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
    const std::string page(4096, '.');
    while (::write(STDERR_FILENO, page.data(), page.size()) > 0) {
    }
    ::fcntl(STDERR_FILENO, F_SETFL, 0);
  }

  [[nodiscard]] std::string readAll() const {
    std::string text;
    std::array<char, 4096> block{};
    for (;;) {
      const ssize_t count = ::read(reader.get(), block.data(), block.size());
      if (count <= 0) return text;
      text.append(block.data(), static_cast<std::size_t>(count));
    }
  }

  void closeReader() { reader.close(); }

 private:
  FileDescriptor reader;
  std::optional<Redirection> redirection;
};

// Takes all memory that this process still has, and may have no more.
void takeAllMemory() {
  const rlimit noMore{0, 0};
  ::setrlimit(RLIMIT_DATA, &noMore);
  for (std::size_t size = std::size_t{1} << 20U; size >= 16; size /= 2) {
    while (std::malloc(size) != nullptr) continue;
  }
}

void tellWithoutMemory() {
  takeAllMemory();
  platform::systemLog("There is no memory to tell you this.");
  ::_exit(0);
}

}  // namespace

TEST(SystemLogOnLinux, IsTheBareMessageAndANewline) {
  const LogPipe log;
  platform::systemLog("Shutting down Ombrix.");
  platform::systemLog("");
  platform::systemLog("caf\xE9");
  EXPECT_EQ(log.readAll(), "Shutting down Ombrix.\n\ncaf\xE9\n");
}

TEST(SystemLogOnLinux, TakesAMessageLongerThanAPipeTakesAtOnce) {
  const std::string message(30'000, 'x');
  const LogPipe log;
  platform::systemLog(message);
  EXPECT_EQ(log.readAll(), message + "\n");
}

TEST(SystemLogOnLinux, DropsTheMessageWhenTheReaderHasStalled) {
  const LogPipe log;
  LogPipe::fill();

  platform::systemLog("nobody reads this");

  EXPECT_EQ(log.readAll().find("nobody"), std::string::npos);
}

TEST(SystemLogOnLinux, NeverWaitsInTheMiddleOfAMessage) {
  const std::string message(1'000'000, 'x');
  const LogPipe log;
  platform::systemLog(message);
  EXPECT_LT(log.readAll().size(), message.size());
}

TEST(SystemLogOnLinux, ReachesATerminal) {
  const LogTerminal terminal;
  platform::systemLog("Shutting down Ombrix.");
  EXPECT_EQ(terminal.next(), "Shutting down Ombrix.\r\n");
}

TEST(SystemLogOnLinux, NeverWaitsForATerminalThatNobodyReads) {
  constexpr int moreThanItHolds = 2000;
  const std::string message(99, 'x');
  const LogTerminal terminal;
  for (int i = 0; i < moreThanItHolds; ++i) platform::systemLog(message);
  EXPECT_EQ(terminal.next().substr(0, message.size()), message);
}

TEST(SystemLogOnLinux, LeavesATerminalAsOthersWantIt) {
  const LogTerminal terminal;
  platform::systemLog("Shutting down Ombrix.");
  EXPECT_EQ(::fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);
}

TEST(SystemLogOnLinux, IsReadAgainWhenTheReaderGoesOn) {
  const LogPipe log;
  LogPipe::fill();
  platform::systemLog("lost");
  std::ignore = log.readAll();

  platform::systemLog("kept");

  EXPECT_EQ(log.readAll(), "kept\n");
}

TEST(SystemLogOnLinux, SurvivesAReaderThatWentAway) {
  std::ignore = std::signal(SIGPIPE, SIG_IGN);
  LogPipe log;
  log.closeReader();
  platform::systemLog("nobody reads this");
  SUCCEED();
}

TEST(SystemLogOnLinux, SurvivesAClosedDescriptor) {
  const LogPipe log;
  ::close(STDERR_FILENO);
  platform::systemLog("nobody reads this");
  EXPECT_EQ(log.readAll(), "");
}

TEST(SystemLogOnLinux, TellsOfALackOfMemoryWithoutAny) {
  if (::dlsym(RTLD_DEFAULT, "__asan_init") != nullptr) GTEST_SKIP() << "it has memory of its own";
  EXPECT_EXIT(tellWithoutMemory(), ::testing::ExitedWithCode(0),
              "There is no memory to tell you this.\n");
}

}  // namespace ombrix::tests
