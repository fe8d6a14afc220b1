#include "Source/Core/MeteringManager.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <string>
#include <tuple>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/ProcessMemory.h"
#include "Platform/RunLoop.h"
#include "Platform/ServiceManager.h"
#include "Source/Core/ClientSetup.h"
#include "Utilities/DateFormatter.h"
#include "Utilities/FileUtils.h"
#include "Utilities/Logging/LogManager.h"
#include "Utilities/MakeOrNull.h"
#include "Utilities/MemoryShortage.h"

namespace ombrix {

static volatile std::sig_atomic_t caughtSIGTERM = 0;
static volatile std::sig_atomic_t caughtStopNotification = 0;

namespace {

constexpr std::chrono::seconds pollInterval{60};
constexpr std::array handledSignals = {SIGTERM, SIGKILL, SIGINT, SIGQUIT};

void installSignalHandlers() {
  for (const int signalNumber : handledSignals) {
    platform::endWaitOnSignal(signalNumber);
    // The system refuses a handler for SIGKILL, as everybody expects.
    std::ignore = std::signal(signalNumber, HandleSignals);
  }
}

// A day is what the calendar on the wall says; summer time makes it 23 or 25 hours long.
bool onSameDay(platform::Date one, platform::Date other) {
  const DateFormatter day(DateFormatter::Pattern::day);
  return day.string(one) == day.string(other);
}

// True when the loop is to end; says why.
bool endRequested() {
  if (caughtSIGTERM != 0) {
    LogManager::writeLog("The process was asked to terminate.", LogLevel::notice);
  }
  if (caughtStopNotification != 0) {
    LogManager::writeLog("Caught stop notification. Shutting down.", LogLevel::notice);
  }
  return caughtSIGTERM != 0 || caughtStopNotification != 0;
}

// Throws when the machine gives no memory for what has been used up: the next poll or request would
// fail in the midst of its work.
void keepReady(MemoryReserve& reserve) {
  if (reserve.isReady()) return;
  LogManager::writeLog("The machine gave no more memory; the reserve was used.", LogLevel::warning);
  if (!reserve.restore()) throw std::bad_alloc();
}

}  // namespace

void HandleSignals(int signalNumber) {
  constexpr unsigned accepted = 0x824C;  // bits 2, 3, 6, 9 and 15
  if (signalNumber >= 0 && signalNumber <= 15 && ((accepted >> signalNumber) & 1U) != 0) {
    caughtSIGTERM = 1;
  }
}

MeteringManager::MeteringManager(const ConfigurationManager* config) : config(config) {
  if (config == nullptr) {
    LogManager::writeLog(
        "Could not initialize MeteringManager with this ConfigurationManager. Quitting.",
        LogLevel::error);
    std::exit(1);
  }
  stopObserver.emplace(Notification::stop, platform::Posters::rootAndOwnUser,
                       [this] { receiveStopNotification(); });
  listObserver.emplace(Notification::list, platform::Posters::rootAndOwnUser,
                       [this] { answerListRequest(); });
  const platform::TimeBase base = platform::tickTimeBase();
  ticksPerNanoSec = static_cast<double>(base.numerator) / static_cast<double>(base.denominator);
}

int MeteringManager::startMetering() {
  installSignalHandlers();
  stopMetering();
  procMan = makeOrNull<ProcessManager>();
  if (!procMan) {
    LogManager::writeLog("Could not initialize ProcessManager.", LogLevel::error);
    std::exit(1);
  }
  createDirectories();

  MemoryReserve reserve;
  try {
    meterUntilTheEnd(reserve);
  } catch (const std::bad_alloc&) {
    reserve.release();
    LogManager::writeLog("No memory is left. Quitting.", LogLevel::error);
    stopMetering();
    std::exit(1);
  }
  stopMetering();
  return 0;
}

void MeteringManager::meterUntilTheEnd(MemoryReserve& reserve) {
  bool settled = false;
  platform::Date lastDate = platform::currentDate();
  for (;;) {
    writeMeteringData(procMan->refreshAndGetStopped());
    platform::reportReady();
    const bool newDay = !onSameDay(lastDate, platform::currentDate());
    const platform::Date cycleDate = platform::currentDate();
    if (newDay) closeRunsOfPreviousDay();
    if (!std::exchange(settled, true)) platform::releaseStartupMemory();
    keepReady(reserve);
    const bool waited = platform::runLoopRunOnce(pollInterval);
    if (endRequested()) break;
    keepReady(reserve);
    lastDate = cycleDate;
    if (!waited) break;
  }
}

void MeteringManager::stopMetering() {
  if (!procMan) return;
  LogManager::writeLog("Writing metering data for all processes.", LogLevel::info);
  writeMeteringData(procMan->getAllProcessesAsStopped());
}

void MeteringManager::updateMeteringData() {
  if (procMan) writeMeteringData(procMan->refreshAndGetStopped());
}

// A list may be longer than there is memory, and what is thrown in here meets the C of a library.
void MeteringManager::answerListRequest() {
  try {
    receiveListNotification();
  } catch (const std::bad_alloc&) {
    LogManager::writeLog("There is no memory for the list.", LogLevel::error);
  }
}

void MeteringManager::receiveStopNotification() { caughtStopNotification = 1; }

void MeteringManager::createDirectories() const {
  for (const char* key : {"storagedirectory", "logdirectory", "temporarydirectory"}) {
    if (!FileUtils::makeSureDirExist(config->getConfiguration(key))) {
      LogManager::writeLog("Could not create selected .", LogLevel::error);
    }
  }
}

void MeteringManager::closeRunsOfPreviousDay() {
  LogManager::writeLog("New date detected writing metering data for all processes.",
                       LogLevel::notice);
  writeMeteringData(procMan->getAllProcessesAsStopped());
  procMan->resetProcessList();
}

}  // namespace ombrix
