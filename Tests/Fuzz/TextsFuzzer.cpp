#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "Platform/Text.h"
#include "Tests/Fuzz/Support/Require.h"
#include "Utilities/Paths.h"
#include "Utilities/Text.h"

// The small functions through which names, paths and settings of any bytes go.

namespace ombrix::tests {

namespace {

// Table 3-7 of the Unicode standard, read from its text: the length of the character that begins
// `bytes`, 0 where none does.
std::size_t characterLength(std::string_view bytes) {
  const auto at = [bytes](std::size_t i) {
    return i < bytes.size() ? static_cast<std::uint8_t>(bytes[i]) : 0;
  };
  const auto between = [](int value, int low, int high) { return low <= value && value <= high; };
  const auto continues = [&](std::size_t i) { return between(at(i), 0x80, 0xBF); };
  const int first = at(0);
  if (first < 0x80) return 1;
  if (between(first, 0xC2, 0xDF)) return continues(1) ? 2 : 0;
  if (between(first, 0xE0, 0xEF)) {
    const int low = first == 0xE0 ? 0xA0 : 0x80;
    const int high = first == 0xED ? 0x9F : 0xBF;
    return between(at(1), low, high) && continues(2) ? 3 : 0;
  }
  if (between(first, 0xF0, 0xF4)) {
    const int low = first == 0xF0 ? 0x90 : 0x80;
    const int high = first == 0xF4 ? 0x8F : 0xBF;
    return between(at(1), low, high) && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

bool isWellFormed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = characterLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

void readText(const std::string& text) {
  const bool wellFormed = isWellFormed(text);
  require(platform::isUtf8(text) == wellFormed, "UTF-8 is what the standard says it is");
  require(utf8OrNothing(text).has_value() == wellFormed, "a text is UTF-8 or nothing");

  const std::string lowered = platform::lowercase(text);
  require(platform::isUtf8(lowered) == wellFormed, "lower case makes and mends no damage");
  if (wellFormed) require(platform::lowercase(lowered) == lowered, "lower case has no lower case");
  if (std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; })) {
    std::string plain = text;
    for (char& c : plain) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    require(lowered == plain, "plain letters are lowered and nothing else");
  }
}

// One digit after the other, as far as an int reaches.
std::int64_t slowInteger(std::string_view text) {
  constexpr std::string_view blanks = " \t\n\v\f\r";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = std::min(value * 10 + (c - '0'), std::int64_t{1} << 40);
  }
  return std::clamp<std::int64_t>(negative ? -value : value, std::numeric_limits<int>::min(),
                                  std::numeric_limits<int>::max());
}

void readNumber(const std::string& text) {
  const std::string_view untilNul(text.c_str());
  require(leadingInteger(text) == slowInteger(untilNul), "a number begins where a text does");
}

void takeApart(const std::string& path) {
  const std::string_view folder = deletingLastPathComponent(path);
  require(path.starts_with(folder), "a folder begins its path");
  require(folder.size() <= 1 || !folder.ends_with('/'), "a folder has no slash behind it");
  require(folder.empty() == (withoutTrailingSlashes(path).find('/') == std::string::npos),
          "only a bare name has no folder");

  const std::string joined = appendingPathComponent(path, "name").value_or("");
  require(joined.ends_with("name") && !joined.ends_with("//name"), "one slash is enough");
  require(deletingLastPathComponent(joined) == withoutTrailingSlashes(path),
          "what was put together comes apart again");
}

void removeCharacters(const std::string& text) {
  constexpr std::string_view unwanted = "-/:+= ";
  const std::string rest = removingAll(text, unwanted);
  require(rest.find_first_of(unwanted) == std::string::npos, "nothing unwanted is left");
  const auto wanted = std::count_if(text.begin(), text.end(), [unwanted](char c) {
    return unwanted.find(c) == std::string_view::npos;
  });
  require(static_cast<std::ptrdiff_t>(rest.size()) == wanted, "all that is wanted is left");
}

}  // namespace

}  // namespace ombrix::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ombrix::tests;
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  readText(text);
  readNumber(text);
  takeApart(text);
  removeCharacters(text);
  return 0;
}
