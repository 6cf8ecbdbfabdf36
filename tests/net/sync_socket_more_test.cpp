// Small rules of the sockets: lengths of zero, descriptors of accepted connections, what exactly is asked of the system
// and how often, the time of the last send, and what is left of a time-out when a signal comes late.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gtest/gtest.h"
#include "net/CReqTimeSock.h"
#include "net/FakeSystem.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Pair {
  Pair() {
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    near.Attach(ends[0]);
    far.Attach(ends[1]);
  }
  CReqTimeSock near;
  CSyncSocket far;
};

using Transfer = FakeSystem::RealTransfer;

unsigned int PortOf(const CSyncSocket& sock) {
  sockaddr_in addr{};
  socklen_t len = sizeof addr;
  EXPECT_EQ(0, getsockname(sock.Descriptor(), reinterpret_cast<sockaddr*>(&addr), &len));
  return ntohs(addr.sin_port);
}

int Reuse(const CSyncSocket& sock) {
  int value = -1;
  socklen_t len = sizeof value;
  EXPECT_EQ(0, getsockopt(sock.Descriptor(), SOL_SOCKET, SO_REUSEADDR, &value, &len));
  return value;
}

// Notes the addresses that connects of this thread ask for; none of them succeeds.
struct RefusedConnects {
  RefusedConnects() {
    fake.onConnect = [this](int, const sockaddr_in& peer, const std::function<int()>&) {
      asked.push_back(inet_ntoa(peer.sin_addr) + (":" + std::to_string(ntohs(peer.sin_port))));
      errno = ECONNREFUSED;
      return -1;
    };
  }
  FakeSystem fake;
  std::vector<std::string> asked;
};

// Notes the time-outs that are set by this thread, the result being that of the option.
struct TimeOptions {
  TimeOptions() {
    fake.onSetOption = [this](int level, int option, const void* value, socklen_t len) {
      EXPECT_EQ(SOL_SOCKET, level);
      timeval time{};
      EXPECT_EQ(sizeof time, len);
      std::memcpy(&time, value, sizeof time);
      asked.push_back((option == SO_RCVTIMEO   ? "receive "
                       : option == SO_SNDTIMEO ? "send "
                                               : "? ") +
                      std::to_string(time.tv_sec) + " s " + std::to_string(time.tv_usec) + " us");
      return option == SO_RCVTIMEO ? receiveResult : sendResult;
    };
  }
  FakeSystem fake;
  int receiveResult = 0;
  int sendResult = 0;
  std::vector<std::string> asked;
};
using Asked = std::vector<std::string>;

// A listening socket and a client whose connection waits to be accepted.
struct Waiting {
  Waiting() {
    EXPECT_EQ(1, listener.Create(0, SOCK_STREAM, "127.0.0.1", 0));
    EXPECT_EQ(0, listen(listener.Descriptor(), 1));
    sockaddr_in addr{};
    socklen_t len = sizeof addr;
    EXPECT_EQ(0, getsockname(listener.Descriptor(), reinterpret_cast<sockaddr*>(&addr), &len));
    EXPECT_EQ(1, client.Create(0, SOCK_STREAM, nullptr, 0));
    EXPECT_EQ(1, client._Connect("127.0.0.1", ntohs(addr.sin_port)));
  }
  CSyncSocket listener;
  CSyncSocket client;
};

}  // namespace

TEST(CSyncSocketTransfer, ALengthOfZeroMovesNothingAndIsNoFailure) {
  Pair pair;
  char c = 'x';
  EXPECT_EQ(0, pair.near._Send(&c, 0, 0));
  ASSERT_EQ(1, pair.far.SendAll("a", 1, 0));
  EXPECT_EQ(0, pair.near._Recv(&c, 0, 0));
  EXPECT_EQ('x', c);
  EXPECT_EQ(1, pair.near._Recv(&c, 1, 0)) << "what came in is still there";
}

TEST(CSyncSocketAccept, AnAcceptedConnectionIsClosedOnExec) {
  Waiting waiting;
  CSyncSocket accepted;
  ASSERT_EQ(1, waiting.listener.Accept(accepted, nullptr, nullptr));
  EXPECT_EQ(FD_CLOEXEC, fcntl(accepted.Descriptor(), F_GETFD));
}

TEST(CSyncSocketAccept, AConnectionOnDescriptorZeroIsASuccess) {
  Waiting waiting;
  const int saved = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  {
    CSyncSocket accepted;
    EXPECT_EQ(1, waiting.listener.Accept(accepted, nullptr, nullptr));
    EXPECT_EQ(0, accepted.Descriptor());
  }
  dup2(saved, STDIN_FILENO);
  close(saved);
}

TEST(CSyncSocket, EveryOtherNegativeDescriptorThanMinusOneCountsAsASocket) {
  CSyncSocket sock(-2);  // its close fails and hurts nobody
  EXPECT_TRUE(sock.IsSocket());
}

TEST(CSyncSocketClose, AsksTheVirtualOperationWhetherThereIsASocket) {
  class Denying : public CSyncSocket {
   public:
    using CSyncSocket::CSyncSocket;
    bool IsSocket() const override { return false; }
  };
  const int descriptor = dup(STDERR_FILENO);
  Denying sock(descriptor);
  sock.Close();
  EXPECT_EQ(-1, sock.Descriptor());
  EXPECT_NE(-1, fcntl(descriptor, F_GETFD)) << "it was not to be closed";
  close(descriptor);
}

TEST(CSyncSocketCreate, ADescriptorOfZeroIsHeldToo) {
  CSyncSocket zero(0);
  EXPECT_EQ(1, zero.Create(0, SOCK_STREAM, nullptr, 0));
  EXPECT_EQ(0, zero.Descriptor());
  zero.Close();  // or standard input is closed with the object
}

TEST(CSyncSocketCreate, WithoutPortAndAddressSetsNoReuse) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 1));
  EXPECT_EQ(0, Reuse(sock));
}

TEST(CSyncSocketCreate, HandsTheReuseValueItselfToTheSystemAndGoesOnWhenItIsRefused) {
  FakeSystem fake;
  std::vector<int> values;
  fake.onSetOption = [&](int level, int option, const void* value, socklen_t len) {
    EXPECT_EQ(SOL_SOCKET, level);
    EXPECT_EQ(SO_REUSEADDR, option);
    EXPECT_EQ(4u, len);
    std::memcpy(&values.emplace_back(), value, sizeof(int));
    return -1;
  };
  CSyncSocket sock;
  EXPECT_EQ(1, sock.Create(0, SOCK_STREAM, "127.77.0.9", 0x10005));
  EXPECT_EQ(std::vector<int>{0x10005}, values);
  EXPECT_NE(0u, PortOf(sock));
}

// Both sockets are for reuse, so that the second one may have the port too.
TEST(CSyncSocketCreate, WithAPortAndNoAddressBindsToEveryAddress) {
  CSyncSocket second;
  for (int attempt = 0; attempt < 20 && second.Descriptor() == -1; ++attempt) {  // someone else may use the port
    CSyncSocket first;
    ASSERT_EQ(1, first.Create(0, SOCK_STREAM, "127.77.0.10", 1));
    const unsigned int port = PortOf(first);
    if (second.Create(port, SOCK_STREAM, nullptr, 1) == 1) {
      EXPECT_EQ(port, PortOf(second));
    }
  }
  sockaddr_in addr{};
  socklen_t len = sizeof addr;
  ASSERT_EQ(0, getsockname(second.Descriptor(), reinterpret_cast<sockaddr*>(&addr), &len));
  EXPECT_EQ(htonl(INADDR_ANY), addr.sin_addr.s_addr);
}

TEST(CSyncSocketConnect, IsTriedOnceAlsoAtTheAddressOfAnUnknownName) {
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  RefusedConnects connects;
  EXPECT_EQ(0, sock._Connect("no-such-host", 80));
  EXPECT_EQ(0, sock._Connect(static_cast<unsigned long>(inet_addr("127.1.2.3")), 65536 + 81));
  EXPECT_EQ((Asked{"255.255.255.255:80", "127.1.2.3:81"}), connects.asked);
}

TEST(CScnSocketConnect, OnlyItsOwnConnectByNameKnowsTheFixedPeer) {
  CReqTimeSock sock;
  sock.SetFixedPeer(inet_addr("127.9.9.9"));
  CSyncSocket& base = sock;
  RefusedConnects connects;
  EXPECT_EQ(0, sock._Connect("127.1.1.1", 80));
  EXPECT_EQ(0, sock._Connect(static_cast<unsigned long>(inet_addr("127.2.2.2")), 80));
  EXPECT_EQ(0, base._Connect("127.3.3.3", 80));
  EXPECT_EQ((Asked{"127.9.9.9:80", "127.2.2.2:80", "127.3.3.3:80"}), connects.asked);
}

TEST(CSyncSocketDatagram, SendToGoesByNameWithTheFlagsOfTheCaller) {
  FakeSystem fake;
  fake.hosts["plant"] = {"127.0.0.1"};
  CSyncSocket receiver;
  CSyncSocket sender;
  ASSERT_EQ(1, receiver.Create(0, SOCK_DGRAM, "127.0.0.1", 0));
  ASSERT_EQ(1, sender.Create(0, SOCK_DGRAM, nullptr, 0));
  EXPECT_EQ(2, sender._SendTo("ab", 2, PortOf(receiver), "plant", 0));
  EXPECT_EQ(-1, sender._SendTo("cd", 2, PortOf(receiver), "plant", MSG_OOB)) << "no datagram is urgent";
  EXPECT_EQ(EOPNOTSUPP, errno);
  char got[3] = {};
  sockaddr_in from{};
  EXPECT_EQ(2, receiver._RecvFrom(got, sizeof got, &from, 0));
  EXPECT_STREQ("ab", got);
}

TEST(CSyncSocketDatagram, RecvFromZeroesTheAddressAlsoForANegativeLength) {
  CSyncSocket none;
  char got = 0;
  sockaddr_in from;
  std::memset(&from, 0xEE, sizeof from);
  EXPECT_EQ(-1, none._RecvFrom(&got, -1, &from, 0));
  const sockaddr_in zero{};
  EXPECT_EQ(0, std::memcmp(&zero, &from, sizeof zero));
}

TEST(CSyncSocketAll, EveryTransferHasTheFlagsOfTheCaller) {
  Pair pair;
  FakeSystem fake;
  std::vector<int> seen;
  fake.onSend = fake.onRecv = [&](int, size_t len, int flags, const Transfer& real) {
    seen.push_back(flags & MSG_DONTWAIT);
    return real(std::min<size_t>(len, 1));
  };
  char got[3] = {};
  EXPECT_EQ(1, pair.near.SendAll("ab", 2, MSG_DONTWAIT));
  EXPECT_EQ(1, pair.far.RecvAll(got, 2, MSG_DONTWAIT));
  EXPECT_EQ(std::vector<int>(4, MSG_DONTWAIT), seen);
}

TEST(CSyncSocketAll, ACountBeyondTheLengthIsNoSuccess) {
  CSyncSocket sock;
  FakeSystem fake;
  int calls = 0;
  fake.onSend = fake.onRecv = [&](int, size_t len, int, const Transfer&) {
    ++calls;
    return static_cast<ssize_t>(len + 1);
  };
  char got[2];
  EXPECT_EQ(0, sock.SendAll("ab", 2, 0));
  EXPECT_EQ(0, sock.RecvAll(got, 2, 0));
  EXPECT_EQ(2, calls);
}

TEST(CSyncSocketTimeOut, TheReceiveSideIsSetFirstAndToTheMillisecond) {
  CSyncSocket sock;
  TimeOptions options;
  EXPECT_EQ(1, sock.SetTimeOut(8000));
  EXPECT_EQ(1, sock.SetTimeOut(0x7FFFFFFF));
  EXPECT_EQ(1, sock.SetTimeOut(0));
  EXPECT_EQ((Asked{"receive 8 s 0 us", "send 8 s 0 us", "receive 2147483 s 647000 us", "send 2147483 s 647000 us"}),
            options.asked);
}

TEST(CSyncSocketTimeOut, TheSendSideIsSetOnlyWhenTheReceiveSideWas) {
  CSyncSocket sock;
  TimeOptions options;
  options.receiveResult = -1;
  EXPECT_EQ(0, sock.SetTimeOut(1001));
  EXPECT_EQ((Asked{"receive 1 s 1000 us"}), options.asked);
  options.receiveResult = 0;
  options.sendResult = -1;
  EXPECT_EQ(0, sock.SetTimeOut(1001));
  EXPECT_EQ(3u, options.asked.size());
}

TEST(CSyncSocketTimeOut, GetRecvTimeOutIsOneCallThatSets) {
  CSyncSocket sock;
  TimeOptions options;
  long ms = 77;
  EXPECT_EQ(1, sock.GetRecvTimeOut(ms));
  EXPECT_EQ((Asked{"receive 0 s 0 us"}), options.asked);
  EXPECT_EQ(0, ms);
}

TEST(CSyncSocketSendTimeOut, SendsOnceThroughTheVirtualOperationWithoutFlags) {
  class Counting : public CSyncSocket {
   public:
    using CSyncSocket::CSyncSocket;
    int _Send(const void*, int len, int flags) override {
      asked.emplace_back(len, flags);
      return result;
    }
    std::vector<std::pair<int, int>> asked;
    int result = 0;
  };
  Pair pair;
  Counting counting(dup(pair.near.Descriptor()));
  for (const int result : {-1, 0, 2, 3, 4}) {
    counting.result = result;
    EXPECT_EQ(result == 3 ? 1 : 0, counting.SendTimeOut("abc", 3, 1000)) << result;
  }
  EXPECT_EQ((std::vector<std::pair<int, int>>(5, {3, 0})), counting.asked);
  counting.result = -1;
  EXPECT_EQ(0, counting.SendTimeOut("abc", ULONG_MAX, 1000)) << "a failure is not the length, however long";
}

TEST(CSyncSocketTransfer, AShortSendAndAShortReceiveAreGivenAsTheyAre) {
  Pair pair;
  FakeSystem fake;
  int calls = 0;
  fake.onSend = fake.onRecv = [&](int, size_t, int, const Transfer& real) {
    ++calls;
    return real(2);
  };
  char got[4] = {};
  EXPECT_EQ(2, pair.near._Send("abc", 3, 0));
  EXPECT_EQ(2, pair.far._Recv(got, 3, 0));
  EXPECT_STREQ("ab", got);
  EXPECT_EQ(2, calls);
}

TEST(CReqTimeSock, AVirtualSendFirstRenewsTheTimeOfTheLastSendAndSendAllDoesNot) {
  Pair pair;
  const time_t made = pair.near.LastSend();
  while (time(nullptr) <= made) std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the next second comes
  EXPECT_EQ(1, pair.near.SendAll("x", 1, 0));
  EXPECT_EQ(made, pair.near.LastSend());
  FakeSystem fake;
  time_t atTheSend = 0;
  fake.onSend = [&](int, size_t, int, const Transfer&) -> ssize_t {
    atTheSend = pair.near.LastSend();
    errno = EPIPE;
    return -1;
  };
  EXPECT_EQ(-1, pair.near._Send("x", 1, 0));
  EXPECT_GT(atTheSend, made) << "before the send, which fails";
}

// The signal comes when the time-out has passed since the transfer began: nothing is left to wait for.
TEST(SignalsDuringTransfers, TheTimeOutCountsFromTheBeginningOfTheTransfer) {
  constexpr std::chrono::milliseconds kTimeOut(1500);
  Pair pair;
  ASSERT_EQ(1, pair.near.SetTimeOut(kTimeOut.count()));
  FakeSystem fake;
  fake.onRecv = [&](int, size_t, int, const FakeSystem::RealTransfer&) -> ssize_t {
    std::this_thread::sleep_for(kTimeOut);
    errno = EINTR;
    return -1;
  };
  char c = 0;
  const auto begin = Clock::now();
  EXPECT_EQ(-1, pair.near._Recv(&c, 1, 0));
  EXPECT_EQ(EAGAIN, errno);
  EXPECT_LT(Clock::now() - begin, 2 * kTimeOut);
}
