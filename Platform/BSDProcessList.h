#pragma once

#include <cstddef>
#include <functional>
#include <memory>

// How the process list is got out of a BSD kernel: ask for the size, allocate exactly that, fetch,
// and begin anew when the list has grown in between. The call itself is the caller's to supply, so
// that this works, and is tested, on any machine. Knows nothing of what the bytes mean.

namespace ombrix::platform {

// The list as the kernel filled it in: `length` bytes, suitably aligned for any type.
struct BSDProcessList {
  std::unique_ptr<std::byte[]> bytes;
  std::size_t length = 0;
};

// sysctl(3) of the process list. Without a buffer it sets `length` to the bytes that are needed;
// with one, `length` is its size beforehand and the bytes filled in afterwards. Returns 0, or -1
// with the error in errno.
using BSDProcessListCall = std::function<int(void* buffer, std::size_t& length)>;

// Fetches the list into `list`, which must be empty: one that still holds bytes is a mistake of the
// caller's and aborts the process. Returns false, leaving it empty, when the kernel reports an
// error or there is no memory.
[[nodiscard]] bool GetBSDProcessList(const BSDProcessListCall& call, BSDProcessList& list);

}  // namespace ombrix::platform
