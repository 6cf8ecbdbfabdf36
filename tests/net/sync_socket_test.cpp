#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <future>
#include <vector>

#include "gtest/gtest.h"
#include "net/CReqTimeSock.h"
#include "net/CScnSocket.h"
#include "net/CSyncSocket.h"
#include "net/FakeSystem.h"
#include "support/OpenDescriptors.h"
#include "support/ScriptedPeer.h"
#include "support/TimeOutOption.h"

namespace {

using Clock = std::chrono::steady_clock;

// Two connected sockets without a network.
struct Pair {
  Pair() {
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    near.Attach(ends[0]);
    far.Attach(ends[1]);
  }
  CSyncSocket near;
  CSyncSocket far;
};

std::string Dotted(const sockaddr_in& addr) { return inet_ntoa(addr.sin_addr); }

sockaddr_in AddrOf(const char* host, unsigned int port) {
  sockaddr_in addr;
  memset(&addr, 0xEE, sizeof addr);
  CSyncSocket::CreateAddrIn(host, port, &addr);
  return addr;
}

sockaddr_in LocalName(const CSyncSocket& sock) {
  sockaddr_in addr{};
  socklen_t len = sizeof addr;
  EXPECT_EQ(0, getsockname(sock.Descriptor(), reinterpret_cast<sockaddr*>(&addr), &len));
  return addr;
}

timeval TimeOption(const CSyncSocket& sock, int option) {
  timeval time{};
  socklen_t len = sizeof time;
  EXPECT_EQ(0, getsockopt(sock.Descriptor(), SOL_SOCKET, option, &time, &len));
  return time;
}

int IntOption(const CSyncSocket& sock, int level, int option) {
  int value = -1;
  socklen_t len = sizeof value;
  EXPECT_EQ(0, getsockopt(sock.Descriptor(), level, option, &value, &len));
  return value;
}

// Sends until the system takes no more.
void FillSendBuffer(CSyncSocket& sock) {
  const std::vector<char> block(64 * 1024);
  while (sock._Send(block.data(), static_cast<int>(block.size()), MSG_DONTWAIT) > 0) {
  }
}

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

}  // namespace

TEST(CSyncSocket, IsNoSocketAtMinusOneAndZeroOnly) {
  CSyncSocket none;
  EXPECT_FALSE(none.IsSocket());
  EXPECT_EQ(-1, none.Descriptor());
  CSyncSocket one(dup(STDERR_FILENO));
  EXPECT_TRUE(one.IsSocket());
}

TEST(CSyncSocket, DescriptorZeroIsNoSocketAndStaysOpenOnCloseButNotOnDestruction) {
  const int saved = dup(STDIN_FILENO);
  ASSERT_EQ(0, dup2(saved, 0));
  {
    CSyncSocket zero(0);
    EXPECT_FALSE(zero.IsSocket());
    zero.Close();
    EXPECT_EQ(-1, zero.Descriptor());
  }
  EXPECT_TRUE(IsOpen(0));
  { CSyncSocket zero(0); }
  EXPECT_FALSE(IsOpen(0));
  dup2(saved, 0);
  close(saved);
}

TEST(CSyncSocket, DestructorOfEachClassClosesTheDescriptor) {
  const int before = OpenDescriptors();
  {
    CSyncSocket plain;
    CScnSocket fixed;
    CReqTimeSock timed;
    for (CSyncSocket* sock : {&plain, static_cast<CSyncSocket*>(&fixed), static_cast<CSyncSocket*>(&timed)}) {
      ASSERT_EQ(1, sock->Create(0, SOCK_STREAM, nullptr, 0));
    }
    EXPECT_EQ(before + 3, OpenDescriptors());
  }
  EXPECT_EQ(before, OpenDescriptors());
}

TEST(CSyncSocket, AttachClosesWhatWasHeld) {
  const int before = OpenDescriptors();
  {
    CSyncSocket sock(dup(STDERR_FILENO));
    sock.Attach(dup(STDERR_FILENO));
    EXPECT_EQ(before + 1, OpenDescriptors());
  }
  EXPECT_EQ(before, OpenDescriptors());
}

TEST(CSyncSocketCreate, OnAHeldDescriptorGivesOneAndKeepsIt) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  const int32_t first = sock.Descriptor();
  EXPECT_EQ(1, sock.Create(1, SOCK_DGRAM, "no address", 1));
  EXPECT_EQ(first, sock.Descriptor());
  EXPECT_EQ(SOCK_STREAM, IntOption(sock, SOL_SOCKET, SO_TYPE));
}

TEST(CSyncSocketCreate, WithoutPortAndAddressStaysUnboundAndIsClosedOnExec) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(0, ntohs(LocalName(sock).sin_port));
  EXPECT_EQ(FD_CLOEXEC, fcntl(sock.Descriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST(CSyncSocketCreate, WithAnAddressBindsAlsoAtPortZero) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, "127.77.0.1", 0));
  EXPECT_EQ("127.77.0.1", Dotted(LocalName(sock)));
  EXPECT_NE(0, ntohs(LocalName(sock).sin_port));
}

TEST(CSyncSocketCreate, SetsReuseOnlyWhenAsked) {
  CSyncSocket plain;
  CSyncSocket reusing;
  ASSERT_EQ(1, plain.Create(0, SOCK_STREAM, "127.77.0.2", 0));
  ASSERT_EQ(1, reusing.Create(0, SOCK_STREAM, "127.77.0.2", 5));
  EXPECT_EQ(0, IntOption(plain, SOL_SOCKET, SO_REUSEADDR));
  EXPECT_NE(0, IntOption(reusing, SOL_SOCKET, SO_REUSEADDR));
}

TEST(CSyncSocketCreate, FailedBindReleasesTheDescriptorAndKeepsErrno) {
  CSyncSocket first;
  ASSERT_EQ(1, first.Create(0, SOCK_STREAM, "127.77.0.3", 0));
  const int before = OpenDescriptors();
  CSyncSocket second;
  errno = 0;
  EXPECT_EQ(0, second.Create(ntohs(LocalName(first).sin_port), SOCK_STREAM, "127.77.0.3", 0));
  EXPECT_EQ(EADDRINUSE, errno);
  EXPECT_EQ(-1, second.Descriptor());
  EXPECT_EQ(before, OpenDescriptors());
}

TEST(CSyncSocketCreate, WithoutDescriptorsLeftFailsAndWorksAgainAfterwards) {
  rlimit old{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
  const rlimit none{0, old.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
  CSyncSocket sock;
  EXPECT_EQ(0, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(EMFILE, errno);
  EXPECT_EQ(-1, sock.Descriptor());
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &old));
  EXPECT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
}

TEST(CSyncSocketCreateAddrIn, NullHostIsAnyAddress) {
  const sockaddr_in addr = AddrOf(nullptr, 3968);
  EXPECT_EQ(AF_INET, addr.sin_family);
  EXPECT_EQ(htons(3968), addr.sin_port);
  EXPECT_EQ("0.0.0.0", Dotted(addr));
  for (const unsigned char c : addr.sin_zero) EXPECT_EQ(0, c);
}

TEST(CSyncSocketCreateAddrIn, DottedHostIsTakenWithoutLookUp) {
  FakeSystem fake;
  EXPECT_EQ("10.1.2.3", Dotted(AddrOf("10.1.2.3", 80)));
  EXPECT_TRUE(fake.lookups.empty());
}

TEST(CSyncSocketCreateAddrIn, UsesTheLow16BitsOfThePort) { EXPECT_EQ(htons(1), AddrOf("10.1.2.3", 65537).sin_port); }

TEST(CSyncSocketCreateAddrIn, ZeroTextGoesThroughTheLookUp) {
  FakeSystem fake;
  EXPECT_EQ("0.0.0.0", Dotted(AddrOf("0.0.0.0", 80)));
  EXPECT_EQ(std::vector<std::string>{"0.0.0.0"}, fake.lookups);
  fake.hosts["0.0.0.0"] = {"127.1.1.1"};
  EXPECT_EQ("127.1.1.1", Dotted(AddrOf("0.0.0.0", 80)));
}

TEST(CSyncSocketCreateAddrIn, UnresolvableNameLeavesAllOnes) {
  FakeSystem fake;
  EXPECT_EQ("255.255.255.255", Dotted(AddrOf("no-such-host", 80)));
  EXPECT_EQ(std::vector<std::string>{"no-such-host"}, fake.lookups);
}

TEST(CSyncSocketCreateAddrIn, NameBecomesTheFirstAddressOfItsList) {
  FakeSystem fake;
  fake.hosts["plant"] = {"127.4.4.4", "127.5.5.5"};
  EXPECT_EQ("127.4.4.4", Dotted(AddrOf("plant", 80)));
}

TEST(CSyncSocketCreateAddrIn, LookUpRoomGrowsTo64KiBAndNoFurther) {
  FakeSystem fake;
  fake.hosts["plant"] = {"127.4.4.4"};
  fake.lookupRoom = 64 * 1024;
  EXPECT_EQ("127.4.4.4", Dotted(AddrOf("plant", 80)));
  EXPECT_EQ(7u, fake.lookups.size());
  fake.lookupRoom = 64 * 1024 + 1;
  EXPECT_EQ("255.255.255.255", Dotted(AddrOf("plant", 80)));
}

TEST(CSyncSocketCreateAddrIn, TakesAnAddressInNetworkOrder) {
  sockaddr_in addr;
  memset(&addr, 0xEE, sizeof addr);
  CSyncSocket::CreateAddrIn(static_cast<unsigned long>(inet_addr("10.9.8.7")), 443, &addr);
  EXPECT_EQ("10.9.8.7", Dotted(addr));
  EXPECT_EQ(AF_INET, addr.sin_family);
  EXPECT_EQ(htons(443), addr.sin_port);
  for (const unsigned char c : addr.sin_zero) EXPECT_EQ(0, c);
}

TEST(CSyncSocketConnect, ReachesAPeerByNameAndByAddress) {
  ScriptedPeer peer;
  peer.Accept().WaitClose().Accept().WaitClose().Start();
  FakeSystem fake;
  fake.hosts["plant"] = {"127.0.0.1"};
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, sock._Connect("plant", peer.Port()));
  sock.Close();
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, sock._Connect(static_cast<unsigned long>(inet_addr("127.0.0.1")), peer.Port()));
  sock.Close();
  peer.Join();
}

TEST(CSyncSocketConnect, RefusedGivesZeroAndKeepsTheDescriptor) {
  CSyncSocket bound;
  ASSERT_EQ(1, bound.Create(0, SOCK_STREAM, "127.77.0.4", 0));
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(0, sock._Connect("127.77.0.4", ntohs(LocalName(bound).sin_port)));
  EXPECT_EQ(ECONNREFUSED, errno);
  EXPECT_TRUE(sock.IsSocket());
}

TEST(CSyncSocketConnect, WithoutADescriptorFails) {
  CSyncSocket sock;
  EXPECT_EQ(0, sock._Connect("127.0.0.1", 1));
  EXPECT_EQ(EBADF, errno);
}

TEST(CScnSocketConnect, GoesToTheFixedPeerWhateverTheNameAndThePortGiven) {
  ScriptedPeer relay("127.77.0.5", 3968);
  relay.Accept().WaitClose().Start();
  FakeSystem fake;
  CScnSocket sock;
  EXPECT_EQ(0u, sock.FixedPeer());
  sock.SetFixedPeer(inet_addr("127.77.0.5"));
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, sock._Connect("any device name", 3968));
  EXPECT_TRUE(fake.lookups.empty());
  sock.Close();
  relay.Join();
}

TEST(CScnSocketConnect, WithoutAFixedPeerGoesByName) {
  ScriptedPeer peer("127.77.0.6");
  peer.Accept().WaitClose().Start();
  CReqTimeSock sock;
  EXPECT_EQ(0u, sock.FixedPeer());
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, sock._Connect("127.77.0.6", peer.Port()));
  sock.Close();
  peer.Join();
}

TEST(CSyncSocketAccept, TakesAConnectionAndTheClientsAddress) {
  CSyncSocket listener;
  ASSERT_EQ(1, listener.Create(0, SOCK_STREAM, "127.0.0.1", 0));
  ASSERT_EQ(0, listen(listener.Descriptor(), 1));
  CSyncSocket client;
  ASSERT_EQ(1, client.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, client._Connect("127.0.0.1", ntohs(LocalName(listener).sin_port)));
  sockaddr_in from{};
  unsigned int len = sizeof from;
  CSyncSocket accepted;
  ASSERT_EQ(1, listener.Accept(accepted, reinterpret_cast<sockaddr*>(&from), &len));
  EXPECT_EQ(LocalName(client).sin_port, from.sin_port);
  EXPECT_EQ(1, client.SendAll("abc", 3, 0));
  char got[4] = {};
  EXPECT_EQ(1, accepted.RecvAll(got, 3, 0));
  EXPECT_STREQ("abc", got);
}

TEST(CSyncSocketAccept, OverwritesThePeersDescriptorWithoutClosingIt) {
  CSyncSocket notListening;
  ASSERT_EQ(1, notListening.Create(0, SOCK_STREAM, nullptr, 0));
  const int old = dup(STDERR_FILENO);
  CSyncSocket peer(old);
  EXPECT_EQ(0, notListening.Accept(peer, nullptr, nullptr));
  EXPECT_EQ(-1, peer.Descriptor());
  EXPECT_TRUE(IsOpen(old));
  close(old);
}

TEST(CSyncSocketDatagram, SendToAndRecvFromMoveOneDatagram) {
  CSyncSocket receiver;
  CSyncSocket sender;
  ASSERT_EQ(1, receiver.Create(0, SOCK_DGRAM, "127.0.0.1", 0));
  ASSERT_EQ(1, sender.Create(0, SOCK_DGRAM, "127.0.0.1", 0));
  EXPECT_EQ(5, sender._SendTo("hello", 5, ntohs(LocalName(receiver).sin_port), "127.0.0.1", 0));
  char got[16] = {};
  sockaddr_in from;
  memset(&from, 0xEE, sizeof from);
  EXPECT_EQ(5, receiver._RecvFrom(got, sizeof got, &from, 0));
  EXPECT_STREQ("hello", got);
  EXPECT_EQ(LocalName(sender).sin_port, from.sin_port);
  EXPECT_EQ("127.0.0.1", Dotted(from));
}

TEST(CSyncSocketDatagram, RecvFromZeroesTheAddressAlsoWhenItFails) {
  CSyncSocket receiver;
  ASSERT_EQ(1, receiver.Create(0, SOCK_DGRAM, "127.0.0.1", 0));
  char got[16];
  sockaddr_in from;
  memset(&from, 0xEE, sizeof from);
  EXPECT_EQ(-1, receiver._RecvFrom(got, sizeof got, &from, MSG_DONTWAIT));
  EXPECT_EQ(0, from.sin_family);
  EXPECT_EQ(0u, from.sin_addr.s_addr);
}

TEST(CSyncSocketAll, LengthZeroGivesOneWithoutASystemCall) {
  CSyncSocket none;
  errno = 0;
  EXPECT_EQ(1, none.SendAll(nullptr, 0, 0));
  EXPECT_EQ(1, none.RecvAll(nullptr, 0, 0));
  EXPECT_EQ(0, errno);
}

TEST(CSyncSocketAll, NegativeLengthGivesZeroWithoutASystemCall) {
  CSyncSocket none;
  errno = 0;
  EXPECT_EQ(0, none.SendAll("x", -1, 0));
  char c = 'x';
  EXPECT_EQ(0, none.RecvAll(&c, -1, 0));
  EXPECT_EQ(0, errno);
}

TEST(CSyncSocketAll, RecvAllJoinsPieces) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("abcde", 5, 0));
  FakeSystem fake;
  std::vector<size_t> asked;
  fake.onRecv = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    asked.push_back(len);
    return real(std::min<size_t>(len, 2));
  };
  char got[6] = {};
  EXPECT_EQ(1, pair.near.RecvAll(got, 5, 0));
  EXPECT_STREQ("abcde", got);
  EXPECT_EQ((std::vector<size_t>{5, 3, 1}), asked);
}

TEST(CSyncSocketAll, SendAllContinuesBehindAShortSend) {
  Pair pair;
  FakeSystem fake;
  std::vector<size_t> asked;
  fake.onSend = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    asked.push_back(len);
    return real(std::min<size_t>(len, 2));
  };
  EXPECT_EQ(1, pair.near.SendAll("abcde", 5, 0));
  EXPECT_EQ((std::vector<size_t>{5, 3, 1}), asked);
  char got[6] = {};
  EXPECT_EQ(1, pair.far.RecvAll(got, 5, 0));
  EXPECT_STREQ("abcde", got);
}

TEST(CSyncSocketAll, TransfersDoNotPassThroughTheVirtualOperations) {
  class Virtual : public CSyncSocket {
   public:
    using CSyncSocket::CSyncSocket;
    int _Send(const void*, int, int) override { return -1; }
    int _Recv(void*, int, int) override { return -1; }
  };
  Pair pair;
  Virtual sock(dup(pair.near.Descriptor()));
  EXPECT_EQ(1, sock.SendAll("a", 1, 0));
  ASSERT_EQ(1, pair.far.SendAll("b", 1, 0));
  char c = 0;
  EXPECT_EQ(1, sock.RecvAll(&c, 1, 0));
  EXPECT_EQ('b', c);
}

TEST(CSyncSocketAll, RecvAllGivesZeroWhenThePeerClosesPartWay) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("abc", 3, 0));
  pair.far.Close();
  char got[5] = {};
  EXPECT_EQ(0, pair.near.RecvAll(got, 4, 0));
  EXPECT_STREQ("abc", got);
}

TEST(CSyncSocketAll, ATimeOutEndsRecvAllAndSendAllWithZero) {
  Pair pair;
  ASSERT_EQ(1, pair.near.SetTimeOut(20));
  ASSERT_EQ(1, pair.far.SendAll("abc", 3, 0));
  char got[4];
  EXPECT_EQ(0, pair.near.RecvAll(got, 4, 0));
  EXPECT_EQ(EAGAIN, errno);
  const std::vector<char> much(8 * 1024 * 1024);
  EXPECT_EQ(0, pair.near.SendAll(much.data(), static_cast<int>(much.size()), 0));
}

TEST(CSyncSocketTransfer, ANegativeLengthIsRefusedAndTouchesNothing) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("abc", 3, 0));
  char got[4] = {};
  EXPECT_EQ(-1, pair.near._Recv(got, -1, 0));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_STREQ("", got);
  EXPECT_EQ(-1, pair.near._Send("x", -1, 0));
  EXPECT_EQ(-1, pair.near._SendTo("x", -1, 1, "127.0.0.1", 0));
  sockaddr_in from{};
  EXPECT_EQ(-1, pair.near._RecvFrom(got, -1, &from, 0));
}

TEST(CSyncSocketTransfer, SendsToAGonePeerFailWithoutASignal) {
  Pair pair;
  pair.far.Close();
  EXPECT_EQ(-1, pair.near._Send("x", 1, 0));
  EXPECT_EQ(EPIPE, errno);
  EXPECT_EQ(0, pair.near.SendAll("x", 1, 0));
  EXPECT_EQ(0, pair.near.SendTimeOut("x", 1, 1000));
}

TEST(CSyncSocketTimeOut, ZeroGivesOneAndChangesNothing) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock.SetTimeOut(8000));
  EXPECT_EQ(1, sock.SetTimeOut(0));
  EXPECT_EQ(8, TimeOption(sock, SO_RCVTIMEO).tv_sec);
  EXPECT_EQ(8, TimeOption(sock, SO_SNDTIMEO).tv_sec);
  CSyncSocket none;
  EXPECT_EQ(1, none.SetTimeOut(0));
}

TEST(CSyncSocketTimeOut, SetsSecondsAndTheRestInMicrosecondsBothWays) {
  SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD();
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock.SetTimeOut(0x7FFFFFFF));
  for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    EXPECT_EQ(2147483, TimeOption(sock, option).tv_sec);
    EXPECT_NEAR(647000, static_cast<double>(TimeOption(sock, option).tv_usec), 10000);  // the system's clock ticks
  }
}

TEST(CSyncSocketTimeOut, ReceiveAndSendSidesAreSetApart) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, sock.SetRecvTimeOut(3000));
  EXPECT_EQ(1, sock.SetSendTimeOut(5000));
  EXPECT_EQ(3, TimeOption(sock, SO_RCVTIMEO).tv_sec);
  EXPECT_EQ(5, TimeOption(sock, SO_SNDTIMEO).tv_sec);
  EXPECT_EQ(1, sock.SetRecvTimeOut(0));
  EXPECT_EQ(0, TimeOption(sock, SO_RCVTIMEO).tv_sec);
}

TEST(CSyncSocketTimeOut, FailsWithoutASocket) {
  CSyncSocket none;
  EXPECT_EQ(0, none.SetRecvTimeOut(1));
  EXPECT_EQ(0, none.SetSendTimeOut(1));
  EXPECT_EQ(0, none.SetTimeOut(1));
  long ms = 77;
  EXPECT_EQ(0, none.GetRecvTimeOut(ms));
  EXPECT_EQ(77, ms);
}

TEST(CSyncSocketTimeOut, GetRecvTimeOutMakesTheReceiveTimeOutEndless) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock.SetTimeOut(8000));
  long ms = 77;
  EXPECT_EQ(1, sock.GetRecvTimeOut(ms));
  EXPECT_EQ(0, ms);
  EXPECT_EQ(0, TimeOption(sock, SO_RCVTIMEO).tv_sec);
  EXPECT_EQ(8, TimeOption(sock, SO_SNDTIMEO).tv_sec);
}

TEST(CSyncSocketRecvTimeOut, GivesMinusThreeWhenNothingComesInTime) {
  Pair pair;
  char c = 0;
  const auto begin = Clock::now();
  EXPECT_EQ(-3, pair.near.RecvTimeOut(&c, 1, 30));
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(30));
  EXPECT_EQ(-3, pair.near.RecvTimeOut(&c, 1, 0));
}

TEST(CSyncSocketRecvTimeOut, GivesWhatOneReceiveBringsAndZeroOnClose) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("ab", 2, 0));
  char got[8] = {};
  EXPECT_EQ(2, pair.near.RecvTimeOut(got, sizeof got, 0));
  EXPECT_STREQ("ab", got);
  pair.far.Close();
  EXPECT_EQ(0, pair.near.RecvTimeOut(got, sizeof got, 1000));
}

TEST(CSyncSocketRecvTimeOut, ReceivesThroughTheVirtualOperation) {
  class Counting : public CSyncSocket {
   public:
    using CSyncSocket::CSyncSocket;
    int _Recv(void*, int len, int flags) override { return flags == 0 ? len + 40 : 0; }
  };
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("a", 1, 0));
  Counting counting(dup(pair.near.Descriptor()));
  char c = 0;
  EXPECT_EQ(42, counting.RecvTimeOut(&c, 2, 1000));
}

TEST(CSyncSocketSendTimeOut, GivesZeroWhenThePeerTakesNothingInTime) {
  Pair pair;
  FillSendBuffer(pair.near);
  const auto begin = Clock::now();
  EXPECT_EQ(0, pair.near.SendTimeOut("x", 1, 30));
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(30));
}

TEST(CSyncSocketSendTimeOut, GivesOneOnlyWhenOneSendTookAll) {
  Pair pair;
  EXPECT_EQ(1, pair.near.SendTimeOut("abc", 3, 1000));
  FakeSystem fake;
  fake.onSend = [](int, size_t, int, const FakeSystem::RealTransfer&) { return ssize_t{2}; };
  EXPECT_EQ(0, pair.near.SendTimeOut("abc", 3, 1000));
}

TEST(CSyncSocketWait, ANegativeTimeAndAMissingSocketFailAtOnce) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("a", 1, 0));
  char c = 0;
  for (const long ms : {-1L, -500L, -1000L, LONG_MIN}) {
    EXPECT_EQ(-3, pair.near.RecvTimeOut(&c, 1, ms));
    EXPECT_EQ(0, pair.near.SendTimeOut("x", 1, ms));
  }
  CSyncSocket none;
  EXPECT_EQ(-3, none.RecvTimeOut(&c, 1, 60000));
  EXPECT_EQ(0, none.SendTimeOut("x", 1, 60000));
  CSyncSocket stale(dup(STDERR_FILENO));
  close(stale.Descriptor());
  EXPECT_EQ(-3, stale.RecvTimeOut(&c, 1, 60000));
  EXPECT_EQ(EBADF, errno);
  stale.Attach(dup(STDERR_FILENO));
}

TEST(CSyncSocketWait, TheLongestTimeDoesNotWrap) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("a", 1, 0));
  char c = 0;
  EXPECT_EQ(1, pair.near.RecvTimeOut(&c, 1, LONG_MAX));
}

TEST(CSyncSocketWait, WorksWithDescriptorsAtAndAboveFdSetSize) {
  rlimit limit{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
  if (limit.rlim_cur <= FD_SETSIZE + 8) {
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, FD_SETSIZE + 64);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  Pair pair;
  for (const int number : {FD_SETSIZE, FD_SETSIZE + 5}) {
    ASSERT_EQ(number, dup2(pair.near.Descriptor(), number)) << "the limit of open descriptors is too low";
    CSyncSocket high(number);
    EXPECT_EQ(1, high.SendTimeOut("x", 1, 1000));
    char c = 0;
    EXPECT_EQ(-3, high.RecvTimeOut(&c, 1, 5));
    ASSERT_EQ(1, pair.far.SendAll("y", 1, 0));
    EXPECT_EQ(1, high.RecvTimeOut(&c, 1, 1000));
    EXPECT_EQ('y', c);
  }
}

TEST(CSyncSocketShutdown, WakesAReceiveThatBlocksInAnotherThreadAndKeepsTheDescriptor) {
  ScriptedPeer peer;
  peer.Accept().WaitClose().Start();
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock._Connect("127.0.0.1", peer.Port()));
  Event receiving;
  auto received = std::async(std::launch::async, [&] {
    char c = 0;
    receiving.Set();
    return sock._Recv(&c, 1, 0);
  });
  ASSERT_TRUE(receiving.Wait());
  sock.Shutdown();
  ASSERT_EQ(std::future_status::ready, received.wait_for(std::chrono::seconds(5)));
  EXPECT_EQ(0, received.get());
  EXPECT_TRUE(sock.IsSocket());
  EXPECT_TRUE(IsOpen(sock.Descriptor()));
  peer.Join();
}

TEST(CSyncSocketShutdown, WithoutASocketDoesNothing) {
  CSyncSocket none;
  none.Shutdown();
  none.Close();
  EXPECT_EQ(-1, none.Descriptor());
}

TEST(CSyncSocketOptions, NoDelayAndKeepAliveAreSet) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(1, sock.SetNoDelay());
  EXPECT_EQ(1, sock.SetKeepAlive(60, 10, 6));
  EXPECT_EQ(1, IntOption(sock, IPPROTO_TCP, TCP_NODELAY));
  EXPECT_EQ(1, IntOption(sock, SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(60, IntOption(sock, IPPROTO_TCP, TCP_KEEPIDLE));
  EXPECT_EQ(10, IntOption(sock, IPPROTO_TCP, TCP_KEEPINTVL));
  EXPECT_EQ(6, IntOption(sock, IPPROTO_TCP, TCP_KEEPCNT));
  CSyncSocket none;
  EXPECT_EQ(0, none.SetNoDelay());
  EXPECT_EQ(0, none.SetKeepAlive(60, 10, 6));
}

TEST(CReqTimeSock, NotesTheTimeOfEachVirtualSendOnly) {
  // The wanted order of times needs no waiting: the field is compared with the clock around the call.
  Pair pair;
  const time_t made = time(nullptr);
  CReqTimeSock sock;
  EXPECT_GE(sock.LastSend(), made);
  EXPECT_LE(sock.LastSend(), time(nullptr));
  sock.Attach(dup(pair.near.Descriptor()));
  const time_t before = time(nullptr);
  CSyncSocket& base = sock;
  EXPECT_EQ(1, base._Send("x", 1, 0));
  EXPECT_GE(sock.LastSend(), before);
  EXPECT_LE(sock.LastSend(), time(nullptr));
}

TEST(CReqTimeSock, ThrowsStrayBytesAwayOnlyAfterAnAnswerWasNotTakenWhole) {
  Pair pair;
  CReqTimeSock sock;
  sock.Attach(dup(pair.near.Descriptor()));
  ASSERT_EQ(1, pair.far.SendAll("ab", 2, 0));
  sock.BackInStep();
  char c = 0;
  EXPECT_EQ(1, sock._Recv(&c, 1, 0));
  EXPECT_EQ('a', c) << "in step: nothing is thrown away";
  sock.MarkOutOfStep();
  sock.BackInStep();
  EXPECT_EQ(-1, sock._Recv(&c, 1, MSG_DONTWAIT)) << "the rest is gone, without waiting for more";
  ASSERT_EQ(1, pair.far.SendAll("c", 1, 0));
  sock.BackInStep();
  EXPECT_EQ(1, sock._Recv(&c, 1, MSG_DONTWAIT)) << "once only";
  EXPECT_EQ('c', c);
}

TEST(CReqTimeSock, ThrowsAwayABoundedNumberOfBytesWhenThePeerNeverStops) {
  CReqTimeSock sock;
  FakeSystem fake;
  int64_t thrownAway = 0;
  fake.onRecv = [&](int, size_t len, int, const FakeSystem::RealTransfer&) {
    thrownAway += static_cast<int64_t>(len);
    return static_cast<ssize_t>(len);
  };
  sock.MarkOutOfStep();
  sock.BackInStep();
  EXPECT_EQ(CReqTimeSock::kMaxStrayBytes, thrownAway);
}
