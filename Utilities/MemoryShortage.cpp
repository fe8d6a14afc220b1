#include "Utilities/MemoryShortage.h"

#include <cstdlib>
#include <exception>
#include <new>

#include "Platform/SystemLog.h"

namespace ombrix {

namespace {

// Enough to write the runs of twenty thousand processes, whose list is the largest piece of it.
constexpr std::size_t partBytes = std::size_t{1024} * 1024;
// Less does not bring a poll to its end.
constexpr std::size_t leastBytes = partBytes / 16;

std::unique_ptr<std::byte[]> putBy(std::size_t bytes) {
  return std::unique_ptr<std::byte[]>(new (std::nothrow) std::byte[bytes]);
}

MemoryReserve* theReserve = nullptr;

// Without memory for the exception itself there is none to be seen.
bool isForLackOfMemory(const std::exception_ptr& reason) {
  if (!reason) return true;
  try {
    std::rethrow_exception(reason);
  } catch (const std::bad_alloc&) {
    return true;
  } catch (...) {
    return false;
  }
}

[[noreturn]] void endWithoutMemory() {
  if (!isForLackOfMemory(std::current_exception())) std::abort();
  platform::systemLog("No memory is left. Quitting.");
  std::_Exit(1);
}

}  // namespace

void endInOrderWithoutMemory() { std::set_terminate(endWithoutMemory); }

MemoryReserve::MemoryReserve() : firstPart(putBy(partBytes)), lastPart(putBy(partBytes)) {
  theReserve = this;
  std::set_new_handler(giveFirstPart);
}

MemoryReserve::~MemoryReserve() {
  std::set_new_handler(nullptr);
  theReserve = nullptr;
}

void MemoryReserve::giveFirstPart() {
  if (theReserve->isReady()) {
    theReserve->firstPart.reset();
  } else {
    throw std::bad_alloc();
  }
}

bool MemoryReserve::isReady() const { return firstPart != nullptr; }

bool MemoryReserve::restore() {
  for (std::size_t bytes = partBytes; !firstPart && bytes >= leastBytes; bytes /= 2) {
    firstPart = putBy(bytes);
  }
  return firstPart != nullptr;
}

void MemoryReserve::release() {
  firstPart.reset();
  lastPart.reset();
}

}  // namespace ombrix
