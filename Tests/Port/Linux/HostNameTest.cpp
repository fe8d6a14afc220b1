#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "Platform/HostName.h"

namespace ombrix::tests {

namespace {

void nameMachine(const std::string& name) { ASSERT_EQ(::sethostname(name.data(), name.size()), 0); }

}  // namespace

TEST(HostNameOnLinux, IsTheKernels) {
  nameMachine("bench-7.example.org");
  EXPECT_EQ(platform::hostName(), "bench-7.example.org");
}

TEST(HostNameOnLinux, HasRoomForTheLongest) {
  nameMachine(std::string(64, 'x'));
  EXPECT_EQ(platform::hostName(), std::string(64, 'x'));
}

TEST(HostNameOnLinux, IsEmptyWhereTheMachineHasNone) {
  nameMachine("");
  EXPECT_EQ(platform::hostName(), "");
}

}  // namespace ombrix::tests
