// Addresses at the edges of what a number holds.
#include <arpa/inet.h>

#include <cerrno>

#include "gtest/gtest.h"
#include "net/CClientSock.h"
#include "net/FakeSystem.h"

namespace {

// The port that a direct address leads to.
int PortOf(const char* address) {
  FakeSystem fake;
  int port = 0;
  fake.onConnect = [&](int, const sockaddr_in& to, const std::function<int()>&) {
    port = ntohs(to.sin_port);
    errno = ECONNREFUSED;
    return -1;
  };
  CClientSock session;
  CString project, second;
  SNAckRegReq ack;
  EXPECT_EQ(kHandshakeFailed, session.ConnectDB(address, project, second, ack, true));
  return port;
}

}  // namespace

TEST(DirectHandshake, APortIsTheLow16BitsOfWhatALongHolds) {
  constexpr bool kLongHas64Bits = sizeof(long) == 8;  // elsewhere the number is held at the end of 32 bits
  EXPECT_EQ(65535, PortOf("127.0.0.1:2147483647"));
  EXPECT_EQ(kLongHas64Bits ? 81 : 65535, PortOf("127.0.0.1:4294967377"));
  EXPECT_EQ(kLongHas64Bits ? 65455 : 80, PortOf("127.0.0.1:-4294967377"));
  EXPECT_EQ(80, PortOf("127.0.0.1:-99999999999999999999")) << "the least long has no low bits";
}
