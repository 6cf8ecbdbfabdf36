// Signals during transfers. The interruptions are put in place of the system's calls; one test uses a real timer.
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <vector>

#include "gtest/gtest.h"
#include "net/CReqTimeSock.h"
#include "net/FakeSystem.h"
#include "support/ScriptedPeer.h"
#include "support/TimeOutOption.h"

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

ssize_t Interrupted() {
  errno = EINTR;
  return -1;
}

// Interrupts the first count calls.
auto InterruptFirst(int& count) {
  return [&count](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    return count-- > 0 ? Interrupted() : real(len);
  };
}

auto InterruptAlways() {
  return [](int, size_t, int, const FakeSystem::RealTransfer&) { return Interrupted(); };
}

void IgnoreSignal(int) {}

// A timer that interrupts the calling thread's system calls every millisecond.
class InterruptingTimer {
 public:
  InterruptingTimer() {
    struct sigaction action {};
    action.sa_handler = IgnoreSignal;  // without SA_RESTART
    sigaction(SIGALRM, &action, &old_);
    const itimerval every{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }
  ~InterruptingTimer() {
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &old_, nullptr);
  }

 private:
  struct sigaction old_ {};
};

}  // namespace

TEST(SignalsDuringTransfers, AReceiveGoesOnBehindThem) {
  Pair pair;
  ASSERT_EQ(1, pair.far.SendAll("abcdef", 6, 0));
  FakeSystem fake;
  int left = 3;
  fake.onRecv = InterruptFirst(left);
  char got[7] = {};
  EXPECT_EQ(4, pair.near._Recv(got, 4, 0));
  EXPECT_STREQ("abcd", got);
  left = 2;
  EXPECT_EQ(1, pair.near.RecvAll(got, 2, 0));
}

TEST(SignalsDuringTransfers, ASendGoesOnBehindThem) {
  Pair pair;
  FakeSystem fake;
  int left = 3;
  fake.onSend = InterruptFirst(left);
  EXPECT_EQ(3, pair.near._Send("abc", 3, 0));
  left = 3;
  EXPECT_EQ(1, pair.near.SendAll("def", 3, 0));
  char got[7] = {};
  EXPECT_EQ(1, pair.far.RecvAll(got, 6, 0));
  EXPECT_STREQ("abcdef", got);
}

TEST(SignalsDuringTransfers, AReceiveEndsByItsTimeOutHoweverManyCome) {
  SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD();
  Pair pair;
  ASSERT_EQ(1, pair.near.SetTimeOut(40));
  FakeSystem fake;
  fake.onRecv = InterruptAlways();
  char c = 0;
  const auto begin = Clock::now();
  EXPECT_EQ(-1, pair.near._Recv(&c, 1, 0));
  EXPECT_EQ(EAGAIN, errno);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(40));
  EXPECT_EQ(0, pair.near.RecvAll(&c, 1, 0));
}

TEST(SignalsDuringTransfers, ASendEndsByItsTimeOutHoweverManyCome) {
  SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD();
  Pair pair;
  const std::vector<char> block(64 * 1024);
  while (pair.near._Send(block.data(), static_cast<int>(block.size()), MSG_DONTWAIT) > 0) {
  }
  ASSERT_EQ(1, pair.near.SetTimeOut(40));
  FakeSystem fake;
  fake.onSend = InterruptAlways();
  const auto begin = Clock::now();
  EXPECT_EQ(-1, pair.near._Send("x", 1, 0));
  EXPECT_EQ(EAGAIN, errno);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(40));
}

TEST(SignalsDuringTransfers, ARealTimerNeitherEndsNorProlongsAReceive) {
  SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD();
  Pair pair;
  ASSERT_EQ(1, pair.near.SetTimeOut(60));
  const InterruptingTimer timer;
  char c = 0;
  const auto begin = Clock::now();
  EXPECT_EQ(-1, pair.near._Recv(&c, 1, 0));
  EXPECT_EQ(EAGAIN, errno);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(60));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST(SignalsDuringTransfers, ARealTimerNeitherEndsNorProlongsAWait) {
  Pair pair;
  const InterruptingTimer timer;
  char c = 0;
  const auto begin = Clock::now();
  EXPECT_EQ(-3, pair.near.RecvTimeOut(&c, 1, 60));
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(60));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST(SignalsDuringConnect, AnInterruptedConnectIsWaitedFor) {
  ScriptedPeer peer;
  peer.Accept().Expect("61").Start();
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  FakeSystem fake;
  fake.onConnect = [](int fd, const sockaddr_in&, const std::function<int()>& real) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    real();  // begins, as an interrupted connect has
    fcntl(fd, F_SETFL, 0);
    return static_cast<int>(Interrupted());
  };
  EXPECT_EQ(1, sock._Connect("127.0.0.1", peer.Port()));
  EXPECT_EQ(1, sock.SendAll("a", 1, 0));
  peer.Join();
}

TEST(SignalsDuringConnect, AnInterruptedConnectThatIsRefusedFailsWithItsReason) {
  CSyncSocket bound;
  ASSERT_EQ(1, bound.Create(0, SOCK_STREAM, "127.77.0.7", 0));
  sockaddr_in name{};
  socklen_t len = sizeof name;
  ASSERT_EQ(0, getsockname(bound.Descriptor(), reinterpret_cast<sockaddr*>(&name), &len));
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  FakeSystem fake;
  fake.onConnect = [](int fd, const sockaddr_in&, const std::function<int()>& real) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    real();
    fcntl(fd, F_SETFL, 0);
    return static_cast<int>(Interrupted());
  };
  EXPECT_EQ(0, sock._Connect("127.77.0.7", ntohs(name.sin_port)));
  EXPECT_EQ(ECONNREFUSED, errno);
}

TEST(SignalsDuringConnect, AnInterruptedConnectThatIsNotAnsweredEndsByTheSendTimeOut) {
  SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD();
  CSyncSocket full;
  ASSERT_EQ(1, full.Create(0, SOCK_STREAM, "127.77.0.8", 0));
  ASSERT_EQ(0, listen(full.Descriptor(), 0));
  sockaddr_in name{};
  socklen_t len = sizeof name;
  ASSERT_EQ(0, getsockname(full.Descriptor(), reinterpret_cast<sockaddr*>(&name), &len));
  FakeSystem fake;
  fake.onConnect = [](int fd, const sockaddr_in&, const std::function<int()>& real) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    real();
    fcntl(fd, F_SETFL, 0);
    return static_cast<int>(Interrupted());
  };
  CSyncSocket waiting[4];  // more than the listener queues: the last ones get no answer
  for (CSyncSocket& sock : waiting) {
    ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
    ASSERT_EQ(1, sock.SetSendTimeOut(40));
    errno = 0;
    if (sock._Connect("127.77.0.8", ntohs(name.sin_port)) == 0) break;
  }
  EXPECT_EQ(EAGAIN, errno);
}

TEST(SignalsDuringConnect, AnAcceptGoesOnBehindThemAndEndsByItsTimeOut) {
  SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD();
  CSyncSocket listener;
  ASSERT_EQ(1, listener.Create(0, SOCK_STREAM, "127.0.0.1", 0));
  ASSERT_EQ(0, listen(listener.Descriptor(), 1));
  ASSERT_EQ(1, listener.SetTimeOut(60));
  const InterruptingTimer timer;
  CSyncSocket accepted;
  const auto begin = Clock::now();
  EXPECT_EQ(0, listener.Accept(accepted, nullptr, nullptr));
  EXPECT_EQ(EAGAIN, errno);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(60));
}
