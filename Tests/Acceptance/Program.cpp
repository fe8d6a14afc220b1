#include "Tests/Acceptance/Program.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;

// A zone in which it is noon now, so that no test happens to run at midnight.
std::string zoneOfNoon() {
  const std::time_t now = std::time(nullptr);
  std::tm universal{};
  gmtime_r(&now, &universal);
  return "TZ=NOON" + std::to_string(universal.tm_hour - 12);
}

std::vector<std::string> environmentFor(const Launch& launch) {
  std::vector<std::string> environment = launch.environment;
  if (!launch.machinesZone) environment.push_back(zoneOfNoon());
  environment.emplace_back("PATH=/usr/bin:/bin");
  for (const char* name : {"UBSAN_OPTIONS", "LSAN_OPTIONS", "GCOV_ERROR_FILE", "GCOV_PREFIX"}) {
    const char* const value = std::getenv(name);
    if (value != nullptr) environment.push_back(std::string(name) + "=" + value);
  }
  // Libraries that a test loads first are none of the sanitizer's business.
  environment.emplace_back("ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=1");
  return environment;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

FileDescriptor keptFile(const char* name) {
  return FileDescriptor(::memfd_create(name, MFD_CLOEXEC));
}

std::string contentsOf(const FileDescriptor& file) {
  std::string contents;
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t count =
        ::pread(file.get(), block.data(), block.size(), static_cast<off_t>(contents.size()));
    if (count <= 0) return contents;
    contents.append(block.data(), static_cast<std::size_t>(count));
  }
}

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

[[noreturn]] void exec(const Launch& launch) {
  std::vector<std::string> arguments = launch.arguments;
  std::vector<std::string> environment = environmentFor(launch);
  // What this test has inherited itself is none of the program's.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  if (::chdir(launch.directory.c_str()) != 0) ::_exit(125);
  if (launch.beforeExec) launch.beforeExec();
  if (launch.user) becomeUser(*launch.user);
  ::execve(launch.executable.c_str(), pointersTo(arguments).data(), pointersTo(environment).data());
  ::_exit(127);
}

int exitStatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Launch ombrix(const std::vector<std::string>& words) {
  Launch launch{executableFolder() + "/Ombrix", {"./Ombrix"}};
  launch.arguments.insert(launch.arguments.end(), words.begin(), words.end());
  return launch;
}

Launch ombrixOf(uid_t user, const std::vector<std::string>& words) {
  Launch launch = ombrix(words);
  launch.user = user;
  return launch;
}

Launch idler(const std::string& executable, const std::vector<std::string>& words) {
  std::filesystem::create_directories(std::filesystem::path(executable).parent_path());
  std::filesystem::copy_file(executableFolder() + "/idler", executable,
                             std::filesystem::copy_options::skip_existing);
  Launch launch{executable, {executable}};
  launch.arguments.insert(launch.arguments.end(), words.begin(), words.end());
  return launch;
}

Program::Program(const Launch& launch)
    : outputFile(keptFile("output")), errorFile(keptFile("errors")) {
  Pipe inputPipe = makePipe();
  Pipe execPipe = makePipe();
  processId = ::fork();
  if (processId < 0) throw std::runtime_error("no process");  // kill() takes -1 for everybody
  if (processId == 0) {
    ::dup2(inputPipe.readEnd.get(), STDIN_FILENO);
    ::dup2(outputFile.get(), STDOUT_FILENO);
    ::dup2(errorFile.get(), STDERR_FILENO);
    exec(launch);
  }
  input = std::move(inputPipe.writeEnd);
  // Ends when the program has replaced this one, under whose name nobody is to see it.
  execPipe.writeEnd.close();
  char byte = 0;
  while (::read(execPipe.readEnd.get(), &byte, 1) > 0) continue;
}

Program::Program(Program&& other) noexcept
    : processId(std::exchange(other.processId, -1)),
      exitStatus(other.exitStatus),
      input(std::move(other.input)),
      outputFile(std::move(other.outputFile)),
      errorFile(std::move(other.errorFile)) {}

Program::~Program() { kill(); }

std::string Program::output() const { return contentsOf(outputFile); }

std::string Program::errors() const { return contentsOf(errorFile); }

void Program::signal(int signalNumber) const { ::kill(processId, signalNumber); }

bool Program::isRunning() {
  if (exitStatus || processId < 0) return false;
  int status = 0;
  if (::waitpid(processId, &status, WNOHANG) != processId) return true;
  exitStatus = exitStatusOf(status);
  return false;
}

char Program::state() const {
  std::ifstream file("/proc/" + std::to_string(processId) + "/stat");
  std::string stat;
  std::getline(file, stat);
  const std::size_t nameEnd = stat.rfind(") ");
  return nameEnd == std::string::npos ? '\0' : stat.at(nameEnd + 2);
}

std::optional<int> Program::waitForExit() {
  std::ignore = eventually([this] { return !isRunning(); });
  return exitStatus;
}

void Program::kill() {
  if (!isRunning()) return;
  signal(SIGKILL);
  int status = 0;
  ::waitpid(processId, &status, 0);
  exitStatus = exitStatusOf(status);
}

Outcome run(const Launch& launch) {
  Program program(launch);
  const std::optional<int> status = program.waitForExit();
  return {status, program.output(), program.errors()};
}

void becomeUser(uid_t user) {
  if (::setgroups(0, nullptr) != 0 || ::setgid(user) != 0 || ::setuid(user) != 0) ::_exit(126);
}

bool asUser(uid_t user, const std::function<bool()>& deed) {
  const pid_t child = ::fork();
  if (child == 0) {
    becomeUser(user);
    ::_exit(deed() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return exitStatusOf(status) == 0;
}

}  // namespace ombrix::tests
