#include <gtest/gtest.h>

#include "Platform/UserDirectory.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

TEST(UserDirectory, KnowsTheAdministrator) {
  const PortDriver driver;
  EXPECT_EQ(platform::userName(0), "root");
}

TEST(UserDirectory, HasNoNameForAnUnknownUser) {
  constexpr platform::UserId nobodysId = 3'987'654'321;
  const PortDriver driver;
  EXPECT_EQ(platform::userName(nobodysId), std::nullopt);
}

}  // namespace ombrix::tests
