#include "Tests/Acceptance/Agent.h"

#include <unistd.h>

#include <filesystem>
#include <tuple>
#include <utility>

#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Wait.h"

namespace ombrix::tests {

namespace {

std::string settingElement(const char* key, const std::optional<std::string>& value) {
  if (!value) return {};
  return "<Setting key=\"" + std::string(key) + "\" value=\"" + *value + "\"/>";
}

std::string textElement(const std::string& name, const std::optional<std::string>& text) {
  if (!text) return {};
  return "<" + name + ">" + *text + "</" + name + ">";
}

Launch inFolder(const std::string& folder, Launch launch) {
  launch.directory = folder;
  return launch;
}

}  // namespace

std::string configurationText(const Settings& settings) {
  return "<Configuration><SystemSettings>" + settingElement("env.data_dir", settings.storage) +
         settingElement("env.temp_dir", settings.temporary) +
         settingElement("env.log_dir", settings.log) + "</SystemSettings><Logging>" +
         textElement("MaxSize", settings.maxSize) + textElement("Level", settings.level) +
         "</Logging></Configuration>";
}

Home::Home(std::string folder, uid_t owner) : home(std::move(folder)) {
  std::filesystem::create_directories(home);
  std::ignore = ::chown(home.c_str(), owner, owner);
  configure(configurationText(settings()));
}

Settings Home::settings() const {
  return {storage(), home + "/temporary", home + "/log", std::nullopt, "info"};
}

void Home::configure(const std::string& text) const { writeFile(home + "/velkagent.config", text); }

std::vector<Record> Home::records() const {
  std::vector<Record> records;
  for (const std::string& name : namesIn(storage())) {
    if (!name.ends_with(".met")) continue;
    records.push_back(parseRecord(contentsOf(storage() + "/" + name)));
  }
  return records;
}

std::vector<Record> Home::recordsOf(const std::string& name) const {
  std::vector<Record> records = this->records();
  std::erase_if(records, [&name](const Record& record) { return record.name != name; });
  return records;
}

Agent::Agent(const Home& home, const Launch& launch)
    : Program(inFolder(home.folder(), launch)), user(launch.user.value_or(0)) {}

std::size_t Agent::polls() const {
  return occurrences(errors(), "Number of registered processes: ");
}

bool Agent::waitForPolls(std::size_t count) const {
  return eventually([this, count] { return polls() >= count; });
}

// It sleeps nowhere else for longer than a moment.
bool Agent::isWaiting() const {
  return eventually([this] { return state() == 'S'; });
}

bool Agent::poll() const {
  if (!hasStarted()) return false;
  const std::size_t before = polls();
  return sendDatagram(socketOf("List"), notificationNamed("List")) == 0 &&
         waitForPolls(before + 1) && isWaiting();
}

bool Agent::pollUntil(const std::function<bool()>& condition) const {
  return eventually([&] { return poll() && condition(); });
}

// A poll that was under way when something happened may have seen it or not; the next one has.
bool Agent::meterProgram(const std::string& name) const {
  if (!hasStarted()) return false;
  {
    const Program program(idler("/tmp/tools/" + name));
    if (!poll() || !poll()) return false;
  }
  return poll() && poll();
}

std::string Agent::socketOf(const std::string& notification) const {
  const std::string own = std::to_string(user);
  const std::string mark = std::string(".").append(std::to_string(id())).append(".");
  for (const std::string& folder : {std::string("/run/ombrix"), std::string("/run/ombrix/agent"),
                                    "/run/user/" + own + "/ombrix", "/tmp/ombrix-" + own}) {
    for (const std::string& path : socketsOf(notification, folder)) {
      if (contains(path, mark) && !path.ends_with(".public")) return path;
    }
  }
  return {};
}

std::string Agent::runtimeFolder() const {
  return std::filesystem::path(socketOf("Stop")).parent_path().string();
}

std::optional<int> Agent::stop() {
  std::ignore = run(ombrix({"stop"}));
  return waitForExit();
}

}  // namespace ombrix::tests
