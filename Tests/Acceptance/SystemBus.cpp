#include "Tests/Acceptance/SystemBus.h"

#include <systemd/sd-bus.h>

#include <memory>
#include <stdexcept>

#include "Tests/Acceptance/Files.h"
#include "Tests/Acceptance/Namespaces.h"
#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* object = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr const char* doubleInterface = "org.freedesktop.login1.Double";

constexpr const char* configuration = R"(<busconfig>
  <type>system</type>
  <listen>unix:path=/run/test-bus</listen>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)";

struct BusDeleter {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct MessageDeleter {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

// Null when the daemon does not answer.
Bus connect() {
  sd_bus* created = nullptr;
  sd_bus_new(&created);
  Bus bus(created);
  const char* uniqueName = nullptr;
  if (sd_bus_set_address(created, "unix:path=/run/test-bus") < 0 ||
      sd_bus_set_bus_client(created, 1) < 0 || sd_bus_start(created) < 0 ||
      sd_bus_get_unique_name(created, &uniqueName) < 0) {
    return nullptr;
  }
  return bus;
}

// The reply to a method call without or with one boolean argument; null when there is none.
Message call(const char* interface, const char* method, std::optional<bool> argument = {}) {
  const Bus bus = connect();
  if (!bus) return nullptr;
  sd_bus_message* reply = nullptr;
  if (argument) {
    sd_bus_call_method(bus.get(), service, object, interface, method, nullptr, &reply, "b",
                       *argument ? 1 : 0);
  } else {
    sd_bus_call_method(bus.get(), service, object, interface, method, nullptr, &reply, "");
  }
  return Message(reply);
}

void tell(const char* method, bool argument) {
  if (!call(doubleInterface, method, argument)) throw std::runtime_error(method);
}

// The unique names on the bus, that of this connection and the daemon's own left out.
std::vector<std::string> connectionsOf(sd_bus* bus) {
  char** names = nullptr;
  sd_bus_list_names(bus, &names, nullptr);
  const char* own = nullptr;
  sd_bus_get_unique_name(bus, &own);
  std::vector<std::string> found;
  for (char** name = names; name != nullptr && *name != nullptr; ++name) {
    if (**name == ':' && std::string(*name) != own) found.emplace_back(*name);
    std::free(*name);
  }
  std::free(names);
  return found;
}

}  // namespace

SystemBus::SystemBus() {
  writeFile("/run/test-bus.conf", configuration);
  restart();
}

void SystemBus::restart() {
  daemon.emplace(Launch{"/usr/bin/dbus-daemon",
                        {"dbus-daemon", "--config-file=/run/test-bus.conf", "--nofork"}});
  if (!eventually([] { return connect() != nullptr; })) throw std::runtime_error("no bus");
}

void Logind::start() {
  program.emplace(
      Launch{executableFolder() + "/LogindDouble", {"logind"}, "/tmp", {}, {SystemBus::address}});
  if (!eventually([this] { return contains(program->output(), "ready"); })) {
    throw std::runtime_error("no logind: " + program->errors());
  }
}

void Logind::announce(bool sleeping) const { tell("Announce", sleeping); }

void Logind::setPreparing(bool sleeping) const { tell("SetPreparing", sleeping); }

void Logind::refuseLocks() const { tell("RefuseLocks", true); }

std::vector<Inhibitor> Logind::inhibitors() const {
  std::vector<Inhibitor> found;
  const Message reply = call(managerInterface, "ListInhibitors");
  if (!reply || sd_bus_message_enter_container(reply.get(), 'a', "(ssssuu)") < 0) return found;
  const char* what = nullptr;
  const char* who = nullptr;
  const char* why = nullptr;
  const char* mode = nullptr;
  std::uint32_t user = 0;
  std::uint32_t process = 0;
  while (sd_bus_message_read(reply.get(), "(ssssuu)", &what, &who, &why, &mode, &user, &process) >
         0) {
    found.push_back({what, who, why, mode});
  }
  return found;
}

std::uint32_t Logind::locksTaken() const {
  std::uint32_t taken = 0;
  const Message reply = call(doubleInterface, "LocksTaken");
  if (reply) sd_bus_message_read(reply.get(), "u", &taken);
  return taken;
}

bool Logind::waitForLocks(std::size_t count) const {
  return eventually([this, count] { return inhibitors().size() == count; });
}

bool forgeSleepAnnouncement(uid_t user) {
  return asUser(user, [] {
    const Bus bus = connect();
    if (!bus) return false;
    for (const std::string& destination : connectionsOf(bus.get())) {
      sd_bus_message* created = nullptr;
      sd_bus_message_new_signal(bus.get(), &created, object, managerInterface, "PrepareForSleep");
      const Message signal(created);
      sd_bus_message_append(created, "b", 1);
      if (sd_bus_send_to(bus.get(), created, destination.c_str(), nullptr) < 0) return false;
    }
    return sd_bus_flush(bus.get()) >= 0;
  });
}

}  // namespace ombrix::tests
