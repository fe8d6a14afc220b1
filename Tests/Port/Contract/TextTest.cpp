#include <gtest/gtest.h>

#include <vector>

#include "Platform/Text.h"

namespace ombrix::tests {

namespace {

struct Lowering {
  std::string_view text;
  std::string_view lowered;
};

}  // namespace

TEST(Text, LowercasesTheWholeOfUnicode) {
  const std::vector<Lowering> table = {
      {"", ""},
      {"ConfigFile", "configfile"},
      {"already lower-case 123", "already lower-case 123"},
      {"ÄÖÜ", "äöü"},
      {"ÉCOLE", "école"},
      {"МОСКВА", "москва"},
      {"ΑΒΓ", "αβγ"},
      {"ΟΔΟΣ", "οδος"},            // a sigma that ends a word has a form of its own
      {"ΣΑΣ ΣΑΣ", "σας σας"},      // ... at every word
      {"İ", "i\xCC\x87"},          // a dotted I, in any language, keeps its dot
      {"I", "i"},                  // also where the user's language has a dotless one
      {"ẞ", "ß"},                  //
      {"Ⅷ", "ⅷ"},                  // a Roman number
      {"Ａ", "ａ"},                // full width
      {"𐐀", "𐐨"},                  // beyond the first plane
      {"日本語", "日本語"},        //
      {"E\xCC\x81", "e\xCC\x81"},  // an accent of its own is not joined to its letter
      {"\xEF\xBB\xBF"
       "A",
       "\xEF\xBB\xBF"
       "a"},  // nor is a byte order mark lost
  };
  for (const Lowering& row : table) EXPECT_EQ(platform::lowercase(row.text), row.lowered);
}

TEST(Text, KeepsBytesThatAreNotUtf8) {
  const std::vector<Lowering> table = {
      {"\xFF", "\xFF"},
      {"CAF\xC9", "caf\xC9"},
      {"\xC3", "\xC3"},
      {"A\xC3"
       "B",
       "a\xC3"
       "b"},
      {"Ä\xC3Ä", "ä\xC3ä"},
      {"\x80\x80"
       "AB\xFE\xFE"
       "CD",
       "\x80\x80"
       "ab\xFE\xFE"
       "cd"},
      {"A\xE2\x82", "a\xE2\x82"},
      {"\xED\xA0\x80"
       "A",
       "\xED\xA0\x80"
       "a"},
  };
  for (const Lowering& row : table) EXPECT_EQ(platform::lowercase(row.text), row.lowered);
}

TEST(Text, LowercasesBeyondATerminator) {
  using namespace std::string_view_literals;
  EXPECT_EQ(platform::lowercase("A\0B"sv), "a\0b"sv);
}

TEST(Text, LowercasesALongText) {
  const std::string upper(100'000, 'X');
  EXPECT_EQ(platform::lowercase(upper), std::string(100'000, 'x'));
}

TEST(Text, KnowsWellFormedUtf8) {
  using namespace std::string_view_literals;
  const std::vector<std::string_view> table = {
      ""sv,
      "plain"sv,
      "a\0b"sv,
      "ä"sv,
      "€"sv,
      "😀"sv,
      "\xED\x9F\xBF"sv,
      "\xEE\x80\x80"sv,
      "\x7F"sv,
      "\xEF\xBB\xBF"sv,
      "\xF4\x8F\xBF\xBF"sv,
  };
  for (const std::string_view bytes : table) EXPECT_TRUE(platform::isUtf8(bytes)) << bytes;
}

TEST(Text, KnowsWhatIsNotUtf8) {
  const std::vector<std::string_view> table = {
      "\x80",              // a continuation of nothing
      "\xC3",              // cut off after one byte of two
      "\xE2\x82",          // ... two of three
      "\xF0\x9F\x98",      // ... three of four
      "\xC0\xAF",          // a slash, longer than it needs to be
      "\xE0\x80\xAF",      //
      "\xF0\x80\x80\xAF",  //
      "\xED\xA0\x80",      // half a surrogate pair
      "\xF4\x90\x80\x80",  // beyond the last code point
      "\xF8\x88\x80\x80\x80",
      "\xFE",
      "\xFF",
      "a\xFFz",
      "caf\xE9",
  };
  for (const std::string_view bytes : table) EXPECT_FALSE(platform::isUtf8(bytes)) << bytes;
}

}  // namespace ombrix::tests
