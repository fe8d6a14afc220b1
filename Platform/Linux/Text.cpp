#include "Platform/Text.h"

#include <unicase.h>
#include <unistr.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace ombrix::platform {

namespace {

const std::uint8_t* bytesOf(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

// The length of the well-formed beginning of `bytes`.
std::size_t wellFormedLength(std::string_view bytes) {
  const std::uint8_t* const malformed = ::u8_check(bytesOf(bytes), bytes.size());
  if (malformed == nullptr) return bytes.size();
  return static_cast<std::size_t>(malformed - bytesOf(bytes));
}

std::string lowercaseWellFormed(std::string_view text) {
  if (text.empty()) return {};
  std::size_t length = 0;
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> lowered(
      ::u8_tolower(bytesOf(text), text.size(), "", nullptr, nullptr, &length), &std::free);
  if (!lowered) return std::string(text);
  return {reinterpret_cast<const char*>(lowered.get()), length};
}

}  // namespace

std::string lowercase(std::string_view text) {
  std::string lowered;
  while (!text.empty()) {
    const std::size_t length = wellFormedLength(text);
    lowered += lowercaseWellFormed(text.substr(0, length));
    text.remove_prefix(length);
    if (text.empty()) break;
    lowered += text.front();
    text.remove_prefix(1);
  }
  return lowered;
}

bool isUtf8(std::string_view bytes) { return wellFormedLength(bytes) == bytes.size(); }

}  // namespace ombrix::platform
