#include "Platform/ProcessMemory.h"

#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <tuple>

#include "Platform/FileDescriptor.h"

namespace ombrix::platform {

namespace {

// Code and constants of one loaded file. Linking has read them all over, parsing and registering
// once more; a page that is wanted again comes back from the page cache. What is writable, and the
// linker's tables that were so until it closed them, lies in segments of their own and stays.
int releaseReadOnlySegments(dl_phdr_info* file, std::size_t /*size*/, void* /*reference*/) {
  const auto pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  for (int i = 0; i < file->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = file->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) continue;
    const std::uintptr_t address = file->dlpi_addr + segment.p_vaddr;
    const std::uintptr_t begin = address & ~(pageSize - 1);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the linker tells addresses as numbers
    auto* const pages = reinterpret_cast<void*>(begin);
    // Refused for pages that are locked, which then stay as they should (madvise(2)).
    std::ignore = ::madvise(pages, address + segment.p_memsz - begin, MADV_DONTNEED);
  }
  return 0;
}

bool isTraced() {
  std::array<char, 4096> bytes{};
  const FileDescriptor status(::open("/proc/self/status", O_RDONLY | O_CLOEXEC));
  const ssize_t length = ::read(status.get(), bytes.data(), bytes.size());
  if (length <= 0) return true;
  const std::string_view text(bytes.data(), static_cast<std::size_t>(length));
  return text.find("\nTracerPid:\t0\n") == std::string_view::npos;
}

}  // namespace

void releaseStartupMemory() {
  if (isTraced()) return;
  std::ignore = ::malloc_trim(0);
  ::dl_iterate_phdr(releaseReadOnlySegments, nullptr);
}

}  // namespace ombrix::platform
