#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "Platform/Digest.h"

// The digest is SHA-1 on every real machine; the scripted one makes do with less.

namespace ombrix::tests {

namespace {

std::string hexadecimal(const platform::Sha1Digest& digest) {
  std::string text;
  for (const std::uint8_t byte : digest) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(byte));
    text += digits.data();
  }
  return text;
}

}  // namespace

// The examples of FIPS 180 and RFC 3174.
TEST(Sha1, DigestsTheStandardsExamples) {
  struct Example {
    std::string bytes;
    const char* digest;
  };
  const std::vector<Example> examples = {
      {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {std::string(1'000'000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
      {std::string(1, '\0'), "5ba93c9db0cff93f52b521d7420e43f6eda2784f"},
  };
  for (const Example& example : examples) {
    const auto digest = platform::sha1(example.bytes);
    ASSERT_TRUE(digest);
    EXPECT_EQ(hexadecimal(*digest), example.digest);
  }
}

}  // namespace ombrix::tests
