#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "Platform/Linux/Datagram.h"

namespace ombrix::platform {

namespace {

constexpr uid_t someUser = 1000;
constexpr uid_t otherUser = 1001;

// What recvmsg(2) fills in for a datagram "news" of someUser's.
struct Received {
  Received() {
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_CREDENTIALS;
    part->cmsg_len = CMSG_LEN(sizeof(ucred));
    const ucred credentials{1, someUser, someUser};
    std::memcpy(CMSG_DATA(part), &credentials, sizeof(credentials));
  }

  std::array<char, 8> bytes{"news"};
  iovec buffer{bytes.data(), bytes.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
  msghdr message{};
};

}  // namespace

TEST(Datagram, TellsItsTextAndItsSender) {
  Received received;

  const Datagram datagram = datagramIn(received.message, 4);

  EXPECT_EQ(datagram.text, "news");
  EXPECT_TRUE(datagram.whole);
  EXPECT_EQ(datagram.sender, someUser);
}

TEST(Datagram, WhoseEndWasCutOffIsNotWhole) {
  Received received;
  received.message.msg_flags = MSG_TRUNC;
  EXPECT_FALSE(datagramIn(received.message, 4).whole);
}

TEST(Datagram, HasNoSenderWhereTheKernelNamesNone) {
  Received received;
  received.message.msg_controllen = 0;
  EXPECT_EQ(datagramIn(received.message, 4).sender, std::nullopt);
}

TEST(Datagram, HasNoSenderWhereOtherThingsCameAlong) {
  Received received;
  CMSG_FIRSTHDR(&received.message)->cmsg_type = SCM_RIGHTS;
  EXPECT_EQ(datagramIn(received.message, 4).sender, std::nullopt);
}

TEST(Datagram, HasNoSenderWhoseCredentialsWereCutOff) {
  Received received;
  CMSG_FIRSTHDR(&received.message)->cmsg_len = CMSG_LEN(sizeof(ucred)) - 1;
  EXPECT_EQ(datagramIn(received.message, 4).sender, std::nullopt);
}

TEST(Datagram, IsHeededWhenItSaysWhatIsExpectedAndComesFromAFriend) {
  EXPECT_TRUE(isHeeded({"news", true, someUser}, "news", false, someUser));
  EXPECT_TRUE(isHeeded({"news", true, 0}, "news", false, someUser));
  EXPECT_FALSE(isHeeded({"news", true, otherUser}, "news", false, someUser));
  EXPECT_TRUE(isHeeded({"news", true, otherUser}, "news", true, someUser));
}

TEST(Datagram, IsNotHeededWhenAnythingIsMissing) {
  EXPECT_FALSE(isHeeded({"new", true, 0}, "news", true, 0));
  EXPECT_FALSE(isHeeded({"news2", true, 0}, "news", true, 0));
  EXPECT_FALSE(isHeeded({"news", false, 0}, "news", true, 0));
  EXPECT_FALSE(isHeeded({"news", true, std::nullopt}, "news", true, 0));
}

}  // namespace ombrix::platform
