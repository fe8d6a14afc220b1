#include "Platform/macOS/Utf8.h"

namespace ombrix::platform {

CFOwner<CFStringRef> stringOf(std::string_view bytes, CFStringEncoding encoding) {
  // Not an external representation: a byte order mark in front is text like any other.
  constexpr Boolean isExternalRepresentation = false;
  return CFOwner<CFStringRef>(CFStringCreateWithBytes(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
      static_cast<CFIndex>(bytes.size()), encoding, isExternalRepresentation));
}

std::string utf8Of(CFStringRef string) {
  constexpr UInt8 noReplacement = 0;
  const CFRange whole = CFRangeMake(0, CFStringGetLength(string));
  CFIndex size = 0;
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, noReplacement, false, nullptr, 0, &size);
  std::string utf8(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, noReplacement, false,
                   reinterpret_cast<UInt8*>(utf8.data()), size, nullptr);
  return utf8;
}

}  // namespace ombrix::platform
