#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Linux/ProcessStatus.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Tests/Fuzz/Support/TaskName.h"

// The files that the kernel keeps of a process: as any bytes, and as the kernel writes them of a
// process that has given itself any name.

namespace ombrix::tests {

namespace {

using platform::ProcessStatus;

bool same(const ProcessStatus& one, const ProcessStatus& other) {
  return one.commandName == other.commandName && one.effectiveUserId == other.effectiveUserId &&
         one.kernelThread == other.kernelThread;
}

void readAnyBytes(std::string_view bytes) {
  const auto status = platform::parseProcessStatus(bytes);
  std::ignore = platform::hasKernelThreadFlag(bytes);
  if (!status) return;
  require(status->commandName.size() < bytes.size(), "a name is no longer than its file");

  const std::string_view wholeLines = bytes.substr(0, bytes.rfind('\n') + 1);
  const auto ofWholeLines = platform::parseProcessStatus(wholeLines);
  require(ofWholeLines && same(*ofWholeLines, *status), "half a line counts for nothing");
}

struct Process {
  std::string name;
  std::uint32_t user = 0;
  std::uint32_t otherUser = 0;
  bool saysWhetherThread = false;
  bool kernelThread = false;
};

std::string statusOf(const Process& process) {
  const std::string other = std::to_string(process.otherUser);
  std::string text = "Name:\t" + escapedTaskName(process.name) + "\nState:\tS (sleeping)\nUid:\t" +
                     other + "\t" + std::to_string(process.user) + "\t" + other + "\t" + other +
                     "\n";
  if (process.saysWhetherThread) {
    text += "Kthread:\t" + std::string(process.kernelThread ? "1" : "0") + "\n";
  }
  return text;
}

std::string statOf(const Process& process) {
  constexpr std::uint32_t kernelThreadFlag = 0x00200000;
  const std::uint32_t otherFlags = process.otherUser & ~kernelThreadFlag;
  const std::uint32_t flags = otherFlags | (process.kernelThread ? kernelThreadFlag : 0);
  return "7 (" + process.name + ") S 1 7 7 0 -1 " + std::to_string(flags) + " 232 0 4 0\n";
}

Process processIn(Input input) {
  constexpr std::size_t longestName = 63;  // of a kernel's own worker; others have 15 bytes
  Process process;
  process.user = input.number<std::uint32_t>();
  process.otherUser = input.number<std::uint32_t>();
  process.saysWhetherThread = input.flag();
  process.kernelThread = input.flag();
  const std::string_view name = input.rest().substr(0, longestName);
  process.name = name.substr(0, name.find('\0'));
  return process;
}

void readWhatTheKernelWrites(const Process& process) {
  const auto status = platform::parseProcessStatus(statusOf(process));
  require(status.has_value(), "the kernel's own words are understood");
  require(status->commandName == process.name, "a name is read as it was given");
  require(status->effectiveUserId == process.user, "no name hides the user");
  if (process.saysWhetherThread) {
    require(status->kernelThread == process.kernelThread, "no name makes a thread of the kernel's");
  } else {
    require(!status->kernelThread, "what the kernel does not say is not known");
  }
  require(platform::hasKernelThreadFlag(statOf(process)) == process.kernelThread,
          "no name hides the flags");
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  readAnyBytes({reinterpret_cast<const char*>(bytes), size});
  readWhatTheKernelWrites(processIn(Input(bytes, size)));
  return 0;
}
