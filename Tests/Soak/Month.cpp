#include "Tests/Soak/Month.h"

#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <set>

#include "Source/Core/ClientSetup.h"

namespace ombrix::tests {

namespace {

using std::chrono::seconds;

constexpr int programsAtATime = 150;

double cpuTime() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// All names of these programs are as long as each other, so that equal numbers need equal memory.
std::string nameOf(platform::ProcessId id) { return "program-" + std::to_string(100000 + id); }

std::size_t descriptorsOpen() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

}  // namespace

Month::Month(MeteringBench& bench) : bench(bench), lastDay(today()) {
  bench.machine.processes.clear();
  for (int i = 0; i < programsAtATime; ++i) {
    bench.machine.run(nextId, nameOf(nextId));
    running.push_back(nextId++);
  }
  expected.reserve(10000);
  bench.machine.waits.emplace_back([this] { waitEnded(); });
  expectPoll();
  cpuAtWaitsEnd = cpuTime();
}

// Everything that happens in one of the loop's waits.
void Month::waitEnded() {
  cpuToday += cpuTime() - cpuAtWaitsEnd;
  if (++minute < minutes) bench.machine.waits.emplace_back([this] { waitEnded(); });
  if (minute % 100 == 51) checkList();
  if (minute % (24 * 60) == 12 * 60) closeDay();
  if (minute % 700 == 600) {
    sleep();
  } else {
    bench.machine.pass(seconds(60));
    if (minute % 100 == 50) bench.machine.postFromOutside(Notification::list);
  }
  exchangePrograms();
  expectPoll();
  forgetWhatTheMachineNoted();
  cpuAtWaitsEnd = cpuTime();
}

// One or two end and as many begin; another comes and goes between two polls and is never seen.
void Month::exchangePrograms() {
  for (int i = 0; i <= minute % 2; ++i) {
    bench.machine.end(running.front());
    running.pop_front();
    bench.machine.run(nextId, nameOf(nextId));
    running.push_back(nextId++);
  }
}

void Month::expectRecordOf(const Run& run) {
  expected.push_back(run.name + ";" + std::to_string(run.pausedMinutes));
}

void Month::expectPoll() {
  const std::set<platform::ProcessId> listed(running.begin(), running.end());
  std::erase_if(open, [&](const auto& entry) {
    if (listed.count(entry.first) > 0) return false;
    expectRecordOf(entry.second);
    return true;
  });
  for (const auto id : listed) open.try_emplace(id, Run{nameOf(id)});
  if (today() == lastDay) return;
  lastDay = today();
  for (const auto& [id, run] : open) expectRecordOf(run);
  open.clear();
}

// Announced, three hours and a bit long, and over when the wait ends.
void Month::sleep() {
  FakeMachine& machine = bench.machine;
  machine.sendPowerMessage(platform::messageSystemWillSleep);
  machine.deliverOne();
  machine.date += seconds(3 * 3600 + 59);  // the ticks stand still
  machine.sendPowerMessage(platform::messageSystemHasPoweredOn);
  for (auto& [id, run] : open) run.pausedMinutes += 180;
  ++sleeps;
}

void Month::closeDay() {
  checkRecords();
  takeFootprint();
  cpuSeconds.push_back(cpuToday);
  cpuToday = 0;
}

void Month::checkRecords() {
  std::vector<std::string> seen;
  std::set<std::string> runs;
  for (const std::string& record : recordsIn("records")) {
    seen.push_back(field(record, 1) + ";" + field(record, 10));
    const bool closedWhenFound = field(record, 8) == field(record, 9);
    if (closedWhenFound) continue;  // found by the very poll that met a new day, and begun anew
    EXPECT_TRUE(runs.insert(field(record, 1) + field(record, 8).substr(0, 10)).second) << record;
  }
  std::sort(seen.begin(), seen.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(seen, expected) << "in the day before minute " << minute;
  recordsSeen += seen.size();
  expected.clear();
  // Not deleted: a file system that frees thousands of files meanwhile makes new ones slowly.
  std::filesystem::rename("records", "records-until-" + std::to_string(minute));
  std::filesystem::create_directory("records");
}

void Month::checkList() {
  EXPECT_EQ(linesOf(contentsOf("records/processes.list")).size(), open.size());
  std::filesystem::remove("records/processes.list");
  ++lists;
}

void Month::takeFootprint() {
  Footprint footprint;
  footprint.heapBytes = ::mallinfo2().uordblks;
  footprint.descriptors = descriptorsOpen();
  footprint.entriesAskedPerPoll = bench.machine.entriesAsked.size();
  footprints.push_back(footprint);
}

// A scripted machine notes all that it is asked, which thirty days make too much of.
void Month::forgetWhatTheMachineNoted() {
  FakeMachine& machine = bench.machine;
  machine.systemLog = {};
  machine.waitLimits = {};
  machine.entriesAsked = {};
  machine.usersAsked = {};
  machine.powerCalls = {};
  struct stat log {};
  if (::stat("log/metering.log", &log) == 0 && log.st_ino != logInode) {
    logInode = log.st_ino;
    ++logTurns;
  }
}

void Month::end() {
  for (const auto& [id, run] : open) expectRecordOf(run);
  checkRecords();
}

std::string Month::today() const {
  const std::time_t now = std::chrono::system_clock::to_time_t(bench.machine.date);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  return {text, std::strftime(text, sizeof text, "%F", &local)};
}

}  // namespace ombrix::tests
