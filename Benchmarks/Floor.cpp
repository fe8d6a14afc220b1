#include "Benchmarks/Floor.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ombrix::benchmarks {

namespace {

// As large as the C library's own (readdir(3) of glibc).
alignas(8) std::array<char, 32768> block;

// What getdents64(2) yields.
struct Entry {
  std::uint64_t inode;
  std::int64_t offset;
  std::uint16_t length;
  std::uint8_t type;
  char name[1];
};

template <class Visit>
std::size_t forEachBlock(Visit visit) {
  const int proc = ::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::size_t total = 0;
  for (;;) {
    const long count = ::syscall(SYS_getdents64, proc, block.data(), block.size());
    if (count <= 0) break;
    total += static_cast<std::size_t>(count);
    visit(static_cast<std::size_t>(count));
  }
  ::close(proc);
  return total;
}

}  // namespace

std::size_t readNames() {
  return forEachBlock([](std::size_t) {});
}

std::vector<int> readProcessIds() {
  std::vector<int> processIds;
  forEachBlock([&processIds](std::size_t count) {
    for (std::size_t at = 0; at < count;) {
      const auto* const entry = reinterpret_cast<const Entry*>(&block[at]);
      if (const int id = std::atoi(entry->name); id > 0) processIds.push_back(id);
      at += entry->length;
    }
  });
  return processIds;
}

std::size_t readDetails(const std::vector<int>& processIds) {
  static std::array<char, 4096> bytes;
  std::size_t found = 0;
  std::array<char, 64> path{};
  for (const int id : processIds) {
    std::snprintf(path.data(), path.size(), "/proc/%d/status", id);
    const int file = ::open(path.data(), O_RDONLY | O_CLOEXEC);
    if (file < 0) continue;
    if (::read(file, bytes.data(), bytes.size()) > 0) ++found;
    ::close(file);
    std::snprintf(path.data(), path.size(), "/proc/%d/exe", id);
    if (::readlink(path.data(), bytes.data(), bytes.size()) < 0) continue;
  }
  return found;
}

void writeFile(const std::string& path, const std::string& bytes) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (::write(file, bytes.data(), bytes.size()) < 0) std::perror("write");
  ::close(file);
}

}  // namespace ombrix::benchmarks
