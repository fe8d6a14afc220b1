#include <gtest/gtest.h>

#include <set>

#include "Platform/RandomNumber.h"
#include "Tests/Port/PortDriver.h"

namespace ombrix::tests {

// Four equal ones in a row come once in 2^96 attempts.
TEST(RandomNumber, IsAnotherOneNextTime) {
  const PortDriver driver;
  std::set<std::uint32_t> numbers;
  for (int attempt = 0; attempt < 4; ++attempt) {
    const std::optional<std::uint32_t> number = platform::randomNumber();
    ASSERT_TRUE(number);
    numbers.insert(*number);
  }
  EXPECT_GT(numbers.size(), 1U);
}

}  // namespace ombrix::tests
