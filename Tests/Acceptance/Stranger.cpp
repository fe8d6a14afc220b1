#include "Tests/Acceptance/Stranger.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <new>
#include <stdexcept>

#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

Pest::Pest(uid_t user, const std::function<void()>& deed)
    : done(new (::mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE,
                       MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<long>(0)),
      child(::fork()) {
  if (child < 0) throw std::runtime_error("no process");  // kill() takes -1 for everybody
  if (child != 0) return;
  becomeUser(user);
  for (;;) {
    deed();
    ++*done;
  }
}

Pest::~Pest() {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::munmap(done, sizeof(*done));
}

bool Pest::waitForMoreRounds(long count) const {
  const long before = rounds();
  return eventually([&] { return rounds() >= before + count; });
}

}  // namespace ombrix::tests
