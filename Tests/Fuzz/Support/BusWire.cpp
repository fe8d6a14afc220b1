#include "Tests/Fuzz/Support/BusWire.h"

namespace ombrix::tests {

namespace {

void align(std::string& bytes, std::size_t to) {
  while (bytes.size() % to != 0) bytes += '\0';
}

void appendSignature(std::string& bytes, std::string_view signature) {
  bytes += static_cast<char>(signature.size());
  bytes.append(signature).append(1, '\0');
}

// Begins one field of the header: its code and the type of its value.
void beginField(std::string& fields, char code, std::string_view type) {
  align(fields, 8);
  fields += code;
  appendSignature(fields, type);
}

void appendTextField(std::string& fields, char code, std::string_view type,
                     const std::string& value) {
  if (value.empty()) return;
  beginField(fields, code, type);
  appendText(fields, value);
}

void appendNumberField(std::string& fields, char code, std::uint32_t value) {
  beginField(fields, code, "u");
  appendNumber(fields, value);
}

std::string fieldsOf(const BusMessage& message) {
  std::string fields;
  appendTextField(fields, 1, "o", message.path);
  appendTextField(fields, 2, "s", message.interface);
  appendTextField(fields, 3, "s", message.member);
  appendTextField(fields, 4, "s", message.errorName);
  if (message.replySerial) appendNumberField(fields, 5, *message.replySerial);
  appendTextField(fields, 7, "s", message.sender);
  if (!message.signature.empty()) {
    beginField(fields, 8, "g");
    appendSignature(fields, message.signature);
  }
  if (message.descriptors > 0) appendNumberField(fields, 9, message.descriptors);
  return fields;
}

}  // namespace

void appendNumber(std::string& body, std::uint32_t value) {
  align(body, 4);
  for (unsigned shift = 0; shift < 32; shift += 8) body += static_cast<char>(value >> shift);
}

void appendText(std::string& body, std::string_view text) {
  appendNumber(body, static_cast<std::uint32_t>(text.size()));
  body.append(text).append(1, '\0');
}

void appendBooleanVariant(std::string& body, bool value) {
  appendSignature(body, "b");
  appendNumber(body, value ? 1 : 0);
}

std::string wireOf(const BusMessage& message) {
  constexpr char littleEndian = 'l';
  constexpr char noFlags = 0;
  constexpr char version = 1;
  const std::string fields = fieldsOf(message);
  std::string bytes = {littleEndian, static_cast<char>(message.type), noFlags, version};
  appendNumber(bytes, static_cast<std::uint32_t>(message.body.size()));
  appendNumber(bytes, message.serial);
  appendNumber(bytes, static_cast<std::uint32_t>(fields.size()));
  bytes += fields;  // which begin at a multiple of eight
  align(bytes, 8);
  return bytes + message.body;
}

}  // namespace ombrix::tests
