#include "Tests/Fuzz/Support/BusConversation.h"

#include <array>
#include <utility>

namespace ombrix::tests {

namespace {

constexpr const char* busName = "org.freedesktop.DBus";
constexpr const char* busPath = "/org/freedesktop/DBus";
constexpr const char* login1Name = "org.freedesktop.login1";
constexpr const char* login1Path = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";

constexpr std::size_t mostConnections = 4;
constexpr int mostMessages = 48;

// Two who may be logind, and nobody.
std::string ownerIn(Input& input) {
  constexpr std::array<const char*, 3> owners = {":1.7", ":1.8", ""};
  return owners.at(input.choice(owners.size()));
}

std::string senderIn(Input& input) {
  constexpr std::array<const char*, 4> senders = {":1.7", ":1.8", ":1.66", busName};
  return senders.at(input.choice(senders.size()));
}

}  // namespace

BusConversation::BusConversation(Input& input) {
  do {
    converse(input);
  } while (allScripts.back().hangsUp && allScripts.size() < mostConnections && !input.empty());
}

void BusConversation::converse(Input& input) {
  script = {};
  serial = 0;
  model.connected();
  if (input.choice(8) == 7) {
    babble(input);
  } else {
    greet();
  }
  const int count = input.byte() % mostMessages;
  for (int i = 0; i < count && !input.empty(); ++i) sayOneThing(input);
  // The agent waits a while for a word about the owner, and who babbles may have begun a message
  // without an end.
  script.hangsUp = !model.ownerKnown() || !exact || input.flag();
  if (script.hangsUp) model.connectionEnded();
  allScripts.push_back(std::move(script));
}

// The answers to what every connection begins with: who are you, hello, and two subscriptions. The
// name that the agent gets is a long one: the library reads 256 bytes at first, and takes it amiss
// when descriptors come along with them.
void BusConversation::greet() {
  script.pieces.push_back({"DATA\r\nOK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n", 0});
  BusMessage hello = answer(1, false);
  hello.signature = "s";
  appendText(hello.body, ":1." + std::string(200, '1'));
  say(std::move(hello));
  say(answer(2, false));
  say(answer(3, false));
}

void BusConversation::sayOneThing(Input& input) {
  switch (input.choice(8)) {
    case 0:
      return tellOwner(input);
    case 1:
      return tellOwnerChange(input);
    case 2:
    case 3:
      return announceSleep(input);
    case 4:
      return tellWhetherPreparing(input);
    case 5:
      return giveLock(input);
    case 6:
      return sayAnything(input);
    default:
      return babble(input);
  }
}

void BusConversation::tellOwner(Input& input) {
  const bool answered = input.flag();
  const std::string owner = ownerIn(input);
  BusMessage message = answer(4, !answered);
  if (answered) {
    message.signature = "s";
    appendText(message.body, owner);
  }
  say(std::move(message));
  model.ownerTold(answered, owner);
}

void BusConversation::tellOwnerChange(Input& input) {
  const bool byTheBus = input.choice(4) != 0;
  const bool ofLogin1 = input.choice(4) != 0;
  const std::string newOwner = ownerIn(input);
  BusMessage message;
  message.path = busPath;
  message.interface = busName;
  message.member = "NameOwnerChanged";
  message.sender = byTheBus ? busName : ":1.66";
  message.signature = "sss";
  appendText(message.body, ofLogin1 ? login1Name : "org.example.Other");
  appendText(message.body, ownerIn(input));
  appendText(message.body, newOwner);
  say(std::move(message));
  if (byTheBus && ofLogin1) model.ownerChanged(newOwner);
}

void BusConversation::announceSleep(Input& input) {
  const std::string sender = senderIn(input);
  const bool sleeping = input.flag();
  const bool asBoolean = input.choice(8) != 0;
  BusMessage message;
  message.path = login1Path;
  message.interface = managerInterface;
  message.member = "PrepareForSleep";
  message.sender = sender;
  message.signature = asBoolean ? "b" : "u";
  appendNumber(message.body, sleeping ? 1 : 0);
  say(std::move(message));
  if (asBoolean) model.prepareForSleep(sender, sleeping);
}

void BusConversation::tellWhetherPreparing(Input& input) {
  const std::uint32_t question = 5U + input.choice(16);
  const bool answered = input.choice(4) != 0;
  const bool sleeping = input.flag();
  const bool asVariant = input.choice(8) != 0;
  BusMessage message = answer(question, !answered);
  if (answered) {
    message.signature = asVariant ? "v" : "b";
    if (asVariant) {
      appendBooleanVariant(message.body, sleeping);
    } else {
      appendNumber(message.body, sleeping ? 1 : 0);
    }
  }
  say(std::move(message));
  model.preparingTold(question, answered && asVariant, sleeping);
  // The question may as well have been that for a lock, which has had its answer now.
  model.lockGiven(question, false);
}

void BusConversation::giveLock(Input& input) {
  const std::uint32_t question = 5U + input.choice(16);
  const bool answered = input.choice(4) != 0;
  BusMessage message = answer(question, !answered);
  if (answered) {
    message.descriptors = 1U + input.choice(3);
    message.signature = "h";
    appendNumber(message.body, input.choice(message.descriptors));
  }
  say(std::move(message));
  model.lockGiven(question, answered);
  model.preparingTold(question, false, false);
}

// A message of any kind, most likely a broken one.
void BusConversation::sayAnything(Input& input) {
  exact = false;
  BusMessage message;
  message.type = static_cast<BusMessage::Type>(input.byte());
  message.path = input.flag() ? login1Path : input.text();
  message.interface = input.flag() ? managerInterface : input.text();
  message.member = input.flag() ? "PrepareForSleep" : input.text();
  message.errorName = input.text();
  if (input.flag()) message.replySerial = input.choice(16);
  message.sender = input.flag() ? senderIn(input) : input.text();
  message.signature = input.text();
  message.descriptors = input.choice(4);
  message.body = input.text();
  say(std::move(message));
}

void BusConversation::babble(Input& input) {
  exact = false;
  script.pieces.push_back({input.text(), 0});
}

// No descriptor comes along with what may be invalid, nor behind it, whatever the message says:
// libsystemd 252 forgets those that it has read with a message that it drops. A bus lets no such
// message through.
void BusConversation::say(BusMessage message) {
  message.serial = ++serial;
  script.pieces.push_back({wireOf(message), exact ? message.descriptors : 0});
}

BusMessage BusConversation::answer(std::uint32_t question, bool asError) const {
  BusMessage message;
  message.type = asError ? BusMessage::Type::error : BusMessage::Type::methodReturn;
  message.replySerial = question;
  message.sender = busName;
  if (asError) message.errorName = "org.freedesktop.DBus.Error.Failed";
  return message;
}

}  // namespace ombrix::tests
