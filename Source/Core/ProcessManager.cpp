#include "Source/Core/ProcessManager.h"

#include <cstdlib>
#include <new>

#include "Platform/Clock.h"
#include "Platform/SystemLog.h"
#include "Platform/UserDirectory.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/Paths.h"
#include "Utilities/Text.h"

namespace ombrix {

namespace {

constexpr std::size_t expectedProcesses = 1000;
constexpr std::size_t fewestPlausibleProcesses = 3;

void stampStop(ProcessData& record) {
  record.setStopTime(platform::currentDate());
  record.setStopTick(platform::approximateTicks());
}

// The directory of the executable in `buffer`, where executablePath() has just put it or else has
// left that of the process before: a process whose path may not be read shares the directory of the
// one found before it in the same poll.
std::optional<std::string> directoryIn(const platform::ExecutablePath& buffer) {
  return utf8OrNothing(deletingLastPathComponent(buffer.data()));
}

const std::string& nameOfUser(platform::UserId userId,
                              std::map<platform::UserId, std::string>& names) {
  const auto [position, isNew] = names.try_emplace(userId);
  if (isNew) position->second = platform::userName(userId).value_or("user name not found");
  return position->second;
}

}  // namespace

void powerMessageCallback(void* reference, std::uint32_t /*service*/, std::uint32_t messageType,
                          void* argument) {
  static_cast<ProcessManager*>(reference)->powerMessageReceived(messageType, argument);
}

ProcessManager::ProcessManager() {
  initSystemEventListener();
  try {
    processList.reserve(expectedProcesses);
  } catch (const std::bad_alloc&) {
    LogManager::writeLog("Could not initialize ProcessList.", LogLevel::error);
    std::exit(1);
  }
}

ProcessManager::~ProcessManager() { deinitSystemEventListener(); }

ProcessSet ProcessManager::refreshAndGetStopped() {
  updateProcessList();
  ProcessSet stopped = processList.takeUnseen();
  for (const auto& record : stopped) {
    record->setActiveFlag(false);
    stampStop(*record);
  }
  return stopped;
}

ProcessSet ProcessManager::getAllProcessesAsStopped() {
  ProcessSet all;
  all.reserve(processList.size());
  for (const auto& slot : processList) {
    stampStop(*slot.record);
    all.push_back(slot.record);
  }
  return all;
}

void ProcessManager::resetProcessList() { processList.clear(); }

void ProcessManager::setupEventListener() {}

void ProcessManager::updateProcessList() {
  processList.beginPoll();
  if (kernelList.fetch()) {
    platform::ExecutablePath path{};
    UserNames userNames;
    const std::size_t count = kernelList.processIds().size();
    for (std::size_t index = 0; index < count; ++index) markOrAdd(index, path, userNames);
  }
  processList.endPoll();

  platform::systemLog("Number of registered processes: " + std::to_string(processList.size()));
  if (processList.size() < fewestPlausibleProcesses) {
    LogManager::writeLog(
        "Ombrix: Found a problem with the context in which Ombrix is run. Restarting.",
        LogLevel::debug);
    std::exit(1);
  }
}

void ProcessManager::markOrAdd(std::size_t index, platform::ExecutablePath& path,
                               UserNames& userNames) {
  const platform::ProcessId processId = kernelList.processIds()[index];
  // A known id is not looked at again: one that was reused since the last poll continues the run.
  if (processList.markSeen(processId)) return;
  const std::optional<platform::ProcessEntry> entry = kernelList.entry(index);
  if (!entry) return;
  if (platform::executablePath(processId, path) == platform::PathResult::processGone) return;

  auto record = std::make_shared<ProcessData>();
  record->setActiveFlag(true);
  record->setPausedMinutes(0);
  if (entry->commandName) record->setProcessName(utf8OrNothing(*entry->commandName));
  record->setPath(directoryIn(path));
  record->setUserName(utf8OrNothing(nameOfUser(entry->effectiveUserId, userNames)));
  record->setStartTime(platform::currentDate());
  record->setStartTick(platform::approximateTicks());
  processList.add(processId, std::move(record));
}

}  // namespace ombrix
