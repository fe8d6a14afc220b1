#include <gtest/gtest.h>

#include <limits>
#include <utility>

#include "Utilities/Text.h"

namespace ombrix {
namespace {

constexpr int largest = std::numeric_limits<int>::max();
constexpr int smallest = std::numeric_limits<int>::min();

TEST(Text, AnAbsentTextReadsAsNull) {
  EXPECT_EQ(textOrNull(std::nullopt), "(null)");
  EXPECT_EQ(textOrNull(""), "");
  EXPECT_EQ(textOrNull("x"), "x");
}

TEST(Text, WellFormedBytesAreText) {
  for (const char* text : {"", "a", "ä", "€", "😀", "\x7F", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(utf8OrNothing(text), text);
  }
  EXPECT_EQ(utf8OrNothing(std::string_view("a\0b", 3)), std::string("a\0b", 3));
}

TEST(Text, MalformedBytesAreNoText) {
  for (const char* bytes : {
           "\xFF",              // never in UTF-8
           "\x80",              // a continuation without a beginning
           "a\xC3",             // cut off
           "\xE2\x82",          // cut off later
           "\xC0\xAF",          // "/" in a longer form than needed
           "\xED\xA0\x80",      // half of a surrogate pair
           "\xF4\x90\x80\x80",  // beyond the last code point
       }) {
    EXPECT_EQ(utf8OrNothing(bytes), std::nullopt);
  }
}

TEST(Text, RemovingTakesEveryOccurrenceOfEveryCharacter) {
  EXPECT_EQ(removingAll("--a-b--", "-"), "ab");
  EXPECT_EQ(removingAll("a+b c=d", "+= "), "abcd");
  EXPECT_EQ(removingAll("abc", ""), "abc");
  EXPECT_EQ(removingAll("", "-"), "");
  EXPECT_EQ(removingAll("---", "-"), "");
}

TEST(Text, LeadingIntegerIsReadAndTheRestIgnored) {
  const std::pair<const char*, int> table[] = {
      {"10", 10},
      {" 10 ", 10},
      {"\t\n 7", 7},
      {"+5", 5},
      {"-3", -3},
      {"12abc", 12},
      {"0x10", 0},
      {"010", 10},
      {"1.9", 1},
      {"1 000", 1},
      {"", 0},
      {"abc", 0},
      {"- 3", 0},
      {"--3", 0},
      {"(null)", 0},
      {"4194304", 4194304},
      {"2147483647", largest},
      {"2147483648", largest},
      {"4294967297", largest},
      {"99999999999999999999999", largest},
      {"-2147483648", smallest},
      {"-2147483649", smallest},
      {"-99999999999999999999999", smallest},
  };
  for (const auto& [text, number] : table) EXPECT_EQ(leadingInteger(text), number) << text;
}

}  // namespace
}  // namespace ombrix
