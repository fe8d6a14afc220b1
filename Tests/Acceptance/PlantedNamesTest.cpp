#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "Tests/Acceptance/Agent.h"
#include "Tests/Acceptance/Datagrams.h"
#include "Tests/Acceptance/Stranger.h"
#include "Tests/Acceptance/Wait.h"

// Files, links, folders and sockets that wait for root's agent where it is about to look.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* machineFolder = "/run/ombrix";
constexpr const char* temporaryFolder = "/tmp/ombrix-0";
constexpr const char* deaf =
    "No notifications can be received: neither /run/ombrix nor a directory of this user's own "
    "can be used. Commands will not reach this process.\n";

// The agent works like any other, with its sockets in `folder`.
void expectWorksFrom(const std::string& folder, const Launch& launch = ombrix()) {
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_EQ(agent.runtimeFolder(), folder);
  EXPECT_EQ(Agent(Home("/tmp/second"), launch).waitForExit(), 1);
  EXPECT_EQ(run(ombrix({"list"})).errors, "");
  EXPECT_TRUE(eventually([&] { return home.list().ends_with("\n"); }));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_EQ(agent.errors().find(deaf), std::string::npos);
}

// The agent hears no command, and meters until a signal ends it.
void expectMetersUnheard() {
  const Home home;
  Agent agent(home);
  ASSERT_TRUE(agent.hasStarted() && agent.isWaiting());
  EXPECT_EQ(occurrences(agent.errors(), deaf), 1U);
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.waitForExit(), 0);
  EXPECT_EQ(home.records().size(), 3U);
}

void plantFolder(const std::string& path, uid_t owner, mode_t mode) {
  fs::create_directories(path);
  ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
  ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

class Planted : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasSeveralUsers()) GTEST_SKIP() << "there is no other user here";
  }
};

}  // namespace

TEST(PlantedByAnybody, FolderOfTheMachineIsMadeWhenItIsMissing) {
  expectWorksFrom(machineFolder);
  struct stat status {};
  ASSERT_EQ(::stat(machineFolder, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST(PlantedByAnybody, FileInThePlaceOfTheFolderSendsTheAgentElsewhere) {
  writeFile(machineFolder, "a file");
  expectWorksFrom(temporaryFolder);
  EXPECT_EQ(contentsOf(machineFolder), "a file");
}

TEST(PlantedByAnybody, SocketInThePlaceOfTheFolderSendsTheAgentElsewhere) {
  ASSERT_GE(bindSocket(machineFolder), 0);
  expectWorksFrom(temporaryFolder);
  EXPECT_TRUE(fs::is_socket(machineFolder));
}

TEST(PlantedByAnybody, LinkInThePlaceOfTheFolderIsNotFollowed) {
  fs::create_directory("/tmp/trap");
  fs::create_symlink("/tmp/trap", machineFolder);
  expectWorksFrom(temporaryFolder);
  EXPECT_TRUE(fs::is_empty("/tmp/trap"));
}

TEST(PlantedByAnybody, LinkToNowhereInThePlaceOfTheFolderIsNotFollowed) {
  fs::create_symlink("/tmp/trap", machineFolder);
  expectWorksFrom(temporaryFolder);
  EXPECT_FALSE(fs::exists("/tmp/trap"));
}

TEST(PlantedByAnybody, FolderThatAllMayWriteIsNotUsed) {
  fs::create_directory(machineFolder);
  ::chmod(machineFolder, 0777);
  expectWorksFrom(temporaryFolder);
  EXPECT_TRUE(fs::is_empty(machineFolder));
}

TEST(PlantedByAnybody, SocketFilesWithoutAnOwnerAreNoHindrance) {
  fs::create_directory(machineFolder);
  for (int i = 0; i < 100; ++i) {
    const std::string path =
        std::string(machineFolder) + "/com.velkworks.Ombrix2.Stop.1." + std::to_string(i);
    ASSERT_EQ(::close(bindSocket(path)), 0);
  }
  expectWorksFrom(machineFolder);
  EXPECT_TRUE(fs::is_empty(machineFolder));
}

TEST(PlantedByAnybody, OtherThingsInTheFolderAreLeftAlone) {
  const std::string name = std::string(machineFolder) + "/com.velkworks.Ombrix2.Stop.1.";
  fs::create_directory(machineFolder);
  writeFile(name + "1", "a file");
  fs::create_directory(name + "2");
  fs::create_symlink("/tmp/nowhere", name + "3");
  ASSERT_EQ(::mkfifo((name + "4").c_str(), 0600), 0);
  writeFile(std::string(machineFolder) + "/notes", "a file");
  expectWorksFrom(machineFolder);
  EXPECT_EQ(namesIn(machineFolder).size(), 5U);
}

TEST_F(Planted, FolderOfAnotherUsersIsNotUsed) {
  plantFolder(machineFolder, stranger, 0755);
  expectWorksFrom(temporaryFolder);
  EXPECT_TRUE(fs::is_empty(machineFolder));
}

TEST_F(Planted, NoFolderThatIsSafeLeavesTheAgentUnheard) {
  const std::vector<std::function<void()>> plants = {
      [] { plantFolder(temporaryFolder, stranger, 0777); },
      [] { fs::create_symlink("/tmp/trap", temporaryFolder); },
      [] { writeFile(temporaryFolder, "a file"); },
      [] { ASSERT_GE(bindSocket(temporaryFolder), 0); },
  };
  writeFile(machineFolder, "a file");
  fs::create_directory("/tmp/trap");
  for (const auto& plant : plants) {
    plant();
    expectMetersUnheard();
    EXPECT_TRUE(fs::is_empty("/tmp/trap"));
    fs::remove_all(temporaryFolder);
    fs::remove_all("/tmp/home");
  }
}

TEST_F(Planted, TemporaryFolderOfAnotherUsersIsNoHindranceToTheMachines) {
  plantFolder(temporaryFolder, stranger, 0777);
  expectWorksFrom(machineFolder);
  EXPECT_TRUE(fs::is_empty(temporaryFolder));
}

// Root may have come by the variable from the user who called it.
TEST_F(Planted, RuntimeFolderOfAnotherUsersIsNotUsed) {
  writeFile(machineFolder, "a file");
  plantFolder("/run/user/12345", stranger, 0700);
  Launch launch = ombrix();
  launch.environment = {"XDG_RUNTIME_DIR=/run/user/12345"};
  const Home home;
  Agent agent(home, launch);
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_TRUE(asUser(stranger, [] { return fs::is_empty("/run/user/12345"); }));
  EXPECT_EQ(agent.stop(), 0);
}

TEST_F(Planted, FullQueuesOfAnotherUserDelayNobody) {
  const Pest owner(stranger, [] {
    ::mkdir("/tmp/ombrix-12345", 0700);
    for (int i = 0; i < 200; ++i) {
      for (const char* name : {"LaunchCall", "LaunchResponse", "Stop", "List"}) {
        const std::string path =
            "/tmp/ombrix-12345/" + notificationNamed(name) + ".1." + std::to_string(i);
        bindSocket(path);
        while (sendDatagram(path, "filler") == 0) continue;
      }
    }
    for (;;) ::pause();
  });
  ASSERT_TRUE(eventually([] { return namesIn("/tmp/ombrix-12345").size() == 800; }));
  expectWorksFrom(machineFolder);
  EXPECT_EQ(namesIn("/tmp/ombrix-12345").size(), 800U);
}

TEST_F(Planted, PretendedAgentOfAnotherUserDelaysNoAnswer) {
  const Pest pretender(stranger, [] {
    ::mkdir("/tmp/ombrix-12345", 0700);
    bindSocket("/tmp/ombrix-12345/" + notificationNamed("LaunchCall") + ".1.1");
    for (;;) ::pause();
  });
  ASSERT_TRUE(eventually([] { return namesIn("/tmp/ombrix-12345").size() == 1; }));
  Agent first(Home("/tmp/first"));
  ASSERT_TRUE(first.hasStarted());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Agent(Home("/tmp/second")).waitForExit(), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
  EXPECT_EQ(first.stop(), 0);
}

TEST_F(Planted, ManyNamesInTheTemporaryFolderAreNoHindrance) {
  EXPECT_TRUE(asUser(stranger, [] {
    for (int i = 0; i < 6000; ++i) writeFile("/tmp/ombrix-" + std::to_string(i + 1), "");
    return true;
  }));
  expectWorksFrom(machineFolder);
}

TEST_F(Planted, LinksOfAnotherUserToRootsFilesAreNotTouched) {
  writeFile("/tmp/precious", "precious");
  EXPECT_TRUE(asUser(stranger, [] {
    fs::create_directory("/tmp/ombrix-12345");
    for (const char* name : {"LaunchCall", "LaunchResponse", "Stop", "List"}) {
      fs::create_symlink("/tmp/precious", "/tmp/ombrix-12345/" + notificationNamed(name) + ".1.1");
    }
    return true;
  }));
  expectWorksFrom(machineFolder);
  EXPECT_EQ(contentsOf("/tmp/precious"), "precious");
}

}  // namespace ombrix::tests
