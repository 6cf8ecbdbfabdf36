// Small rules of the sockets: lengths of zero, descriptors of accepted connections, the time of the last send, and what
// is left of a time-out when a signal comes late.
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

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

TEST(CReqTimeSock, AVirtualSendRenewsTheTimeOfTheLastSendAndSendAllDoesNot) {
  Pair pair;
  const time_t made = pair.near.LastSend();
  while (time(nullptr) <= made) std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the next second comes
  EXPECT_EQ(1, pair.near.SendAll("x", 1, 0));
  EXPECT_EQ(made, pair.near.LastSend());
  EXPECT_EQ(1, pair.near._Send("x", 1, 0));
  EXPECT_GT(pair.near.LastSend(), made);
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
