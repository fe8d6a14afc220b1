#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/NotificationCenter.h"
#include "Source/Core/ProcessManager.h"
#include "Source/data/ProcessData.h"
#include "Utilities/Configuration/ConfigurationManager.h"

// The engine: polls the process table once a minute, writes every finished run as a record file,
// closes all runs at a change of day, and stops on request. Reads the configuration, changes none.

namespace ombrix {

// The handler of the termination signals. Sets a flag and does nothing else.
void HandleSignals(int signalNumber);

// Observes notifications by its address, hence neither copied nor moved.
class MeteringManager {
 public:
  // `config` outlives the engine. Without one the process ends with status 1.
  explicit MeteringManager(const ConfigurationManager* config);

  // Meters until a Stop notification or a termination signal arrives, or until there is nothing
  // left to wait on. Always 0.
  int startMetering();

  // Writes a record for every open run; the table stays as it is.
  void stopMetering();

  // One poll and its records.
  void updateMeteringData();

  // Writes each run to a file of its own in the storage directory. What cannot be written is
  // logged and lost.
  void writeMeteringData(const ProcessSet& records) const;

  // The length of a closed run in whole seconds, sleep not counted.
  [[nodiscard]] std::uint64_t processRunTimeInSeconds(const ProcessData& record) const;

  void receiveStopNotification();

  // Replaces the file "processes.list" in the storage directory by a list of the open runs.
  void receiveListNotification();

 private:
  void createDirectories() const;
  void meterUntilTheEnd(class MemoryReserve& reserve);
  void answerListRequest();
  void closeRunsOfPreviousDay();
  [[nodiscard]] bool writeRecord(ProcessData& record, const class DateFormatter& formatter) const;

  std::unique_ptr<ProcessManager> procMan;
  const ConfigurationManager* config;
  double ticksPerNanoSec = 1.0;  // in spite of its name: nanoseconds per tick
  std::optional<platform::NotificationObserver> stopObserver;
  std::optional<platform::NotificationObserver> listObserver;
};

}  // namespace ombrix
