// The registration with a server that fails, cuts or lies at some step: each ends with its code, within bounds.
#include <arpa/inet.h>

#include <cerrno>
#include <string>

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
