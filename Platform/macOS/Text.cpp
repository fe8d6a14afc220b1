#include "Platform/Text.h"

#include <algorithm>

#include "Platform/macOS/Utf8.h"

namespace ombrix::platform {

namespace {

// The length of the UTF-8 sequence that begins with `first`, if any does.
std::size_t announcedLength(char first) {
  const auto byte = static_cast<unsigned char>(first);
  if (byte < 0x80) return 1;
  if (byte < 0xE0) return 2;
  return byte < 0xF0 ? 3 : 4;
}

// The length of the well-formed beginning of `bytes`. CoreFoundation says only whether all of a
// text is well-formed, so one that is not is taken apart.
std::size_t wellFormedLength(std::string_view bytes) {
  if (isUtf8(bytes)) return bytes.size();
  std::size_t length = 0;
  while (length < bytes.size()) {
    const std::string_view next = bytes.substr(length, announcedLength(bytes[length]));
    if (!isUtf8(next)) break;
    length += next.size();
  }
  return length;
}

// Whole Unicode and no language: without a locale, an I does not become the dotless one.
std::string lowercaseWellFormed(std::string_view text) {
  const CFOwner<CFStringRef> string = stringOf(text);
  if (!string) return std::string(text);
  const CFOwner<CFMutableStringRef> lowered(
      CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string.get()));
  if (!lowered) return std::string(text);
  CFStringLowercase(lowered.get(), nullptr);
  return utf8Of(lowered.get());
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

bool isUtf8(std::string_view bytes) { return stringOf(bytes) != nullptr; }

}  // namespace ombrix::platform
