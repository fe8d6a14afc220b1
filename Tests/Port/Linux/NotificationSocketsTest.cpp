#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Platform/Linux/NotificationSockets.h"

namespace ombrix::tests {

using platform::parseSocketFileName;
using platform::socketFileName;

TEST(NotificationSockets, AreNamedAfterNotificationProcessAndSalt) {
  const std::string process = std::to_string(::getpid());
  EXPECT_EQ(socketFileName({"com.example.Stop", false}, 7), "com.example.Stop." + process + ".7");
  EXPECT_EQ(socketFileName({"com.example.Stop", true}, 7),
            "com.example.Stop." + process + ".7.public");
  EXPECT_EQ(socketFileName({"Stop", false}, 4294967295U), "Stop." + process + ".4294967295");
}

TEST(NotificationSockets, AreRecognisedByTheirNames) {
  for (const bool forStrangers : {false, true}) {
    for (const char* notification : {"Stop", "com.example.Stop", "ends.in.public"}) {
      const std::string fileName = socketFileName({notification, forStrangers}, 12345);
      const auto name = parseSocketFileName(fileName);
      ASSERT_TRUE(name) << fileName;
      EXPECT_EQ(name->notification, notification);
      EXPECT_EQ(name->forStrangers, forStrangers);
    }
  }
}

TEST(NotificationSockets, AreToldFromOtherFiles) {
  const std::vector<const char*> table = {
      "", ".", "..", "Stop", "Stop.1", ".1.2", "..1", ".public", "Stop.public", "Stop.1.public",
  };
  for (const char* fileName : table) EXPECT_FALSE(parseSocketFileName(fileName)) << fileName;
}

}  // namespace ombrix::tests
