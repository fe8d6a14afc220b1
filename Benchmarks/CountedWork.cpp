#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <tuple>

#include "Benchmarks/FinishedRun.h"
#include "Source/Core/MeteringManager.h"
#include "Source/Core/ProcessManager.h"
#include "Utilities/Configuration/ConfigurationManager.h"

// CountedWork steady|first|record COUNT FOLDER: does that much of one thing and nothing else that
// grows with COUNT, so that the difference between two counts of instructions is that of the thing.

namespace {

using namespace ombrix;

void pollSteadily(int count) {
  ProcessManager manager;
  for (int i = 0; i <= count; ++i) std::ignore = manager.refreshAndGetStopped();
}

void pollAnew(int count) {
  ProcessManager manager;
  for (int i = 0; i < count; ++i) {
    std::ignore = manager.refreshAndGetStopped();
    manager.resetProcessList();
  }
}

void writeRecords(int count, const char* folder) {
  ConfigurationManager configuration(nullptr);
  configuration.addConfiguration("StorageDirectory", folder);
  const MeteringManager manager(&configuration);
  const ProcessSet run{benchmarks::finishedRun()};
  for (int i = 0; i < count; ++i) manager.writeMeteringData(run);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("CountedWork steady|first|record COUNT FOLDER\n", stderr);
    return 2;
  }
  const std::string_view what = argv[1];
  const int count = std::atoi(argv[2]);
  if (what == "steady") pollSteadily(count);
  if (what == "first") pollAnew(count);
  if (what == "record") writeRecords(count, argv[3]);
}
