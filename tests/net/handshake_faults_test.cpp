// The registration with a server that fails, cuts or lies at some step: each ends with its code, within bounds.
#include <arpa/inet.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "net/CClientSock.h"
#include "net/FakeSystem.h"
#include "support/CaptureOutput.h"
#include "support/HandshakeScript.h"
#include "support/HexBytes.h"
#include "support/OpenDescriptors.h"
#include "support/ScriptedPeer.h"

namespace {

struct Attempt {
  uint32_t Connect(const std::string& address) {
    return session.ConnectDB(address.c_str(), project, second, ack, true);
  }
  CClientSock session;
  CString project = "before";
  CString second = "before";
  SNAckRegReq ack;
};

// The receive and the send time-out of a connection, in seconds.
std::vector<long> TimeOutsOf(const CSyncSocket& sock) {
  std::vector<long> seconds;
  for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    timeval time{};
    socklen_t len = sizeof time;
    EXPECT_EQ(0, getsockopt(sock.Descriptor(), SOL_SOCKET, option, &time, &len));
    seconds.push_back(static_cast<long>(time.tv_sec));
  }
  return seconds;
}

// A server that answers the registration of the request connection with first (then closes it when it is empty).
uint32_t ResultOfFirstReply(const std::string& first) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome();
  first.empty() ? peer.Close() : peer.ReplyBytes(first);
  peer.Start();
  Attempt attempt;
  const uint32_t result = attempt.Connect(peer.Address());
  peer.Join();
  return result;
}

// A server that accepts the first registration and answers the second with the bytes of wire, or closes.
uint32_t ResultOfSecondReply(const std::string& wire) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome();
  wire.empty() ? peer.Close() : peer.ReplyBytes(wire);
  peer.Start();
  Attempt attempt;
  const uint32_t result = attempt.Connect(peer.Address());
  peer.Join();
  if (result != kHandshakeOk) {
    EXPECT_EQ("before", attempt.project) << "a failure leaves the outputs alone";
  }
  return result;
}

}  // namespace

TEST(FirstExchange, ARefusedConnectGivesOne) {
  FakeSystem fake;
  fake.onConnect = [](int, const sockaddr_in&, const std::function<int()>&) {
    errno = ECONNREFUSED;
    return -1;
  };
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect("127.0.0.1:9"));
  EXPECT_EQ(1u, kHandshakeFailed);
}

TEST(FirstExchange, AFailedOrEmptySendGivesOne) {
  for (const ssize_t result : {-1, 0}) {
    ScriptedPeer peer;
    peer.Accept().WaitClose().Start();
    FakeSystem fake;
    fake.onSend = [result](int, size_t, int, const FakeSystem::RealTransfer&) {
      errno = ECONNRESET;
      return result;
    };
    {
      Attempt attempt;
      EXPECT_EQ(kHandshakeFailed, attempt.Connect(peer.Address()));
    }
    peer.Join();
  }
}

TEST(FirstExchange, NoReplyGivesOne) { EXPECT_EQ(kHandshakeFailed, ResultOfFirstReply("")); }

TEST(FirstExchange, AResetGivesOne) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().Reset().Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect(peer.Address()));
  peer.Join();
}

TEST(FirstExchange, ATimeOutGivesOne) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().WaitClose().Start();
  FakeSystem fake;
  fake.onRecv = [](int, size_t, int, const FakeSystem::RealTransfer&) {
    errno = EAGAIN;
    return ssize_t{-1};
  };
  {
    Attempt attempt;
    EXPECT_EQ(kHandshakeFailed, attempt.Connect(peer.Address()));
  }
  peer.Join();
}

TEST(FirstExchange, ReadsByteZeroAsTheAnswer) {
  EXPECT_EQ(kHandshakeRefused, ResultOfFirstReply("0"));
  EXPECT_EQ(kHandshakeRefused, ResultOfFirstReply("0lan567890"));
  for (const char* other : {"1", "8", "x", "\xFF", " 7"}) EXPECT_EQ(kHandshakeFailed, ResultOfFirstReply(other));
  EXPECT_EQ(kHandshakeFailed, ResultOfFirstReply(std::string(1, '\0')));
}

TEST(FirstExchange, MoreThan512BytesAreReadAsTheFirst512) {
  EXPECT_EQ(kHandshakeRefused, ResultOfFirstReply("0" + std::string(3000, 'x')));
}

TEST(SecondExchange, ARefusedConnectGivesOne) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().StopListening().Reply("37").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect(peer.Address()));
  EXPECT_TRUE(attempt.session.requestSock.IsSocket()) << "left as the failing step left it";
  peer.Join();
}

TEST(SecondExchange, AFailedSendGivesOne) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().Reply("37").Accept().WaitClose().Start();
  FakeSystem fake;
  int sends = 0;
  fake.onSend = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    return sends++ == 0 ? real(len) : ssize_t{0};
  };
  {
    Attempt attempt;
    EXPECT_EQ(kHandshakeFailed, attempt.Connect(peer.Address()));
  }
  EXPECT_EQ(2, sends);
  peer.Join();
}

TEST(SecondExchange, NoReplyGivesOne) { EXPECT_EQ(kHandshakeFailed, ResultOfSecondReply("")); }

TEST(SecondExchange, ALoneZeroGivesItsOwnCode) {
  EXPECT_EQ(2u, Scrambled("0").size());
  EXPECT_EQ(1244u, ResultOfSecondReply(Scrambled("0")));
  EXPECT_EQ(kHandshakeFailed, ResultOfSecondReply(Scrambled("1")));
  EXPECT_EQ(kHandshakeFailed, ResultOfSecondReply(Scrambled("00")));
}

TEST(SecondExchange, FewerThan60DecodedBytesGiveOne) {
  const std::string plain = PlainSecondReply("Plant");
  for (size_t len = 1; len < 60; ++len) {
    EXPECT_EQ(kHandshakeFailed, ResultOfSecondReply(Scrambled(plain.substr(0, len)))) << len;
    EXPECT_EQ(len == 1 ? kHandshakeClientRefused : kHandshakeFailed,
              ResultOfSecondReply(Scrambled("0" + plain.substr(1, len - 1))))
        << len;
  }
  EXPECT_EQ(kHandshakeOk, ResultOfSecondReply(Scrambled(plain.substr(0, 60))));
}

TEST(SecondExchange, EveryCutOfAReplyIsBounded) {
  const std::string wire = Scrambled(PlainSecondReply("Plant"));
  for (size_t cut = 1; cut < wire.size(); ++cut) {
    const bool whole = cut >= 80 && cut % 4 != 1;  // 60 decoded bytes, and no lone random byte at the end
    EXPECT_EQ(whole ? kHandshakeOk : kHandshakeFailed, ResultOfSecondReply(wire.substr(0, cut))) << cut;
  }
}

TEST(SecondExchange, AnotherTypeByteGivesOne) {
  std::string plain = PlainSecondReply("Plant");
  for (const char type : {'0', '7', '9', '\0'}) {
    plain[0] = type;
    EXPECT_EQ(kHandshakeFailed, ResultOfSecondReply(Scrambled(plain)));
  }
}

TEST(SecondExchange, EachByteMayBeAnything) {
  const std::string wire = Scrambled(PlainSecondReply("P", "s"));
  for (const int value : {0, 255}) {
    for (size_t i = 0; i < wire.size(); ++i) {
      std::string changed = wire;
      changed[i] = static_cast<char>(value);
      const uint32_t result = ResultOfSecondReply(changed);
      EXPECT_TRUE(result == kHandshakeOk || result == kHandshakeFailed) << i;
    }
  }
}

TEST(Handshake, TheNextCallClosesWhatAFailureLeftOpen) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome().ReplyBytes(Scrambled("1"));
  peer.On(0).WaitClose().Close().On(1).WaitClose().Close();
  AddHandshake(peer, "Plant").Start();
  const int before = OpenDescriptors();
  {
    Attempt attempt;
    EXPECT_EQ(kHandshakeFailed, attempt.Connect(peer.Address()));
    EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
    peer.Join();
    EXPECT_EQ(before + 4, OpenDescriptors()) << "both ends of two connections";
  }
  EXPECT_EQ(before + 2, OpenDescriptors());
}

TEST(SecondExchange, ARefusalLeavesOutputsAndConnectionsAsTheyWere) {
  for (const bool relayed : {false, true}) {
    ScriptedPeer peer("127.77.3.1", relayed ? 3968 : 0);
    peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome().ReplyBytes(Scrambled("0")).Start();
    Attempt attempt;
    for (uint8_t& byte : attempt.ack.bytes) byte = 16;
    EXPECT_EQ(kHandshakeClientRefused, attempt.Connect(relayed ? "p2p(127.77.3.1):dev" : peer.Address()));
    peer.Join();
    EXPECT_EQ("before", attempt.project);
    EXPECT_EQ("before", attempt.second);
    for (const uint8_t byte : attempt.ack.bytes) EXPECT_EQ(16, byte);
    const std::vector<long> handshakeTimeOuts(2, relayed ? 13 : 8);
    EXPECT_EQ(handshakeTimeOuts, TimeOutsOf(attempt.session.requestSock));
    EXPECT_EQ(handshakeTimeOuts, TimeOutsOf(attempt.session.notifySock)) << "not yet those of a session";
  }
}

TEST(Handshake, BeginsByClosingTheRequestThenTheNotificationConnection) {
  Attempt attempt;
  EXPECT_EQ(1, attempt.session.requestSock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, attempt.session.notifySock.Create(0, SOCK_STREAM, nullptr, 0));
  const std::vector<int> open = {attempt.session.requestSock.Descriptor(), attempt.session.notifySock.Descriptor()};
  FakeSystem fake;
  EXPECT_EQ(kHandshakeBadAddress, attempt.Connect("p2p"));
  EXPECT_EQ(open, fake.closed);
}

TEST(Handshake, SeedsTheRandomGeneratorWithTheTimeBeforeItLooksAtTheAddress) {
  FakeSystem fake;
  fake.now = 12345;
  Attempt attempt;
  EXPECT_EQ(kHandshakeBadAddress, attempt.Connect("p2p"));
  const int drawn = rand();
  srand(12345);
  EXPECT_EQ(rand(), drawn);
}

TEST(Handshake, AFailureInEitherModeLeavesTheLocalDatabaseFlagCleared) {
  FakeSystem fake;
  fake.onConnect = [](int, const sockaddr_in&, const std::function<int()>&) {
    errno = ECONNREFUSED;
    return -1;
  };
  for (const char* address : {"127.0.0.1", "p2p", "p2p:dev"}) {
    Attempt attempt;
    EXPECT_NE(kHandshakeOk, attempt.Connect(address));
    EXPECT_FALSE(attempt.session.localDB) << address;
  }
}

TEST(Handshake, SecondAndLaterCallsResetFixedPeers) {
  FakeSystem fake;
  fake.onConnect = [](int, const sockaddr_in&, const std::function<int()>&) {
    errno = ECONNREFUSED;
    return -1;
  };
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect("p2p(10.0.0.9):dev"));
  EXPECT_EQ(inet_addr("10.0.0.9"), attempt.session.requestSock.FixedPeer());
  EXPECT_EQ(kHandshakeBadAddress, attempt.Connect("p2p"));
  EXPECT_EQ(0u, attempt.session.requestSock.FixedPeer());
  EXPECT_EQ(0u, attempt.session.notifySock.FixedPeer());
  EXPECT_FALSE(attempt.session.requestSock.IsSocket());
}
