#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <tuple>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Stranger.h"
#include "Tests/Acceptance/Wait.h"

// Links of every kind at every name that root's agent writes or moves, with something precious
// behind each of them.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* storage = "/tmp/home/records";
constexpr const char* logFolder = "/tmp/home/log";

// Larger than the log may grow, so that it would also be moved aside.
const std::string precious(4096, 'x');

// Things that the agent must not touch, and a folder in which it must make nothing.
class Victims {
 public:
  Victims() {
    fs::create_directories("/tmp/victim/folder");
    writeFile("/tmp/victim/file", precious);
    ::chmod("/tmp/victim/file", 0640);
    writeFile("/tmp/victim/folder/file", precious);
  }
  static void expectUntouched() {
    EXPECT_TRUE(contentsOf("/tmp/victim/file") == precious);
    EXPECT_TRUE(contentsOf("/tmp/victim/folder/file") == precious);
    EXPECT_EQ(namesIn("/tmp/victim").size(), 2U);
    EXPECT_EQ(namesIn("/tmp/victim/folder").size(), 1U);
    struct stat status {};
    ASSERT_EQ(::stat("/tmp/victim/file", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
  }
};

struct Kind {
  const char* name;
  void (*plant)(const fs::path& path);
};

void PrintTo(const Kind& kind, std::ostream* stream) { *stream << kind.name; }

const Kind kinds[] = {
    {"LinkToAFile", [](const fs::path& path) { fs::create_symlink("/tmp/victim/file", path); }},
    {"LinkToNowhere", [](const fs::path& path) { fs::create_symlink("/tmp/victim/new", path); }},
    {"LinkToAFolder", [](const fs::path& path) { fs::create_symlink("/tmp/victim/folder", path); }},
    {"LinkToALink",
     [](const fs::path& path) {
       fs::create_symlink("/tmp/victim/file", path.string() + ".between");
       fs::create_symlink(path.string() + ".between", path);
     }},
    {"OtherName", [](const fs::path& path) { fs::create_hard_link("/tmp/victim/file", path); }},
};

struct Place {
  const char* name;
  const char* path;
};

void PrintTo(const Place& place, std::ostream* stream) { *stream << place.name; }

const Place places[] = {
    {"List", "/tmp/home/records/processes.list"},
    {"Log", "/tmp/home/log/metering.log"},
    {"OldLog", "/tmp/home/log/metering.log.old"},
};

// A home whose log turns over again and again.
Home homeWithSmallLog() {
  Home home;
  Settings settings = home.settings();
  settings.maxSize = "1";
  settings.level = "trace";
  home.configure(configurationText(settings));
  return home;
}

// Makes an agent write and move every file that it ever does.
void runAgent(const Home& home) {
  Agent agent(home);
  ASSERT_TRUE(agent.meterProgram("editor"));
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(agent.poll());
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(home.recordsOf("editor").size(), 1U);
}

void runWithPredictableNames(const Home& home) {
  Launch launch = ombrix();
  launch.environment = {"LD_PRELOAD=" + executableFolder() + "/libPredictableNames.so"};
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted()) << agent.errors();
  EXPECT_EQ(agent.stop(), 0);
}

class PlantedLink : public ::testing::TestWithParam<std::tuple<Place, Kind>> {
 protected:
  const Victims victims;
  const Home home = homeWithSmallLog();
};

// Somebody who owns the agent's folders changes what lies in them as fast as he can.
void swapForEver(const fs::path& path) {
  for (;;) {
    std::error_code error;
    fs::create_symlink("/tmp/victim/file", path, error);
    fs::remove(path, error);
    fs::create_symlink("/tmp/victim/new", path, error);
    fs::remove(path, error);
  }
}

void giveToStranger(const std::string& folder) {
  fs::create_directories(folder);
  ASSERT_EQ(::chown(folder.c_str(), stranger, stranger), 0);
}

}  // namespace

TEST_P(PlantedLink, IsNotWrittenThrough) {
  const auto& [place, kind] = GetParam();
  fs::create_directories(storage);
  fs::create_directories(logFolder);
  kind.plant(place.path);
  runAgent(home);
  Victims::expectUntouched();
}

INSTANTIATE_TEST_SUITE_P(
    At, PlantedLink, ::testing::Combine(::testing::ValuesIn(places), ::testing::ValuesIn(kinds)),
    [](const auto& row) {
      return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name;
    });

// Nobody can know the name of the next record, and it would not help him.
TEST(PlantedRecord, LinkAtTheNameOfTheNextRecordIsNotWrittenThrough) {
  const Victims victims;
  const Home home;
  runWithPredictableNames(home);
  const std::vector<std::string> names = namesIn(storage);
  ASSERT_EQ(names.size(), 1U) << "all have one name, and only the first can be written";
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    fs::remove_all(storage);
    fs::remove(home.logFile());
    fs::create_directories(storage);
    kind.plant(fs::path(storage) / names.front());
    runWithPredictableNames(home);
    EXPECT_EQ(occurrences(home.log(), "Could not write met file [/tmp/home/records/"), 3U);
    EXPECT_TRUE(fs::exists(fs::symlink_status(fs::path(storage) / names.front())));
    Victims::expectUntouched();
  }
}

// Whoever may write to /tmp can be there before the agent of a machine's default configuration.
TEST(PlantedFolder, LinkToNowhereInThePlaceOfAFolderMakesNothingThere) {
  const Victims victims;
  for (const char* folder : {"records", "log", "temporary"}) {
    const Home home = homeWithSmallLog();
    fs::create_symlink("/tmp/victim/new", std::string("/tmp/home/") + folder);
    Agent agent(home);
    ASSERT_TRUE(agent.poll());
    EXPECT_EQ(agent.stop(), 0);
    Victims::expectUntouched();
    fs::remove_all("/tmp/home");
  }
}

TEST(PlantedFolder, TemporaryOneThatLeadsElsewhereGetsNothing) {
  const Victims victims;
  const Home home = homeWithSmallLog();
  fs::create_symlink("/tmp/victim/folder", "/tmp/home/temporary");
  runAgent(home);
  Victims::expectUntouched();
}

TEST(SomebodyElsesFolder, LinksThatComeAndGoInItAreNeverWrittenThrough) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  const Victims victims;
  const Home home = homeWithSmallLog();
  giveToStranger(storage);
  giveToStranger(logFolder);
  for (const Place& place : places) {
    const Pest pest(stranger, [&place] { swapForEver(place.path); });
    Agent agent(home);
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(agent.poll());
    EXPECT_EQ(agent.stop(), 0);
    Victims::expectUntouched();
  }
}

TEST(SomebodyElsesFolder, RecordsInItAreRootsAndNobodyElsesToWrite) {
  if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  const Home home;
  giveToStranger(storage);
  runAgent(home);
  for (const auto& entry : fs::directory_iterator(storage)) {
    struct stat status {};
    ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 0U) << entry.path();
    EXPECT_EQ(status.st_mode & 0022U, 0U) << entry.path();
  }
}

}  // namespace ombrix::tests
