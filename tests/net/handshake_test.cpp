// The registration with a server that answers: what goes over the two connections, and what comes of it.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/time.h>

#include <cerrno>
#include <ctime>
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

// One call of ConnectDB and what it gave.
struct Attempt {
  uint32_t Connect(const std::string& address, bool flag = true) {
    return session.ConnectDB(address.c_str(), project, second, ack, flag);
  }
  CClientSock session;
  CString project;
  CString second;
  SNAckRegReq ack;
};

// The connects of a test: where they wanted to go. All of them are refused, or sent on to a peer.
class ConnectLog {
 public:
  explicit ConnectLog(FakeSystem& fake, const ScriptedPeer* peer = nullptr) {
    fake.onConnect = [this, peer](int fd, const sockaddr_in& to, const std::function<int()>&) {
      wanted.push_back(inet_ntoa(to.sin_addr) + (":" + std::to_string(ntohs(to.sin_port))));
      if (peer != nullptr) return ConnectReally(fd, peer->Host(), peer->Port());
      errno = ECONNREFUSED;
      return -1;
    };
  }
  std::vector<std::string> wanted;
};

using Texts = std::vector<std::string>;

Texts WantedOf(const std::string& address, uint32_t result = kHandshakeFailed) {
  FakeSystem fake;
  const ConnectLog log(fake);
  Attempt attempt;
  EXPECT_EQ(result, attempt.Connect(address)) << address;
  return log.wanted;
}

long SecondsOf(const CSyncSocket& sock, int option) {
  timeval time{};
  socklen_t len = sizeof time;
  EXPECT_EQ(0, getsockopt(sock.Descriptor(), SOL_SOCKET, option, &time, &len));
  return static_cast<long>(time.tv_sec);
}

int IntOption(const CSyncSocket& sock, int level, int option) {
  int value = -1;
  socklen_t len = sizeof value;
  EXPECT_EQ(0, getsockopt(sock.Descriptor(), level, option, &value, &len));
  return value;
}

}  // namespace

TEST(DirectHandshake, RegistersOnBothConnectionsAndGivesTheServersTexts) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant", 0x01020304, 0x05060708).Start();
  FakeSystem fake;
  fake.hostName = "panel7";
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ("Plant", attempt.project);
  EXPECT_EQ("second", attempt.second);
  EXPECT_EQ(0x01020304u, attempt.ack.DrvInfoTime());
  EXPECT_EQ(0x05060708u, attempt.ack.DrvInfoSize());
  for (size_t i = 0; i < 50; ++i) EXPECT_EQ(i, attempt.ack.bytes[i]);
  EXPECT_EQ('P', attempt.ack.bytes[58]) << "the project name begins on the acknowledgement's last byte";
  EXPECT_FALSE(attempt.session.localDB);
  EXPECT_FALSE(attempt.session.sameLan);

  const std::string first = peer.Received(0);
  ASSERT_EQ(23u, first.size()) << "16 bytes become 22, behind the type byte";
  EXPECT_EQ('7', first[0]);
  const std::string identifier = Unscrambled(first.substr(1));
  EXPECT_EQ(16u, identifier.size());
  EXPECT_EQ('8', peer.Received(1)[0]);
  EXPECT_EQ(ToHex(identifier + FromHex("70 61 6E 65 6C 37 00 01 01")), ToHex(Unscrambled(peer.Received(1).substr(1))));
}

TEST(DirectHandshake, TheIdentifierBeginsWithTheTime) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  Attempt attempt;
  const auto before = static_cast<uint32_t>(time(nullptr));
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  const std::string identifier = Unscrambled(peer.Received(0).substr(1));
  uint32_t stamp = 0;
  for (size_t i = 4; i-- > 0;) stamp = (stamp << 8) | static_cast<unsigned char>(identifier[i]);
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, static_cast<uint32_t>(time(nullptr)));
}

TEST(DirectHandshake, AFalseFlagIsSentAsZero) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  fake.hostName = "p";
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address(), false));
  peer.Join();
  EXPECT_EQ("70 00 00 01", ToHex(Unscrambled(peer.Received(1).substr(1)).substr(16)));
}

TEST(DirectHandshake, ALongHostNameIsCutToItsRoomAndStaysTerminated) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  fake.hostName = std::string(400, 'h');
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ(236u, fake.hostNameRoom);
  const std::string body = Unscrambled(peer.Received(1).substr(1));
  EXPECT_EQ(16u + 235u + 3u, body.size());
  EXPECT_EQ(FromHex("00 01 01"), body.substr(16 + 235));
}

TEST(DirectHandshake, AHostNameThatCannotBeHadIsSentAsAnEmptyOne) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  fake.noHostName = true;
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ("00 01 01", ToHex(Unscrambled(peer.Received(1).substr(1)).substr(16)));
}

TEST(DirectHandshake, SetsTimeOutsAndOptionsOfBothConnections) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  Attempt attempt;
  ASSERT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    EXPECT_EQ(8, SecondsOf(attempt.session.requestSock, option));
    EXPECT_EQ(2147483, SecondsOf(attempt.session.notifySock, option));
  }
  EXPECT_EQ(1, IntOption(attempt.session.requestSock, IPPROTO_TCP, TCP_NODELAY));
  EXPECT_EQ(1, IntOption(attempt.session.notifySock, IPPROTO_TCP, TCP_NODELAY));
  EXPECT_EQ(1, IntOption(attempt.session.notifySock, SOL_SOCKET, SO_KEEPALIVE));
}

TEST(DirectHandshake, EachPacketIsOneSend) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  fake.hostName = "p";
  std::vector<size_t> sends;
  fake.onSend = [&](int, size_t len, int flags, const FakeSystem::RealTransfer& real) {
    sends.push_back(len);
    EXPECT_EQ(MSG_NOSIGNAL, flags);
    return real(len);
  };
  std::vector<size_t> receives;
  fake.onRecv = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    receives.push_back(len);
    return real(len);
  };
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ((std::vector<size_t>{23, 28}), sends);
  EXPECT_EQ((std::vector<size_t>{512, 512}), receives);
}

TEST(DirectHandshake, AShortSendIsNotContinued) {
  ScriptedPeer peer;
  peer.Accept().Expect("37").Reply("37").Accept().Expect("38").ReplyBytes(Scrambled(PlainSecondReply("P"))).Start();
  FakeSystem fake;
  fake.onSend = [](int, size_t, int, const FakeSystem::RealTransfer& real) { return real(1); };
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ("37", ToHex(peer.Received(0)));
  EXPECT_EQ("38", ToHex(peer.Received(1)));
}

TEST(DirectHandshake, WithoutAPortConnectsBothToPort80AndSends16BytesAlone) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  const ConnectLog log(fake, &peer);
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect("10.0.0.5"));
  peer.Join();
  EXPECT_EQ((Texts{"10.0.0.5:80", "10.0.0.5:80"}), log.wanted);
  EXPECT_EQ(23u, peer.Received(0).size());
}

TEST(DirectHandshake, APortOfZeroNothingOrNonsenseMeans80) {
  for (const char* address : {"10.0.0.5:0", "10.0.0.5:", "10.0.0.5:x", "10.0.0.5:65536", "10.0.0.5:-65536"}) {
    EXPECT_EQ((Texts{"10.0.0.5:80"}), WantedOf(address));
  }
}

TEST(DirectHandshake, APortCountsByItsLow16Bits) {
  EXPECT_EQ((Texts{"10.0.0.5:65535"}), WantedOf("10.0.0.5:65535"));
  EXPECT_EQ((Texts{"10.0.0.5:1"}), WantedOf("10.0.0.5:65537"));
  EXPECT_EQ((Texts{"10.0.0.5:65535"}), WantedOf("10.0.0.5:-1"));
  EXPECT_EQ((Texts{"10.0.0.5:65535"}), WantedOf("10.0.0.5:99999999999999999999"));
  EXPECT_EQ((Texts{"10.0.0.5:12"}), WantedOf("10.0.0.5: 12abc"));
}

TEST(DirectHandshake, TheLastColonSeparatesThePort) {
  FakeSystem fake;
  const ConnectLog log(fake);
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect("a:b:90"));
  EXPECT_EQ(Texts{"a:b"}, fake.lookups);
  EXPECT_EQ(Texts{"255.255.255.255:90"}, log.wanted);
}

TEST(DirectHandshake, AColonInFrontStaysInTheHostAndThePortIs80) {
  FakeSystem fake;
  const ConnectLog log(fake);
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect(":3968"));
  EXPECT_EQ(Texts{":3968"}, fake.lookups);
  EXPECT_EQ(Texts{"255.255.255.255:80"}, log.wanted);
}

TEST(DirectHandshake, ANullOrEmptyAddressFails) {
  FakeSystem fake;
  const ConnectLog log(fake);
  Attempt attempt;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect(""));
  EXPECT_EQ(kHandshakeFailed, attempt.session.ConnectDB(nullptr, attempt.project, attempt.second, attempt.ack, true));
}

TEST(DirectHandshake, AtPort3968SendsTheExtendedBody) {
  ScriptedPeer peer("127.77.1.1", 3968);
  AddHandshake(peer, "Plant").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect("127.77.1.1:3968"));
  peer.Join();
  const std::string body = Unscrambled(peer.Received(0).substr(1));
  EXPECT_EQ(10u + 23u, body.size());
  EXPECT_EQ(FromHex("00 00 00 00 00 00") + std::string("127.77.1.1") + '\0', body.substr(16));
}

TEST(DirectHandshake, ABodyTooLongToBeScrambledLeavesTheTypeByteAlone) {
  // A dotted address may be followed by a blank and any text.
  const std::string host = "127.77.1.2 " + std::string(400, 'x');
  ScriptedPeer peer("127.77.1.2", 3968);
  peer.Accept().Expect("37").Reply("30").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeRefused, attempt.Connect(host + ":3968"));
  peer.Join();
  EXPECT_EQ("37", ToHex(peer.Received(0)));
}

TEST(DirectHandshake, TheLongestBodyThatCanBeScrambledIsSentWhole) {
  const std::string stem = "127.77.1.3 ";
  const std::string host = stem + std::string(380 - 23 - stem.size(), 'x');
  ScriptedPeer peer("127.77.1.3", 3968);
  peer.Accept().ReceiveSome().Reply("30").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeRefused, attempt.Connect(host + ":3968"));
  peer.Join();
  EXPECT_EQ(host + '\0', Unscrambled(peer.Received(0).substr(1)).substr(22));
}

TEST(DirectHandshake, ABodyOfOneByteMoreIsSentAsItsTypeByteAlone) {
  const std::string stem = "127.77.1.7 ";
  const std::string host = stem + std::string(381 - 23 - stem.size(), 'x');
  ScriptedPeer peer("127.77.1.7", 3968);
  peer.Accept().ReceiveSome().Reply("30").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeRefused, attempt.Connect(host + ":3968"));
  peer.Join();
  EXPECT_EQ("37", ToHex(peer.Received(0)));
}

TEST(DirectHandshake, TheTwoExchangesFollowEachOtherWithTwoYields) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  fake.hostName = "p";
  fake.onConnect = [&](int, const sockaddr_in&, const std::function<int()>& real) {
    fake.calls.push_back("connect");
    return real();
  };
  fake.onSend = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    fake.calls.push_back("send " + std::to_string(len));
    return real(len);
  };
  fake.onRecv = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    fake.calls.push_back("recv " + std::to_string(len));
    return real(len);
  };
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ((Texts{"connect", "send 23", "recv 512", "usleep 0", "connect", "send 28", "recv 512", "usleep 0"}),
            fake.calls);
}

TEST(DirectHandshake, TheFirstSendIsTimedAndTheSecondIsNot) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  FakeSystem fake;
  fake.now = 1000;
  Attempt attempt;
  fake.now = 2000;
  int sends = 0;
  fake.onSend = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    EXPECT_EQ(2000, attempt.session.requestSock.LastSend()) << "noted before the send";
    if (sends++ == 0) fake.now = 3000;
    return real(len);
  };
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ(2, sends);
  EXPECT_EQ(2000, attempt.session.requestSock.LastSend());
}

TEST(RelayHandshake, RegistersWithTheRelayByDeviceName) {
  ScriptedPeer relay("127.77.1.4", 3968);
  AddHandshake(relay, "Plant").Start();
  FakeSystem fake;
  fake.hostName = "p";
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect("p2p(127.77.1.4):dev1"));
  relay.Join();
  EXPECT_TRUE(fake.lookups.empty());
  EXPECT_EQ(FromHex("00 00 00 00 00 00 64 65 76 31 00"), Unscrambled(relay.Received(0).substr(1)).substr(16));
  EXPECT_EQ("70 00 01 01", ToHex(Unscrambled(relay.Received(1).substr(1)).substr(16)));
  EXPECT_EQ("Plant", attempt.project);
  EXPECT_FALSE(attempt.session.localDB);
  EXPECT_FALSE(attempt.session.sameLan);
  EXPECT_EQ(inet_addr("127.77.1.4"), attempt.session.requestSock.FixedPeer());
  EXPECT_EQ(inet_addr("127.77.1.4"), attempt.session.notifySock.FixedPeer());
  EXPECT_EQ(13, SecondsOf(attempt.session.requestSock, SO_RCVTIMEO));
  EXPECT_EQ(13, SecondsOf(attempt.session.requestSock, SO_SNDTIMEO));
  EXPECT_EQ(2147483, SecondsOf(attempt.session.notifySock, SO_RCVTIMEO));
}

TEST(RelayHandshake, IsMeantByP2pInAnyCase) {
  EXPECT_EQ(Texts{"127.0.0.1:3968"}, WantedOf("P2P:dev1"));
  EXPECT_EQ(Texts{"127.0.0.1:3968"}, WantedOf("p2P:dev1"));
  EXPECT_EQ(Texts{"127.0.0.1:3968"}, WantedOf("p2pserver:dev1"));
  EXPECT_EQ(Texts{"10.0.0.5:80"}, WantedOf("10.0.0.5"));
}

TEST(RelayHandshake, TakesTheRelayAddressFromTheParenthesesWithoutTheirEnd) {
  EXPECT_EQ(Texts{"192.168.1.9:3968"}, WantedOf("p2p(192.168.1.9))):dev1"));
  EXPECT_EQ(Texts{"192.168.1.9:3968"}, WantedOf("p2p(192.168.1.9:dev1"));
  EXPECT_EQ(Texts{"255.255.255.255:3968"}, WantedOf("p2p():dev1"));
  EXPECT_EQ(Texts{"255.255.255.255:3968"}, WantedOf("p2p(relay):dev1"));
}

TEST(RelayHandshake, WithoutAColonGivesItsCodeAndConnectsNothing) {
  EXPECT_EQ(Texts{}, WantedOf("p2p", kHandshakeBadAddress));
  EXPECT_EQ(Texts{}, WantedOf("p2p(10.0.0.1)", kHandshakeBadAddress));
  EXPECT_EQ(0x80070057u, kHandshakeBadAddress);
}

TEST(RelayHandshake, ADeviceNameMayHave255BytesAndNoMore) {
  EXPECT_EQ(Texts{"127.0.0.1:3968"}, WantedOf("p2p:" + std::string(255, 'd')));
  EXPECT_EQ(Texts{}, WantedOf("p2p:" + std::string(256, 'd'), kHandshakeRefused));
  EXPECT_EQ(0x80004005u, kHandshakeRefused);
}

TEST(RelayHandshake, ADeviceNameOf255BytesIsSentWhole) {
  ScriptedPeer relay("127.77.1.5", 3968);
  relay.Accept().ReceiveSome().Reply("30").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeRefused, attempt.Connect("p2p(127.77.1.5):" + std::string(255, 'd')));
  relay.Join();
  EXPECT_EQ(std::string(255, 'd') + '\0', Unscrambled(relay.Received(0).substr(1)).substr(22));
}

TEST(RelayHandshake, TheDeviceNameBeginsBehindTheFirstColon) {
  ScriptedPeer relay("127.77.1.6", 3968);
  relay.Accept().ReceiveSome().Reply("30").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeRefused, attempt.Connect("p2p(127.77.1.6):a:b"));
  relay.Join();
  EXPECT_EQ(std::string("a:b") + '\0', Unscrambled(relay.Received(0).substr(1)).substr(22));
}

namespace {

// '7' "lan" with an address and a port.
std::string LanReply(const std::string& host, uint16_t port, const std::string& lan = "lan") {
  const in_addr_t addr = inet_addr(host.c_str());
  std::string reply = "7" + lan;
  reply.append(reinterpret_cast<const char*>(&addr), sizeof addr);
  reply += static_cast<char>(port >> 8);
  reply += static_cast<char>(port & 0xFF);
  return reply;
}

}  // namespace

TEST(LanRedirect, IsFollowedToTheDirectAddress) {
  ScriptedPeer server;
  AddHandshake(server, "Plant").Start();
  ScriptedPeer relay("127.77.2.1", 3968);
  relay.Accept().ReceiveSome().ReplyBytes(LanReply("127.0.0.1", server.Port())).WaitClose().Start();
  Attempt attempt;
  CaptureStdout out;
  EXPECT_EQ(kHandshakeOk, attempt.Connect("p2p(127.77.2.1):dev1"));
  EXPECT_EQ("Is same lan ...\n", out.Text());
  relay.Join();
  server.Join();
  EXPECT_TRUE(attempt.session.sameLan);
  EXPECT_FALSE(attempt.session.localDB);
  EXPECT_EQ(0u, attempt.session.requestSock.FixedPeer());
  EXPECT_EQ(0u, attempt.session.notifySock.FixedPeer());
  EXPECT_EQ(8, SecondsOf(attempt.session.requestSock, SO_RCVTIMEO));
  EXPECT_EQ("Plant", attempt.project);
  EXPECT_EQ(23u, server.Received(0).size()) << "the registration starts anew, without the device";
}

TEST(LanRedirect, IsHonouredFromADirectServerAtPort3968InAnyCaseAndWithBytesBehind) {
  ScriptedPeer server;
  AddHandshake(server, "Plant").Start();
  ScriptedPeer extended("127.77.2.2", 3968);
  extended.Accept().ReceiveSome().ReplyBytes(LanReply("127.0.0.1", server.Port(), "LaN") + "behind").Start();
  Attempt attempt;
  const CaptureStdout out;
  EXPECT_EQ(kHandshakeOk, attempt.Connect("127.77.2.2:3968"));
  extended.Join();
  server.Join();
}

TEST(LanRedirect, APortOfZeroLeadsToPort80) {
  ScriptedPeer relay("127.77.2.3", 3968);
  relay.Accept().ReceiveSome().ReplyBytes(LanReply("10.0.0.5", 0)).Start();
  FakeSystem fake;
  Texts wanted;
  fake.onConnect = [&](int, const sockaddr_in& to, const std::function<int()>& real) {
    wanted.push_back(inet_ntoa(to.sin_addr) + (":" + std::to_string(ntohs(to.sin_port))));
    if (to.sin_port == htons(3968)) return real();
    errno = ECONNREFUSED;
    return -1;
  };
  Attempt attempt;
  const CaptureStdout out;
  EXPECT_EQ(kHandshakeFailed, attempt.Connect("p2p(127.77.2.3):dev1"));
  EXPECT_EQ((Texts{"127.77.2.3:3968", "10.0.0.5:80"}), wanted);
  relay.Join();
}

TEST(LanRedirect, AFirstReplyOfNineBytesIsNone) {
  ScriptedPeer relay("127.77.2.4", 3968);
  relay.Accept().ReceiveSome().ReplyBytes(LanReply("127.0.0.1", 1).substr(0, 9)).Accept().ReceiveSome();
  relay.ReplyBytes(Scrambled(PlainSecondReply("Plant"))).Start();
  Attempt attempt;
  CaptureStdout out;
  EXPECT_EQ(kHandshakeOk, attempt.Connect("p2p(127.77.2.4):dev1"));
  EXPECT_EQ("", out.Text());
  relay.Join();
  EXPECT_FALSE(attempt.session.sameLan);
}

TEST(LanRedirect, IsNoneWithOtherLettersThanLan) {
  for (const char* letters : {"lax", "xan", "lin"}) {
    ScriptedPeer relay("127.77.2.6", 3968);
    relay.Accept().ReceiveSome().ReplyBytes(LanReply("127.0.0.1", 1, letters)).Accept().ReceiveSome();
    relay.ReplyBytes(Scrambled(PlainSecondReply("Plant"))).Start();
    Attempt attempt;
    CaptureStdout out;
    EXPECT_EQ(kHandshakeOk, attempt.Connect("p2p(127.77.2.6):dev1"));
    EXPECT_EQ("", out.Text());
    relay.Join();
  }
}

TEST(LanRedirect, GivesTheResultOfTheLastHop) {
  ScriptedPeer server;
  server.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome().ReplyBytes(Scrambled("0")).Start();
  ScriptedPeer relay("127.77.2.7", 3968);
  relay.Accept().ReceiveSome().ReplyBytes(LanReply("127.0.0.1", server.Port())).Start();
  Attempt attempt;
  const CaptureStdout out;
  EXPECT_EQ(kHandshakeClientRefused, attempt.Connect("p2p(127.77.2.7):dev1"));
  relay.Join();
  server.Join();
  EXPECT_TRUE(attempt.session.sameLan);
}

TEST(LanRedirect, IsNoneAtAnotherPortThan3968) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().ReplyBytes(LanReply("127.0.0.1", 1)).Accept().ReceiveSome();
  peer.ReplyBytes(Scrambled(PlainSecondReply("Plant"))).Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
}

TEST(LanRedirect, SameLanIsNeverClearedByALaterCall) {
  ScriptedPeer peer;
  AddHandshake(peer, "Plant").Start();
  Attempt attempt;
  attempt.session.sameLan = true;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  EXPECT_TRUE(attempt.session.sameLan);
  peer.Join();
}

TEST(LanRedirect, ARingIsFollowedHopByHopWithoutGrowing) {
  constexpr int kHops = 500;
  ScriptedPeer ring("127.77.2.5", 3968);
  for (int i = 0; i < kHops; ++i) {
    ring.Accept().ReceiveSome().ReplyBytes(LanReply("127.77.2.5", 3968)).WaitClose().Close();
  }
  ring.Accept().ReceiveSome().Reply("30").Start();
  Attempt attempt;
  CaptureStdout out;
  const int before = OpenDescriptors();
  EXPECT_EQ(kHandshakeRefused, attempt.Connect("127.77.2.5:3968"));
  ring.Join();
  EXPECT_EQ(before + 2, OpenDescriptors()) << "the last hop's two ends are open, no other";
  EXPECT_EQ(static_cast<size_t>(kHops) * sizeof "Is same lan ...", out.Text().size());
}

TEST(SecondReply, AckByte21Of16BecomesSixAndOthersStay) {
  for (const int value : {0, 6, 15, 16, 17, 255}) {
    std::string ack = AckBytes();
    ack[21] = static_cast<char>(value);
    ScriptedPeer peer;
    peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome();
    peer.ReplyBytes(Scrambled(PlainSecondReply("P", "s", ack))).Start();
    Attempt attempt;
    ASSERT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
    peer.Join();
    EXPECT_EQ(value == 16 ? 6 : value, attempt.ack.bytes[21]);
  }
}

TEST(SecondReply, SixtyDecodedBytesAreEnoughAndMissingTextIsEmpty) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome();
  peer.ReplyBytes(Scrambled("8" + AckBytes() + "P")).Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ("P", attempt.project);
  EXPECT_EQ("", attempt.second);
}

TEST(SecondReply, AnEmptyProjectNameIsASuccess) {
  ScriptedPeer peer;
  AddHandshake(peer, "").Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ("", attempt.project);
  EXPECT_EQ("second", attempt.second);
}

TEST(SecondReply, UnterminatedTextsEndWithTheLongestReply) {
  const std::string name(384 - 59, 'n');  // 512 bytes on the wire, none of them a zero behind the acknowledgement
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome();
  peer.ReplyBytes(Scrambled("8" + AckBytes() + name)).Start();
  Attempt attempt;
  EXPECT_EQ(kHandshakeOk, attempt.Connect(peer.Address()));
  peer.Join();
  EXPECT_EQ(name, attempt.project);
  EXPECT_EQ("", attempt.second);
}

TEST(LocalDatabase, NoHostIsOneAndTheFlagFollows) {
  CClientSock session;
  EXPECT_TRUE(session.localDB) << "1 until an attempt has decided";
  EXPECT_FALSE(session.sameLan);
  EXPECT_EQ(0, session._IsLocalDB("127.0.0.1"));
  EXPECT_EQ(0, session._IsLocalDB("localhost"));
}
