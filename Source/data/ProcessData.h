#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Clock.h"

namespace ombrix {

// One run of one process as the agent has seen it. Plain data: nothing is validated, absent texts
// and dates are allowed everywhere. The process table owns a record while the process runs; sets of
// finished ones share it with whoever writes them.
class ProcessData {
 public:
  using Text = std::optional<std::string>;
  using Time = std::optional<platform::Date>;

  // The short command name; absent when it is not UTF-8.
  [[nodiscard]] const Text& processName() const { return processName_; }
  void setProcessName(Text name) { processName_ = std::move(name); }

  // When the agent first saw the process, which is not when the process began.
  [[nodiscard]] const Time& startTime() const { return startTime_; }
  void setStartTime(Time time) { startTime_ = time; }

  // The same moment in ticks of the machine's approximate clock.
  [[nodiscard]] std::uint64_t startTick() const { return startTick_; }
  void setStartTick(std::uint64_t tick) { startTick_ = tick; }

  // When the run was closed; absent while it is open.
  [[nodiscard]] const Time& stopTime() const { return stopTime_; }
  void setStopTime(Time time) { stopTime_ = time; }

  [[nodiscard]] std::uint64_t stopTick() const { return stopTick_; }
  void setStopTick(std::uint64_t tick) { stopTick_ = tick; }

  // The login name of the effective user.
  [[nodiscard]] const Text& userName() const { return userName_; }
  void setUserName(Text name) { userName_ = std::move(name); }

  // The directory of the executable.
  [[nodiscard]] const Text& path() const { return path_; }
  void setPath(Text path) { path_ = std::move(path); }

  // Whole minutes for which the machine slept during the run; wraps like any 32-bit number.
  [[nodiscard]] std::uint32_t pausedMinutes() const { return pausedMinutes_; }
  void setPausedMinutes(std::uint32_t minutes) { pausedMinutes_ = minutes; }

  // True when the last poll listed the process.
  [[nodiscard]] bool activeFlag() const { return activeFlag_; }
  void setActiveFlag(bool active) { activeFlag_ = active; }

 private:
  Text processName_;
  Time startTime_;
  std::uint64_t startTick_ = 0;
  Time stopTime_;
  std::uint64_t stopTick_ = 0;
  Text userName_;
  Text path_;
  std::uint32_t pausedMinutes_ = 0;
  bool activeFlag_ = false;
};

// Records in no particular order, each at most once.
using ProcessSet = std::vector<std::shared_ptr<ProcessData>>;

}  // namespace ombrix
