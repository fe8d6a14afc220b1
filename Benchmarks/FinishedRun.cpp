#include "Benchmarks/FinishedRun.h"

#include <chrono>

#include "Platform/Clock.h"

namespace ombrix::benchmarks {

std::shared_ptr<ProcessData> finishedRun() {
  auto run = std::make_shared<ProcessData>();
  run->setProcessName("report-editor");
  run->setPath("/usr/lib/report-editor");
  run->setUserName("operator");
  run->setStartTime(platform::currentDate());
  run->setStopTime(*run->startTime() + std::chrono::minutes(5));
  run->setStopTick(300'000'000'000);
  return run;
}

}  // namespace ombrix::benchmarks
