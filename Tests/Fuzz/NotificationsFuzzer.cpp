#include <dirent.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/FileDescriptor.h"
#include "Platform/Linux/NotificationSockets.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RunLoop.h"
#include "Tests/Fuzz/Support/Descriptors.h"
#include "Tests/Fuzz/Support/Input.h"
#include "Tests/Fuzz/Support/OwnMachine.h"
#include "Tests/Fuzz/Support/Require.h"

// The sockets of the notification service: datagrams of any text, of any user, with descriptors in
// their luggage, to an observer of this process; and file names in the sockets' directory.

namespace ombrix::tests {

namespace {

using platform::FileDescriptor;
using platform::Posters;

constexpr const char* directory = "/run/ombrix";
constexpr std::string_view expected = "com.velkworks.Ombrix2.Stop";

struct Sending {
  std::string text;
  uid_t sender = 0;
  bool toStrangersSocket = false;
  unsigned descriptors = 0;
};

// Mostly what is expected or close to it, or else nothing would ever be heard.
std::string textIn(Input& input) {
  const std::string name(expected);
  switch (input.choice(5)) {
    case 0:
      return input.text();
    case 1:
      return name + input.text();
    case 2:
      return name.substr(0, input.byte() % name.size());
    default:
      return name;
  }
}

Sending sendingIn(Input& input) {
  Sending sending;
  const std::uint8_t kind = input.byte();
  sending.toStrangersSocket = (kind & 1U) != 0;
  sending.descriptors = (kind >> 1U) & 3U;
  if ((kind & 8U) != 0) sending.sender = input.number<std::uint32_t>();
  sending.text = textIn(input);
  return sending;
}

// The path of one of the two sockets of the only observer that there is.
std::optional<std::string> socketPath(bool forStrangers) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    const std::string name = entry.path().filename();
    const auto parsed = platform::parseSocketFileName(name);
    if (parsed && parsed->forStrangers == forStrangers) return entry.path();
  }
  return std::nullopt;
}

void addPart(msghdr& message, std::size_t& used, int type, const void* contents, std::size_t size) {
  auto* const part = reinterpret_cast<cmsghdr*>(static_cast<char*>(message.msg_control) + used);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = type;
  part->cmsg_len = CMSG_LEN(size);
  std::memcpy(CMSG_DATA(part), contents, size);
  used += CMSG_SPACE(size);
}

// False when the kernel would not have it: a full queue, a user whom it does not know.
bool send(const std::string& path, const Sending& sending) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  std::string text = sending.text;
  iovec buffer{text.data(), text.size()};
  alignas(cmsghdr) std::array<char, 256> control{};
  msghdr message{&address, sizeof(address), &buffer, 1, control.data(), 0, 0};

  const ucred credentials{::getpid(), sending.sender, ::getegid()};
  const std::array<int, 3> luggage = {socket.get(), socket.get(), socket.get()};
  std::size_t used = 0;
  addPart(message, used, SCM_CREDENTIALS, &credentials, sizeof(credentials));
  if (sending.descriptors > 0) {
    addPart(message, used, SCM_RIGHTS, luggage.data(), sizeof(int) * sending.descriptors);
  }
  message.msg_controllen = used;
  return ::sendmsg(socket.get(), &message, MSG_NOSIGNAL) >= 0;
}

// An observer, what it has heard, and what it should have.
class Listener {
 public:
  explicit Listener(Posters posters)
      : posters(posters), observer(std::string(expected), posters, [this] { ++heard; }) {}

  void receive(const Sending& sending) {
    const bool toStrangers = sending.toStrangersSocket && posters == Posters::everyone;
    const auto path = socketPath(toStrangers);
    require(path.has_value(), "an observer has its sockets");
    if (!send(*path, sending)) return;
    const bool trusted = sending.sender == 0 || sending.sender == ::geteuid();
    if (sending.text == expected && (toStrangers || trusted)) due[toStrangers ? 1 : 0] = true;
  }

  // Equal notifications that wait together at one socket are one.
  void runLoop() {
    using std::chrono::milliseconds;
    for (int turn = 0; turn < 3; ++turn) {
      require(platform::runLoopRunOnce(milliseconds::zero()), "there is something to wait on");
    }
    require(heard == (due[0] ? 1 : 0) + (due[1] ? 1 : 0), "exactly what is meant is heard");
    heard = 0;
    due = {};
  }

 private:
  Posters posters;
  int heard = 0;
  std::array<bool, 2> due{};
  platform::NotificationObserver observer;
};

void observe(Input& input) {
  constexpr int mostRounds = 4;  // strangers wake a listener five times in ten seconds at most
  constexpr int mostSendings = 16;
  Listener listener(input.flag() ? Posters::everyone : Posters::rootAndOwnUser);
  for (int round = 0; round < mostRounds && !input.empty(); ++round) {
    const int count = input.byte() % mostSendings;
    for (int i = 0; i < count && !input.empty(); ++i) listener.receive(sendingIn(input));
    listener.runLoop();
  }
}

// Whatever a notification is called, its socket's file name says it; any other file name says some
// beginning of itself or nothing.
void readFileName(const std::string& text, std::uint32_t salt, bool forStrangers) {
  if (const auto read = platform::parseSocketFileName(text)) {
    require(text.starts_with(read->notification) && !read->notification.empty(),
            "a file name begins with its notification");
  }
  if (text.empty()) return;
  const std::string fileName = platform::socketFileName({text, forStrangers}, salt);
  const auto read = platform::parseSocketFileName(fileName);
  require(read && read->notification == text && read->forStrangers == forStrangers,
          "a socket is found again by its name");
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  ombrix::tests::enterOwnMachine();
  // What lives as long as the process has its descriptors from now on.
  std::ignore = ombrix::platform::runLoopRunOnce(std::chrono::milliseconds::zero());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  Input input(bytes, size);
  const std::size_t descriptorsBefore = openDescriptorCount();

  const auto salt = input.number<std::uint32_t>();
  readFileName(input.text(), salt, input.flag());
  observe(input);

  require(openDescriptorCount() == descriptorsBefore, "no descriptor is left");
  require(std::filesystem::is_empty("/run/ombrix"), "no socket is left");
  return 0;
}
