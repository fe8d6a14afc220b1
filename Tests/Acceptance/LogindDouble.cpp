#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

// Stands in for logind on a private bus: hands out inhibitor locks and sees them closed, and
// announces sleep and wake when it is told to. Listens to the same calls as logind, and to those of
// the interface org.freedesktop.login1.Double:
//   Announce(b)          says that the machine is about to sleep (true) or awake again (false)
//   SetPreparing(b)      changes the property only
//   RefuseLocks(b)       whether later requests for a lock are refused
//   LocksTaken() -> u    how many locks were ever handed out

namespace {

struct Lock {
  std::string what;
  std::string who;
  std::string why;
  std::string mode;
  uid_t user = 0;
  pid_t process = 0;
  int readEnd = -1;  // polls as hung up when the holder has closed its end
  sd_event_source* source = nullptr;
};

struct Logind {
  sd_bus* bus = nullptr;
  sd_event* loop = nullptr;
  std::vector<std::unique_ptr<Lock>> locks;
  int preparing = 0;
  int refusing = 0;
  std::uint32_t taken = 0;
};

Logind& logind() {
  static Logind theOne;
  return theOne;
}

int onReleased(sd_event_source* source, int descriptor, std::uint32_t /*events*/, void* reference) {
  std::erase_if(logind().locks, [=](const auto& lock) { return lock.get() == reference; });
  sd_event_source_unref(source);
  ::close(descriptor);
  return 0;
}

void describeHolder(sd_bus_message* request, Lock& lock) {
  sd_bus_creds* credentials = nullptr;
  if (sd_bus_query_sender_creds(request, SD_BUS_CREDS_PID | SD_BUS_CREDS_EUID, &credentials) < 0) {
    return;
  }
  sd_bus_creds_get_pid(credentials, &lock.process);
  sd_bus_creds_get_euid(credentials, &lock.user);
  sd_bus_creds_unref(credentials);
}

int onInhibit(sd_bus_message* request, void* /*reference*/, sd_bus_error* error) {
  const char* what = nullptr;
  const char* who = nullptr;
  const char* why = nullptr;
  const char* mode = nullptr;
  if (const int r = sd_bus_message_read(request, "ssss", &what, &who, &why, &mode); r < 0) return r;
  if (logind().refusing != 0) {
    return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "Permission denied");
  }
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) return -errno;
  auto lock = std::make_unique<Lock>();
  lock->what = what;
  lock->who = who;
  lock->why = why;
  lock->mode = mode;
  lock->readEnd = ends[0];
  describeHolder(request, *lock);
  sd_event_add_io(logind().loop, &lock->source, ends[0], EPOLLHUP, onReleased, lock.get());
  logind().locks.push_back(std::move(lock));
  ++logind().taken;
  const int replied = sd_bus_reply_method_return(request, "h", ends[1]);
  ::close(ends[1]);
  return replied;
}

int onListInhibitors(sd_bus_message* request, void* /*reference*/, sd_bus_error* /*error*/) {
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_return(request, &reply);
  sd_bus_message_open_container(reply, 'a', "(ssssuu)");
  for (const auto& lock : logind().locks) {
    sd_bus_message_append(reply, "(ssssuu)", lock->what.c_str(), lock->who.c_str(),
                          lock->why.c_str(), lock->mode.c_str(), lock->user,
                          static_cast<std::uint32_t>(lock->process));
  }
  sd_bus_message_close_container(reply);
  const int sent = sd_bus_send(logind().bus, reply, nullptr);
  sd_bus_message_unref(reply);
  return sent;
}

int onAnnounce(sd_bus_message* request, void* /*reference*/, sd_bus_error* /*error*/) {
  sd_bus_message_read(request, "b", &logind().preparing);
  sd_bus_emit_signal(logind().bus, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                     "PrepareForSleep", "b", logind().preparing);
  return sd_bus_reply_method_return(request, "");
}

int onSetPreparing(sd_bus_message* request, void* /*reference*/, sd_bus_error* /*error*/) {
  sd_bus_message_read(request, "b", &logind().preparing);
  return sd_bus_reply_method_return(request, "");
}

int onRefuseLocks(sd_bus_message* request, void* /*reference*/, sd_bus_error* /*error*/) {
  sd_bus_message_read(request, "b", &logind().refusing);
  return sd_bus_reply_method_return(request, "");
}

int onLocksTaken(sd_bus_message* request, void* /*reference*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(request, "u", logind().taken);
}

int getPreparing(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                 const char* /*property*/, sd_bus_message* reply, void* /*reference*/,
                 sd_bus_error* /*error*/) {
  return sd_bus_message_append(reply, "b", logind().preparing);
}

const sd_bus_vtable managerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Inhibit", "ssss", "h", onInhibit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ListInhibitors", "", "a(ssssuu)", onListInhibitors, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("PreparingForSleep", "b", getPreparing, 0, 0),
    SD_BUS_SIGNAL("PrepareForSleep", "b", 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable doubleTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Announce", "b", "", onAnnounce, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("SetPreparing", "b", "", onSetPreparing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RefuseLocks", "b", "", onRefuseLocks, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("LocksTaken", "", "u", onLocksTaken, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main() {
  Logind& self = logind();
  constexpr const char* object = "/org/freedesktop/login1";
  const bool ready =
      sd_event_default(&self.loop) >= 0 && sd_bus_open_system(&self.bus) >= 0 &&
      sd_bus_add_object_vtable(self.bus, nullptr, object, "org.freedesktop.login1.Manager",
                               managerTable, nullptr) >= 0 &&
      sd_bus_add_object_vtable(self.bus, nullptr, object, "org.freedesktop.login1.Double",
                               doubleTable, nullptr) >= 0 &&
      sd_bus_attach_event(self.bus, self.loop, SD_EVENT_PRIORITY_NORMAL) >= 0 &&
      sd_bus_set_exit_on_disconnect(self.bus, 1) >= 0 &&
      sd_bus_request_name(self.bus, "org.freedesktop.login1", 0) >= 0;
  if (!ready) {
    std::fputs("The double of logind could not be put on the bus.\n", stderr);
    return EXIT_FAILURE;
  }
  std::puts("ready");
  std::fflush(stdout);
  return sd_event_loop(self.loop) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
