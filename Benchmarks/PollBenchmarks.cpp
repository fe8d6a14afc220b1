#include <benchmark/benchmark.h>

#include <algorithm>
#include <optional>

#include "Benchmarks/Floor.h"
#include "Benchmarks/Population.h"
#include "Source/Core/ProcessManager.h"

// What a poll costs beside the least that the kernel could be asked for the same answer. Processes
// for it to find are raised by whoever runs this, except those that begin and end between two
// polls.

namespace ombrix::benchmarks {

namespace {

void NamesAlone(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(readNames());
}

void SteadyPoll(benchmark::State& state) {
  ProcessManager manager;
  benchmark::DoNotOptimize(manager.refreshAndGetStopped());
  for (auto _ : state) benchmark::DoNotOptimize(manager.refreshAndGetStopped());
}

void EveryDetailAlone(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(readDetails(readProcessIds()));
}

void FirstPoll(benchmark::State& state) {
  ProcessManager manager;
  for (auto _ : state) {
    benchmark::DoNotOptimize(manager.refreshAndGetStopped());
    state.PauseTiming();
    manager.resetProcessList();
    state.ResumeTiming();
  }
}

// Processes of its own, of which one in a hundred of the whole population is exchanged at a time.
class Turnover {
 public:
  Turnover() : share(std::max<std::size_t>(1, readProcessIds().size() / 100)), changing(share) {}

  // Returns the ids of the new ones.
  const std::vector<int>& exchange() {
    changing.grow(share);
    changing.shrink(share);
    return changing.processIds();
  }

 private:
  std::size_t share;
  Population changing;
};

void ChangesAlone(benchmark::State& state) {
  Turnover turnover;
  for (auto _ : state) {
    state.PauseTiming();
    const auto& begun = turnover.exchange();
    state.ResumeTiming();
    benchmark::DoNotOptimize(readNames());
    benchmark::DoNotOptimize(readDetails(begun));
  }
}

void PollWithChanges(benchmark::State& state) {
  Turnover turnover;
  ProcessManager manager;
  benchmark::DoNotOptimize(manager.refreshAndGetStopped());
  for (auto _ : state) {
    state.PauseTiming();
    turnover.exchange();
    state.ResumeTiming();
    benchmark::DoNotOptimize(manager.refreshAndGetStopped());
  }
}

BENCHMARK(NamesAlone)->Unit(benchmark::kMicrosecond);
BENCHMARK(SteadyPoll)->Unit(benchmark::kMicrosecond);
BENCHMARK(EveryDetailAlone)->Unit(benchmark::kMicrosecond);
BENCHMARK(FirstPoll)->Unit(benchmark::kMicrosecond);
// Between two polls of these, processes must begin and end, which takes far longer than the poll.
BENCHMARK(ChangesAlone)->Unit(benchmark::kMicrosecond)->Iterations(50);
BENCHMARK(PollWithChanges)->Unit(benchmark::kMicrosecond)->Iterations(50);

}  // namespace

}  // namespace ombrix::benchmarks
