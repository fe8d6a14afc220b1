#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Benchmarks/FinishedRun.h"
#include "Benchmarks/Floor.h"
#include "Source/Core/MeteringManager.h"
#include "Utilities/Configuration/ConfigurationManager.h"

// What writing a record costs beside a bare file of the same bytes. Nothing is deleted in here: a
// file system that frees thousands of files meanwhile makes new ones slowly.

namespace ombrix::benchmarks {

namespace {

// A folder that stays, in $OMBRIX_BENCHMARK_FOLDER or the current one, holding so many files.
std::string newFolder(std::size_t files) {
  const char* const base = std::getenv("OMBRIX_BENCHMARK_FOLDER");
  std::string path = std::string(base != nullptr ? base : ".") + "/records-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) {
    std::perror(path.c_str());
    std::exit(1);
  }
  for (std::size_t i = 0; i < files; ++i) writeFile(path + "/" + std::to_string(i), {});
  return path;
}

// What the record of finishedRun() holds, in bytes.
const std::string& recordBytes() {
  static const std::string bytes =
      "report-editor;;;;/usr/lib/report-editor;operator;;2026-01-01 00:00:00;2026-01-01 00:05:00;"
      "0;300";
  return bytes;
}

// A name as long as those of records.
std::string fileName(std::size_t number) {
  std::string digits = std::to_string(number);
  return "/" + std::string(40 - digits.size(), '0') + digits + ".met";
}

void FileAlone(benchmark::State& state) {
  const std::string folder = newFolder(static_cast<std::size_t>(state.range(0)));
  std::size_t number = 0;
  for (auto _ : state) writeFile(folder + fileName(++number), recordBytes());
}

void Record(benchmark::State& state) {
  ConfigurationManager configuration(nullptr);
  configuration.addConfiguration("StorageDirectory",
                                 newFolder(static_cast<std::size_t>(state.range(0))));
  const MeteringManager manager(&configuration);
  const ProcessSet set{finishedRun()};
  for (auto _ : state) manager.writeMeteringData(set);
}

// All runs of a machine in one go, as at a change of day.
void FilesOfADay(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    const std::string folder = newFolder(0);
    state.ResumeTiming();
    for (std::size_t i = 0; i < count; ++i) writeFile(folder + fileName(i), recordBytes());
  }
}

void RecordsOfADay(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  ProcessSet set;
  while (set.size() < count) set.push_back(finishedRun());
  for (auto _ : state) {
    state.PauseTiming();
    ConfigurationManager configuration(nullptr);
    configuration.addConfiguration("StorageDirectory", newFolder(0));
    const MeteringManager manager(&configuration);
    state.ResumeTiming();
    manager.writeMeteringData(set);
  }
}

BENCHMARK(FileAlone)->Arg(0)->Arg(10'000)->Arg(100'000)->Iterations(2000);
BENCHMARK(Record)->Arg(0)->Arg(10'000)->Arg(100'000)->Iterations(2000);
BENCHMARK(FilesOfADay)->Arg(10'000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(RecordsOfADay)->Arg(10'000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace ombrix::benchmarks
