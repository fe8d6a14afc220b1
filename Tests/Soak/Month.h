#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "Tests/Unit/CoreTestSupport.h"

namespace ombrix::tests {

// Thirty days on a machine where every minute some programs begin and some end, played to a
// metering loop wait by wait; and beside it, in a few plain lines, what has to be written of it.
class Month {
 public:
  explicit Month(MeteringBench& bench);

  static constexpr int minutes = 30 * 24 * 60;

  // What is the same at the same hour of every day, when nothing grows.
  struct Footprint {
    std::size_t heapBytes = 0;
    std::size_t descriptors = 0;
    std::size_t entriesAskedPerPoll = 0;
  };
  std::vector<Footprint> footprints;  // one a day
  std::vector<double> cpuSeconds;     // the agent's own, one a day
  std::uint64_t recordsSeen = 0;
  int lists = 0;
  int sleeps = 0;
  int logTurns = 0;

  // The agent has ended: everything that was open is written.
  void end();

 private:
  struct Run {
    std::string name;
    std::uint32_t pausedMinutes = 0;
  };

  void waitEnded();
  void exchangePrograms();
  void expectPoll();
  void expectRecordOf(const Run& run);
  void sleep();
  void closeDay();
  void checkRecords();
  void checkList();
  void takeFootprint();
  void forgetWhatTheMachineNoted();
  [[nodiscard]] std::string today() const;

  MeteringBench& bench;
  int minute = 0;
  platform::ProcessId nextId = 1000;
  std::deque<platform::ProcessId> running;
  std::map<platform::ProcessId, Run> open;
  std::string lastDay;
  std::vector<std::string> expected;  // "name;paused minutes" of each record since the last check
  std::uint64_t logInode = 0;
  double cpuAtWaitsEnd = 0;
  double cpuToday = 0;
};

}  // namespace ombrix::tests
