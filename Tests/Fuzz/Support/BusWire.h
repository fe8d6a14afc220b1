#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Messages as they go over the bus ("Message Format" in the documents of D-Bus), little-endian.

namespace ombrix::tests {

struct BusMessage {
  enum class Type : std::uint8_t { call = 1, methodReturn = 2, error = 3, signal = 4 };

  Type type = Type::signal;
  std::uint32_t serial = 1;
  // Each of these is left out when it is empty.
  std::string path;
  std::string interface;
  std::string member;
  std::string errorName;
  std::optional<std::uint32_t> replySerial;
  std::string sender;
  std::uint32_t descriptors = 0;
  std::string signature;
  std::string body;
};

[[nodiscard]] std::string wireOf(const BusMessage& message);

// The parts of a body; each begins where the one before it has ended.
void appendNumber(std::string& body, std::uint32_t value);
void appendText(std::string& body, std::string_view text);
// A variant that holds a boolean.
void appendBooleanVariant(std::string& body, bool value);

}  // namespace ombrix::tests
