#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "Platform/FileDescriptor.h"
#include "Platform/ProcessEnvironment.h"
#include "Tests/Unit/UtilityTestSupport.h"

// The agent's own main(), built under another name because the tests have one too.
int ombrixMain(int argumentCount, char** arguments);

namespace ombrix {

namespace {

// How much had been posted at each call of secureProcessEnvironment().
std::vector<std::size_t> postsWhenSecured;

}  // namespace

namespace platform {

// The tests' process is not for the agent to change.
void secureProcessEnvironment() {
  postsWhenSecured.push_back(tests::FakeMachine::current().posted.size());
}

}  // namespace platform

namespace {

using platform::FileDescriptor;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

// Standard output goes to the file "output" while it lives.
class OutputToFile {
 public:
  OutputToFile() : before(::dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const FileDescriptor file(::open("output", O_WRONLY | O_CREAT | O_TRUNC, 0600));
    ::dup2(file.get(), STDOUT_FILENO);
  }
  ~OutputToFile() {
    std::fflush(stdout);
    ::dup2(before.get(), STDOUT_FILENO);
  }
  OutputToFile(const OutputToFile&) = delete;
  OutputToFile& operator=(const OutputToFile&) = delete;

 private:
  FileDescriptor before;
};

class MainTest : public tests::ScratchFolderTest {
 protected:
  // Runs the program with these words and returns its exit status.
  int run(std::vector<std::string> words) {
    words.insert(words.begin(), "./Ombrix");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const OutputToFile redirected;
    return ombrixMain(static_cast<int>(words.size()), arguments.data());
  }

  // What the program printed.
  static std::string output() { return tests::contentsOf("output"); }
};

TEST_F(MainTest, StopSaysSoPostsAndEnds) {
  EXPECT_EQ(run({"stop"}), 0);

  EXPECT_THAT(machine.systemLog, ElementsAre("Shutting down Ombrix."));
  EXPECT_THAT(machine.posted, ElementsAre("com.velkworks.Ombrix2.Stop"));
  EXPECT_EQ(output(), "");
}

TEST_F(MainTest, ListPostsAndEndsInSilence) {
  EXPECT_EQ(run({"-list"}), 0);

  EXPECT_THAT(machine.posted, ElementsAre("com.velkworks.Ombrix2.List"));
  EXPECT_THAT(machine.systemLog, IsEmpty());
  EXPECT_EQ(output(), "");
}

TEST_F(MainTest, TheShortVersionIsTheNumberAndALineEnd) {
  EXPECT_EQ(run({"-vnum"}), 0);

  EXPECT_EQ(output(), "6.2.1\n");
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(MainTest, TheLongVersionEndsInABlankAndALineEnd) {
  for (const char* word : {"-V", "--VERSION", "v", "ver-sion"}) {
    EXPECT_EQ(run({word}), 0) << word;
    EXPECT_EQ(output(), "Quantavo Metering for OS X - version 6.2.1 \n") << word;
  }
  EXPECT_THAT(machine.systemLog, IsEmpty());
}

TEST_F(MainTest, TheOptionWithoutItsPathIsExplained) {
  EXPECT_EQ(run({"-c"}), 1);

  EXPECT_THAT(machine.systemLog,
              ElementsAre("With the -C/ConfigFile option you must also specify a full path to the "
                          "configuration file. Example: ./Ombrix -C velkagent.config"));
  EXPECT_THAT(machine.posted, IsEmpty());
  EXPECT_EQ(output(), "");
}

TEST_F(MainTest, TheProcessIsMadeSafeBeforeItPostsAnything) {
  EXPECT_EQ(run({"list"}), 0);

  EXPECT_THAT(postsWhenSecured, ElementsAre(0U));
}

TEST_F(MainTest, ThePathAfterTheOptionIsTheConfigurationThatTheAgentRunsWith) {
  tests::writeFile("stop",
                   "<Configuration><SystemSettings><Setting key='env.data_dir' value='of-stop'/>"
                   "</SystemSettings></Configuration>");
  for (const int processId : {1, 2, 3}) machine.run(processId, "process");

  EXPECT_EQ(run({"-c", "stop"}), 0);

  EXPECT_TRUE(std::filesystem::is_directory("of-stop"));
  EXPECT_EQ(machine.fetches, 1);
}

TEST_F(MainTest, WithoutACommandOrAConfigurationTheAgentEndsInFailure) {
  EXPECT_EXIT(run({"unknown"}), ExitedWithCode(1), "ConfigurationFilePath is empty. Quitting.");
}

}  // namespace
}  // namespace ombrix
