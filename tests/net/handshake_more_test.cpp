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

TEST(DirectHandshake, APortBeyond32BitsIsReadAlikeOnEveryMachine) {
  EXPECT_EQ(65535, PortOf("127.0.0.1:4294967377"));
  EXPECT_EQ(65535, PortOf("127.0.0.1:2147483647"));
  EXPECT_EQ(80, PortOf("127.0.0.1:-4294967377")) << "the least 32-bit number has no low bits";
}
