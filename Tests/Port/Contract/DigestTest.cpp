#include <gtest/gtest.h>

#include "Platform/Digest.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

TEST(Digest, SameBytesHaveTheSameDigest) {
  const PortDriver driver;
  ASSERT_TRUE(platform::sha1("1709287200testbench42"));
  EXPECT_EQ(platform::sha1("1709287200testbench42"), platform::sha1("1709287200testbench42"));
}

TEST(Digest, OtherBytesHaveAnother) {
  const PortDriver driver;
  EXPECT_NE(platform::sha1("1709287200testbench42"), platform::sha1("1709287200testbench43"));
}

TEST(Digest, EveryByteCounts) {
  using namespace std::string_view_literals;
  const PortDriver driver;
  EXPECT_NE(platform::sha1("a\0b"sv), platform::sha1("a\0c"sv));
}

}  // namespace ombrix::tests
