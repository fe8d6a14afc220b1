#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Platform/ProcessList.h"
#include "Platform/SystemPower.h"
#include "Source/Core/ProcessTable.h"
#include "Source/data/ProcessData.h"

// The table of every process that runs on the machine, of any user and from any folder. Successive
// polls of the kernel's list turn it into finished runs; each sleep of the machine adds its minutes
// to every run in it. Belongs to one thread. Which runs are worth a record is not decided here.

namespace ombrix {

// Hands a message of the machine's power management to the ProcessManager at `reference`.
void powerMessageCallback(void* reference, std::uint32_t service, std::uint32_t messageType,
                          void* argument);

// Registered with the system by its address, hence neither copied nor moved.
class ProcessManager {
 public:
  // Listens for sleep and wake as far as the machine tells of them, and starts with an empty table.
  // Ends the process with status 1 when there is no memory for the table.
  ProcessManager();
  ~ProcessManager();
  ProcessManager(const ProcessManager&) = delete;
  ProcessManager& operator=(const ProcessManager&) = delete;

  // Polls the kernel. Returns the runs that ended since the last poll, with their stop time, and
  // removes them from the table; all runs when the kernel could not be asked. Ends the process with
  // status 1 when the poll leaves fewer than 3 processes.
  [[nodiscard]] ProcessSet refreshAndGetStopped();

  // Every run in the table, its stop time set to now. The table is left as it was: the same runs go
  // on and are stamped again when they end.
  [[nodiscard]] ProcessSet getAllProcessesAsStopped();

  // Empties the table, so that the next poll begins a run for every process.
  void resetProcessList();

  // Registers for sleep and wake; false, with a warning in the log, where that cannot be had.
  bool initSystemEventListener();
  bool deinitSystemEventListener();

  // Acts on one power message and acknowledges it with `argument` where it waits for that.
  void powerMessageReceived(std::uint32_t messageType, void* argument);

  // Does nothing, and nothing calls it: listening begins in the constructor.
  void setupEventListener();

 private:
  using UserNames = std::map<platform::UserId, std::string>;

  void updateProcessList();
  void markOrAdd(std::size_t index, platform::ExecutablePath& path, UserNames& userNames);
  void systemHasPoweredOn();

  ProcessTable processList;
  double sleepStartTime = 0.0;  // on the scale of platform::absoluteTime(); 0.0: no sleep pending
  platform::PowerConnection root_port = 0;
  platform::PowerNotifier notifier = 0;
  platform::ProcessList kernelList;
};

}  // namespace ombrix
