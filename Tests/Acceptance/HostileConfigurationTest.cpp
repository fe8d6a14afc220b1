#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "Tests/Acceptance/Agent.h"

// Configuration files that mean harm, or are none.

namespace ombrix::tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* notLoaded = "ConfigurationManager: Error setting up NSXMLDocument\n";
// A sanitizer's shadow memory counts as well.
constexpr long memoryBoundKibibytes = OMBRIX_SANITIZED ? 512L * 1024 : 48L * 1024;

// The most memory that the process ever had.
long peakKibibytes(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
  }
  return -1;
}

// An agent goes on with the defaults when `path` is its configuration file.
void expectGoesOnWithout(const std::string& path) {
  SCOPED_TRACE(path);
  const Home home;  // its own file stands for the defaults
  fs::create_directories("/tmp/home/data");
  Agent agent(home, ombrix({"-c", path}));
  ASSERT_TRUE(agent.hasStarted());
  EXPECT_LT(peakKibibytes(agent.id()), memoryBoundKibibytes);
  EXPECT_TRUE(contains(agent.errors(), notLoaded));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(contentsOf("/tmp/home/data/metering.log"), notLoaded));
}

// An agent that starts with this text in its file, within bounds.
Agent startWith(const Home& home, const std::string& text) {
  home.configure(text);
  Agent agent(home);
  EXPECT_TRUE(agent.hasStarted()) << agent.errors();
  EXPECT_LT(peakKibibytes(agent.id()), memoryBoundKibibytes);
  return agent;
}

// Ten names, each of which stands for ten of the one before.
std::string laughingEntities() {
  std::string text = "<!DOCTYPE c [<!ENTITY lol0 \"lollollollollollollol\">";
  for (int depth = 1; depth <= 9; ++depth) {
    text += "<!ENTITY lol" + std::to_string(depth) + " \"";
    for (int i = 0; i < 10; ++i) text += "&lol" + std::to_string(depth - 1) + ";";
    text += "\">";
  }
  return text + "]>";
}

}  // namespace

TEST(HostileConfiguration, EmptyFileSetsNothing) {
  writeFile("/tmp/empty.config", "");
  expectGoesOnWithout("/tmp/empty.config");
}

TEST(HostileConfiguration, FileThatIsNoXmlSetsNothing) {
  writeFile("/tmp/text.config", "This is no configuration.");
  expectGoesOnWithout("/tmp/text.config");
}

TEST(HostileConfiguration, BytesOfAProgramSetNothing) {
  fs::copy_file("/proc/self/exe", "/tmp/program.config");
  expectGoesOnWithout("/tmp/program.config");
}

TEST(HostileConfiguration, DirectorySetsNothing) {
  fs::create_directories("/tmp/folder.config");
  expectGoesOnWithout("/tmp/folder.config");
}

TEST(HostileConfiguration, PipeSetsNothingAndIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo("/tmp/pipe.config", 0600), 0);
  expectGoesOnWithout("/tmp/pipe.config");
}

TEST(HostileConfiguration, EndlessDeviceSetsNothing) { expectGoesOnWithout("/dev/zero"); }

TEST(HostileConfiguration, HugeFileSetsNothing) {
  std::ofstream file("/tmp/huge.config");
  file << "<Configuration>" << std::string(64U << 20U, ' ') << "</Configuration>";
  file.close();
  expectGoesOnWithout("/tmp/huge.config");
}

TEST(HostileConfiguration, FileThatDeclaresEntitiesIsNoConfiguration) {
  const Home home;
  Agent agent = startWith(home,
                          "<!DOCTYPE c [<!ENTITY place \"/tmp/placed\">]><Configuration>"
                          "<SystemSettings><Setting key=\"env.data_dir\" value=\"&place;\"/>"
                          "</SystemSettings></Configuration>");
  EXPECT_TRUE(contains(agent.errors(), "ConfigurationManager: Error setting up NSXMLDocument"));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(fs::exists("/tmp/placed"));
}

TEST(HostileConfiguration, ExternalEntityIsNeverRead) {
  writeFile("/tmp/level", "info");
  const Home home;
  Agent agent = startWith(home,
                          "<!DOCTYPE c [<!ENTITY level SYSTEM \"file:///tmp/level\">]>"
                          "<Configuration><Logging><Level>&level;</Level></Logging>"
                          "</Configuration>");
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(contains(agent.errors(), "Starting Ombrix"));
}

TEST(HostileConfiguration, ExternalEntityThatIsAPipeIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo("/tmp/pipe", 0600), 0);
  const Home home;
  Agent agent = startWith(home,
                          "<!DOCTYPE c [<!ENTITY level SYSTEM \"/tmp/pipe\">]>"
                          "<Configuration><Logging><Level>&level;</Level></Logging>"
                          "</Configuration>");
  EXPECT_EQ(agent.stop(), 0);
}

TEST(HostileConfiguration, ExternalDefinitionsAreNeverRead) {
  writeFile("/tmp/outside.dtd", "<!ENTITY place \"/tmp/placed\">");
  for (const char* doctype :
       {"<!DOCTYPE c SYSTEM \"/tmp/outside.dtd\">",
        "<!DOCTYPE c [<!ENTITY % outside SYSTEM \"/tmp/outside.dtd\"> %outside;]>"}) {
    SCOPED_TRACE(doctype);
    const Home home;
    Agent agent = startWith(home, std::string(doctype) +
                                      "<Configuration><SystemSettings><Setting "
                                      "key=\"env.data_dir\" value=\"&place;\"/></SystemSettings>"
                                      "</Configuration>");
    EXPECT_EQ(agent.stop(), 0);
    EXPECT_FALSE(fs::exists("/tmp/placed"));
  }
}

TEST(HostileConfiguration, IncludedFileIsNeverRead) {
  writeFile("/tmp/level", "info");
  const Home home;
  Agent agent = startWith(home,
                          "<Configuration xmlns:xi=\"http://www.w3.org/2001/XInclude\"><Logging>"
                          "<Level><xi:include href=\"/tmp/level\" parse=\"text\"/></Level>"
                          "</Logging></Configuration>");
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_FALSE(contains(agent.errors(), "Starting Ombrix"));
}

TEST(HostileConfiguration, EntitiesThatGrowBeyondMeasureTakeNoMemory) {
  const Home home;
  Agent agent = startWith(home, laughingEntities() +
                                    "<Configuration><Logging><Level>&lol9;</Level></Logging>"
                                    "</Configuration>");
  EXPECT_EQ(agent.stop(), 0);
}

TEST(HostileConfiguration, EntitiesThatGrowInAnAttributeTakeNoMemory) {
  const Home home;
  Agent agent = startWith(home, laughingEntities() +
                                    "<Configuration><SystemSettings><Setting key=\"env.data_dir\" "
                                    "value=\"&lol9;\"/></SystemSettings></Configuration>");
  EXPECT_EQ(agent.stop(), 0);
}

TEST(HostileConfiguration, ElementsOfEndlessDepthAreSurvived) {
  std::string text;
  for (int depth = 0; depth < 100000; ++depth) text += "<a>";
  const Home home;
  Agent agent = startWith(home, text);
  EXPECT_EQ(agent.stop(), 0);
}

TEST(HostileConfiguration, PathTooLongForTheSystemIsSurvived) {
  const Home home;
  Settings settings = home.settings();
  settings.storage = "/tmp/" + std::string(100000, 'x');
  Agent agent = startWith(home, configurationText(settings));
  EXPECT_EQ(agent.stop(), 0);
  EXPECT_TRUE(contains(home.log(), "Could not create selected .\n"));
}

}  // namespace ombrix::tests
