#pragma once

#include <memory>

#include "Source/data/ProcessData.h"

namespace ombrix::benchmarks {

// A run as most are, closed after five minutes.
[[nodiscard]] std::shared_ptr<ProcessData> finishedRun();

}  // namespace ombrix::benchmarks
