#include <systemd/sd-event.h>

#include <cstdint>
#include <vector>

#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/Login1.h"
#include "Tests/Fuzz/Support/BusConversation.h"
#include "Tests/Fuzz/Support/BusDouble.h"
#include "Tests/Fuzz/Support/Descriptors.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/Require.h"

// The agent's line to logind: a bus that says anything, in good order or in none, and hangs up when
// it likes.

namespace ombrix::tests {

namespace {

// The agent's side of the line. Lets a sleep begin as soon as it has heard of it.
class Listener {
 public:
  Listener() : login([this](bool sleeping) { hear(sleeping); }) {}

  void start(BusDouble& bus, const BusScript& script) {
    bus.serveFirst(script);
    login.start();
    bus.finishFirst();
  }
  void look() { login.reconnectIfBroken(); }

  [[nodiscard]] const std::vector<bool>& announcements() const { return heard; }

 private:
  void hear(bool sleeping) {
    heard.push_back(sleeping);
    if (sleeping) {
      login.releaseLock();
    } else {
      login.takeLock();
    }
  }

  std::vector<bool> heard;
  platform::Login1 login;
};

// Runs the event loop until nothing is left to do, and serves whoever connects again.
class EventfulTime {
 public:
  EventfulTime(BusDouble& bus, const std::vector<BusScript>& scripts)
      : bus(bus), scripts(scripts), last{{}, true} {}

  void pass() {
    constexpr int mostTurns = 4000;
    for (int turn = 0; turn < mostTurns; ++turn) {
      const int dispatched = sd_event_run(platform::eventLoop(), 0);
      require(dispatched >= 0, "the event loop goes on");
      if (!serve() && dispatched == 0) return;
    }
    require(false, "the agent comes to rest");
  }

 private:
  // A bus that has said all hangs up on everybody else.
  bool serve() {
    if (!bus.serveNext(next < scripts.size() ? scripts[next] : last)) return false;
    ++next;
    return true;
  }

  BusDouble& bus;
  const std::vector<BusScript>& scripts;
  BusScript last;
  std::size_t next = 1;
};

void listenTo(BusDouble& bus, const BusConversation& conversation) {
  constexpr int looks = 5;
  Listener listener;
  listener.start(bus, conversation.scripts().front());
  EventfulTime time(bus, conversation.scripts());
  time.pass();
  for (int i = 0; i < looks; ++i) {
    listener.look();
    time.pass();
  }
  if (conversation.foreseen()) {
    require(listener.announcements() == conversation.announcements(),
            "every announcement of logind's is heard, once, and no other");
  }
}

void run(Input input) {
  static BusDouble bus;
  listenTo(bus, BusConversation(input));
  bus.forget();
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  // What lives as long as the process gets its descriptors in the first conversation.
  static const bool acquainted = (run(Input(nullptr, 0)), true);
  std::ignore = acquainted;
  const std::size_t descriptorsBefore = openDescriptorCount();

  run(Input(bytes, size));

  require(openDescriptorCount() == descriptorsBefore, "no descriptor is left");
  return 0;
}
