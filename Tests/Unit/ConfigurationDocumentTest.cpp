#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "Platform/FileDescriptor.h"
#include "Tests/Unit/UtilityTestSupport.h"
#include "Utilities/Configuration/ConfigurationDocument.h"

namespace ombrix {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Reading = ConfigurationDocument::Reading;
using tests::Watchdog;
using tests::writeFile;

constexpr const char* path = "agent.config";
constexpr const char* query = "/Configuration/Level";

class ConfigurationDocumentTest : public tests::ScratchFolderTest {};

std::string document(const std::string& level, const std::string& declarations = "") {
  const std::string type =
      declarations.empty() ? "" : "<!DOCTYPE Configuration [" + declarations + "]>";
  return "<?xml version=\"1.0\"?>" + type + "<Configuration><Level>" + level +
         "</Level></Configuration>";
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

std::optional<ConfigurationDocument> parse(const std::string& text, Reading reading) {
  writeFile(path, text);
  return ConfigurationDocument::parse(path, reading);
}

// The level that the agent would find: of the document as written, or else as repaired.
std::string levelOf(const std::string& text) {
  for (const Reading reading : {Reading::asWritten, Reading::repaired}) {
    const auto found = parse(text, reading);
    if (found) return found->firstChild(query).value.value_or("no level");
  }
  return "no document";
}

// Runs `work` on a machine that would not bear much more memory than the test has by then, nor
// endless work. A processor's seconds are counted, so a busy machine fails nothing.
template <class Work>
void expectModesty(const Work& work) {
  constexpr rlim_t seconds = 5;
  rlimit processorTime{};
  ASSERT_EQ(::getrlimit(RLIMIT_CPU, &processorTime), 0);
  processorTime.rlim_cur = seconds;  // beyond it SIGXCPU ends the test
  ASSERT_EQ(::setrlimit(RLIMIT_CPU, &processorTime), 0);
  rusage before{};
  rusage after{};
  ASSERT_EQ(::getrusage(RUSAGE_SELF, &before), 0);

  work();

  ASSERT_EQ(::getrusage(RUSAGE_SELF, &after), 0);
  EXPECT_LT(after.ru_maxrss / before.ru_maxrss, 10);
}

// --- Two ways to read ----------------------------------------------------------------------------

TEST_F(ConfigurationDocumentTest, AQueryOfOneNodeTellsItsTextAndItsAttribute) {
  const auto found =
      parse("<a><b n:key='y' key='x' xmlns:n='urn:n'>text</b></a>", Reading::asWritten);

  ASSERT_TRUE(found);
  EXPECT_TRUE(found->firstChild("/a/b").oneNode);
  EXPECT_EQ(found->firstChild("/a/b").value, "text");
  EXPECT_TRUE(found->attribute("/a/b", "key").oneNode);
  EXPECT_EQ(found->attribute("/a/b", "key").value, "x");
}

TEST_F(ConfigurationDocumentTest, ANodeWithoutSuchAnAttributeOrChildIsStillOneNode) {
  const auto found = parse("<a><b n:key='y' xmlns:n='urn:n'/></a>", Reading::asWritten);

  ASSERT_TRUE(found);
  EXPECT_TRUE(found->attribute("/a/b", "key").oneNode);
  EXPECT_EQ(found->attribute("/a/b", "key").value, std::nullopt);
  EXPECT_TRUE(found->firstChild("/a/b").oneNode);
  EXPECT_EQ(found->firstChild("/a/b").value, std::nullopt);
}

TEST_F(ConfigurationDocumentTest, AQueryOfNoNodeOrOfTwoTellsNothing) {
  const auto found = parse("<a><b key='x'>1</b><b key='x'>2</b></a>", Reading::asWritten);

  ASSERT_TRUE(found);
  for (const char* unanswered : {"/a/b", "/a/c", "/a/b[", "1", "'text'"}) {
    EXPECT_FALSE(found->firstChild(unanswered).oneNode) << unanswered;
    EXPECT_FALSE(found->attribute(unanswered, "key").oneNode) << unanswered;
    EXPECT_EQ(found->attribute(unanswered, "key").value, std::nullopt) << unanswered;
  }
}

TEST_F(ConfigurationDocumentTest, OnlyWellFormedFilesAreTakenAsWritten) {
  EXPECT_TRUE(parse("<a/>", Reading::asWritten));
  for (const char* text : {"", " ", "<a>", "<a></b>", "<a/><b/>", "text", "<a>&unknown;</a>",
                           "<a k='1' k='2'/>", "<!-- nothing -->", "<a>\xFF</a>"}) {
    EXPECT_FALSE(parse(text, Reading::asWritten)) << text;
  }
}

TEST_F(ConfigurationDocumentTest, RepairNeedsARootElementAtLeast) {
  EXPECT_TRUE(parse("<a>", Reading::repaired));
  for (const char* text : {"", " ", "text", "<!-- nothing -->", "<?xml version='1.0'?>"}) {
    EXPECT_FALSE(parse(text, Reading::repaired)) << text;
  }
}

TEST_F(ConfigurationDocumentTest, WhiteSpaceIsKeptAsWrittenAndTrimmedWhenRepaired) {
  EXPECT_EQ(parse(document("\n in fo\t"), Reading::asWritten)->firstChild(query).value,
            "\n in fo\t");
  EXPECT_EQ(parse(document("\n in fo\t"), Reading::repaired)->firstChild(query).value, "in fo");
}

TEST_F(ConfigurationDocumentTest, SectionsAreNodesAsWrittenAndTextWhenRepaired) {
  EXPECT_EQ(parse(document("in<![CDATA[fo]]>"), Reading::asWritten)->firstChild(query).value, "in");
  EXPECT_EQ(parse(document("in<![CDATA[fo]]>"), Reading::repaired)->firstChild(query).value,
            "info");
}

TEST_F(ConfigurationDocumentTest, CharactersByNumberAndThoseOfXmlItselfAreReplaced) {
  EXPECT_EQ(levelOf(document("in&#102;&#x6f;&amp;")), "info&");
}

TEST_F(ConfigurationDocumentTest, AFileThatDeclaresEntitiesIsNone) {
  for (const char* declaration :
       {"<!ENTITY level 'info'>", "<!ENTITY % level 'info'>", "<!ENTITY level SYSTEM 'level'>"}) {
    EXPECT_EQ(levelOf(document("info", declaration)), "no document") << declaration;
  }
}

TEST_F(ConfigurationDocumentTest, AFileThatDeclaresAttributesIsNone) {
  EXPECT_EQ(levelOf(document("info", "<!ATTLIST Level a CDATA 'x'>")), "no document");
  EXPECT_EQ(levelOf(document("info", "<!ATTLIST Level a (x|y) #IMPLIED>")), "no document");
}

TEST_F(ConfigurationDocumentTest, AFileMayNameItsType) {
  EXPECT_EQ(levelOf(document("info", "<!ELEMENT Level ANY>")), "info");
  EXPECT_EQ(levelOf("<!DOCTYPE Configuration SYSTEM 'missing.dtd'>"
                    "<Configuration><Level>info</Level></Configuration>"),
            "info");
}

// --- Files that are no plain XML -----------------------------------------------------------------

TEST_F(ConfigurationDocumentTest, AFileOfTheGreatestSizeIsReadAndOneByteMoreIsNot) {
  constexpr std::size_t asTheManualSays = 131072;
  std::string text = document("info");
  text += std::string(asTheManualSays - text.size(), '\n');
  EXPECT_EQ(levelOf(text), "info");
  EXPECT_EQ(levelOf(text + "\n"), "no document");
}

TEST_F(ConfigurationDocumentTest, OnlyAnOrdinaryFileIsRead) {
  std::filesystem::create_directory("folder");
  ASSERT_EQ(::mkfifo("pipe", 0666), 0);

  const Watchdog watchdog;
  for (const char* file : {"folder", "pipe", "/dev/zero", "/dev/null", "missing", ""}) {
    EXPECT_FALSE(ConfigurationDocument::parse(file, Reading::asWritten)) << file;
    EXPECT_FALSE(ConfigurationDocument::parse(file, Reading::repaired)) << file;
  }
}

TEST_F(ConfigurationDocumentTest, AFileIsReadThroughALink) {
  writeFile("real", document("info"));
  std::filesystem::create_symlink("real", "link");

  EXPECT_TRUE(ConfigurationDocument::parse("link", Reading::asWritten));
}

TEST_F(ConfigurationDocumentTest, EitherOrderOfUtf16IsRead) {
  const std::string narrow = "<Configuration><Level>info</Level></Configuration>";
  std::string littleEndian = "\xFF\xFE";
  std::string bigEndian = "\xFE\xFF";
  for (const char letter : narrow) {
    littleEndian += {letter, '\0'};
    bigEndian += {'\0', letter};
  }
  EXPECT_EQ(levelOf(littleEndian), "info");
  EXPECT_EQ(levelOf(bigEndian), "info");
  littleEndian.pop_back();
  EXPECT_FALSE(parse(littleEndian, Reading::asWritten));
}

TEST_F(ConfigurationDocumentTest, BytesOfNoTextAreNoneOfAWellFormedFile) {
  using std::string_literals::operator""s;
  for (const std::string& text : {document("in\0fo"s), document("in\1fo"), "\0"s}) {
    EXPECT_FALSE(parse(text, Reading::asWritten));
  }
}

TEST_F(ConfigurationDocumentTest, BytesThatAreNotUtf8AreAnEmptyValueWhenRepaired) {
  const auto found = parse("<a><b k='caf\xE9'>in\xFFo</b></a>", Reading::repaired);

  ASSERT_TRUE(found);
  EXPECT_EQ(found->firstChild("/a/b").value, "");
  EXPECT_EQ(found->attribute("/a/b", "k").value, "");
}

TEST_F(ConfigurationDocumentTest, WhatFollowsANulByteIsNeverPartOfAValue) {
  using std::string_literals::operator""s;
  EXPECT_THAT(levelOf(document("in\0fo"s)), Not(HasSubstr("fo")));
  EXPECT_EQ(levelOf("\0"s + document("info")), "no document");
}

TEST_F(ConfigurationDocumentTest, ANameOfAnUnknownEncodingEndsNothing) {
  EXPECT_FALSE(
      parse("<?xml version='1.0' encoding='nonsense'?><Configuration/>", Reading::asWritten));
}

TEST_F(ConfigurationDocumentTest, AnElementOfMoreAttributesThanAnyHasEndsTheFile) {
  const auto withAttributes = [](int count) {
    std::string attributes;
    for (int i = 0; i < count; ++i) attributes += " a" + std::to_string(i) + "=''";
    return "<Configuration" + attributes + "><Level>info</Level></Configuration>";
  };

  EXPECT_EQ(levelOf(withAttributes(256)), "info");
  EXPECT_EQ(levelOf(withAttributes(257)), "no document");
}

// --- Files that reach out ------------------------------------------------------------------------

TEST_F(ConfigurationDocumentTest, AnEntityOfAnotherFileIsNotRead) {
  writeFile("secret", "stolen");
  for (const std::string& place :
       {std::string("secret"), "file://" + folder.path() + "/secret", folder.path() + "/secret"}) {
    EXPECT_THAT(levelOf(document("&x;", "<!ENTITY x SYSTEM '" + place + "'>")),
                Not(HasSubstr("stolen")));
    EXPECT_THAT(levelOf(document("&x;", "<!ENTITY x PUBLIC 'p' '" + place + "'>")),
                Not(HasSubstr("stolen")));
  }
}

TEST_F(ConfigurationDocumentTest, DeclarationsInAnotherFileAreNotRead) {
  writeFile("secret", "<!ENTITY x 'stolen'>");

  EXPECT_THAT(levelOf(document("&x;", "<!ENTITY % all SYSTEM 'secret'> %all;")),
              Not(HasSubstr("stolen")));
  EXPECT_THAT(levelOf("<!DOCTYPE Configuration SYSTEM 'secret'>"
                      "<Configuration><Level>&x;</Level></Configuration>"),
              Not(HasSubstr("stolen")));
}

TEST_F(ConfigurationDocumentTest, AnIncludedFileIsNotRead) {
  writeFile("secret", "stolen");

  EXPECT_THAT(levelOf(document("<i:include xmlns:i='http://www.w3.org/2001/XInclude' parse='text'"
                               " href='secret'/>")),
              Not(HasSubstr("stolen")));
}

TEST_F(ConfigurationDocumentTest, APipeThatIsNamedInAFileIsNotOpened) {
  ASSERT_EQ(::mkfifo("pipe", 0666), 0);

  const Watchdog watchdog;
  EXPECT_THAT(levelOf(document("&x;", "<!ENTITY x SYSTEM 'pipe'>")),
              AnyOf("", "no level", "no document"));
  EXPECT_EQ(levelOf("<!DOCTYPE Configuration SYSTEM 'pipe'>"
                    "<Configuration><Level>info</Level></Configuration>"),
            "info");
}

// A listening socket of this machine alone.
platform::FileDescriptor listenLocally(sockaddr_in& address) {
  platform::FileDescriptor listener(::socket(AF_INET, SOCK_STREAM, 0));
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const plain = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener.get(), plain, length) != 0 || ::listen(listener.get(), 1) != 0 ||
      ::getsockname(listener.get(), plain, &length) != 0) {
    return {};
  }
  return listener;
}

TEST_F(ConfigurationDocumentTest, NobodyIsAskedOverTheNetwork) {
  sockaddr_in address{};
  const platform::FileDescriptor listener = listenLocally(address);
  if (!listener.valid()) GTEST_SKIP() << "this machine cannot even talk to itself";
  const std::string place =
      "'http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/secret'";

  const Watchdog watchdog;
  const std::string level = levelOf(document(
      "&x;", "<!ENTITY % all SYSTEM " + place + "> %all; <!ENTITY x SYSTEM " + place + ">"));
  EXPECT_THAT(level, AnyOf("", "no level", "no document"));
  EXPECT_NE(levelOf("<!DOCTYPE Configuration SYSTEM " + place + "><Configuration/>"), "stolen");

  timeval noTime{};
  fd_set waiting;
  FD_ZERO(&waiting);
  FD_SET(listener.get(), &waiting);
  EXPECT_EQ(::select(listener.get() + 1, &waiting, nullptr, nullptr, &noTime), 0);
}

// --- Files that grow -----------------------------------------------------------------------------

TEST_F(ConfigurationDocumentTest, EntitiesOfEntitiesOfEntitiesAreNotWrittenOut) {
  std::string declarations = "<!ENTITY e0 'ha'>";
  for (int depth = 1; depth <= 8; ++depth) {
    declarations += "<!ENTITY e" + std::to_string(depth) + " '" +
                    repeated("&e" + std::to_string(depth - 1) + ";", 10) + "'>";
  }
  expectModesty([&] {
    EXPECT_THAT(levelOf(document("&e8;", declarations)), Not(HasSubstr("haha")));
    levelOf(document("<x a='&e8;'/>", declarations));
  });
}

TEST_F(ConfigurationDocumentTest, AnEntityOfItselfHasNoEnd) {
  expectModesty([] {
    EXPECT_FALSE(parse(document("&a;", "<!ENTITY a '&b;'><!ENTITY b '&a;'>"), Reading::asWritten));
    EXPECT_FALSE(parse(document("<x a='&a;'/>", "<!ENTITY a 'a&a;'>"), Reading::asWritten));
    EXPECT_FALSE(parse(document("", "<!ENTITY % a '&#37;a;'> %a;"), Reading::asWritten));
  });
}

// One long entity, and as many repetitions of `uses` as make some hundred MiB of it, or as the file
// may hold.
std::string bomb(const std::string& uses) {
  constexpr std::size_t half = ConfigurationDocument::maximumBytes / 2 - 200;
  const std::string entity(std::min<std::size_t>(half, 100'000), 'x');
  const auto usesOfEntity = static_cast<std::size_t>(std::count(uses.begin(), uses.end(), '&'));
  const std::size_t times = std::min(half / uses.size(), 4'000 / usesOfEntity);
  return document(repeated(uses, times), "<!ENTITY e '" + entity + "'>");
}

TEST_F(ConfigurationDocumentTest, ManyUsesOfALongEntityAreNotWrittenOut) {
  expectModesty([] { levelOf(bomb("&e;")); });
}

TEST_F(ConfigurationDocumentTest, ManyUsesOfALongEntityInElementsAreNotWrittenOut) {
  expectModesty([] { levelOf(bomb("<x>&e;</x>")); });
}

TEST_F(ConfigurationDocumentTest, ManyUsesOfALongEntityInAttributesAreNotWrittenOut) {
  expectModesty([] { levelOf(bomb("<x a='" + repeated("&e;", 50) + "'/>")); });
}

TEST_F(ConfigurationDocumentTest, ALongDefaultOfAnAttributeIsNotCopied) {
  const std::string value(100'000, 'x');
  expectModesty(
      [&] { levelOf(document(repeated("<x/>", 4'000), "<!ATTLIST x a CDATA '" + value + "'>")); });
}

TEST_F(ConfigurationDocumentTest, DeepNestingIsNoWellFormedFile) {
  const std::size_t depth = ConfigurationDocument::maximumBytes / 8;
  const std::string deep = repeated("<a>", depth) + repeated("</a>", depth);
  expectModesty([&] {
    EXPECT_FALSE(parse(document(deep), Reading::asWritten));
    EXPECT_NE(levelOf(document(deep)), "info");
    EXPECT_FALSE(parse(repeated("<a>", depth), Reading::asWritten));
  });
}

// All names of three letters, until the file is full.
TEST_F(ConfigurationDocumentTest, AnElementFullOfAttributesIsReadInReasonableTime) {
  std::string attributes;
  for (int number = 0; attributes.size() < ConfigurationDocument::maximumBytes - 200; ++number) {
    attributes += " a" + std::to_string(number) + "=''";
  }
  expectModesty([&] { levelOf(document("<x" + attributes + "/>")); });
}

TEST_F(ConfigurationDocumentTest, AFileFullOfElementsIsReadInReasonableTime) {
  expectModesty([] {
    levelOf(document(repeated("<a/>", ConfigurationDocument::maximumBytes / 4 - 50)));
    levelOf("<Configuration>" + repeated("<Level/>", ConfigurationDocument::maximumBytes / 8 - 50) +
            "</Configuration>");
  });
}

}  // namespace
}  // namespace ombrix
