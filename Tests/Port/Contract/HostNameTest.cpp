#include <gtest/gtest.h>

#include "Platform/HostName.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

TEST(HostName, IsTheSameEachTime) {
  const PortDriver driver;
  EXPECT_EQ(platform::hostName(), platform::hostName());
}

TEST(HostName, EndsBeforeItsTerminator) {
  const PortDriver driver;
  EXPECT_EQ(platform::hostName().find('\0'), std::string::npos);
}

}  // namespace ombrix::tests
