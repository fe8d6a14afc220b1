#include "Platform/BSDProcessList.h"

#include <cerrno>
#include <new>
#include <utility>

// Release builds keep the assertion.
#undef NDEBUG
#include <cassert>

namespace ombrix::platform {

namespace {

enum class Pass { done, listGrew, failed };

int errorOf(int callResult) { return callResult == -1 ? errno : callResult; }

// Asks for the size and fetches once. Leaves `list` empty unless it is done.
Pass fetchOnce(const BSDProcessListCall& call, BSDProcessList& list) {
  std::size_t length = 0;
  if (errorOf(call(nullptr, length)) != 0) return Pass::failed;
  std::unique_ptr<std::byte[]> buffer(new (std::nothrow) std::byte[length]);
  if (!buffer) return Pass::failed;
  const int error = errorOf(call(buffer.get(), length));
  if (error != 0) return error == ENOMEM ? Pass::listGrew : Pass::failed;
  list = {std::move(buffer), length};
  return Pass::done;
}

}  // namespace

bool GetBSDProcessList(const BSDProcessListCall& call, BSDProcessList& list) {
  const std::unique_ptr<std::byte[]>& result = list.bytes;
  Pass pass = Pass::listGrew;
  // A list that keeps growing is fetched as often as it takes: each pass asks for the new size.
  while (pass == Pass::listGrew) {
    // A crash report is to name the process table, whose fetch this is, not a file of the port.
#line 147 "Source/Core/ProcessManager"
    assert(result == NULL);  // NOLINT(modernize-use-nullptr): what a report shows
    pass = fetchOnce(call, list);
  }
  return pass == Pass::done;
}

}  // namespace ombrix::platform
