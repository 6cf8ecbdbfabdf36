// The receive thread as such: how it starts, what it returns, how its end is told.
#include "core/Thread.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/CoreFixture.h"
#include "support/Event.h"

namespace {

struct Seen {
  Event started;
  Event proceed;
  int detached = -1;
  int unblocked = -1;
};

void* Look(void* argument) {
  auto* seen = static_cast<Seen*>(argument);
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getdetachstate(&attributes, &seen->detached);
  pthread_attr_destroy(&attributes);
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  seen->unblocked = 0;
  for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGCHLD, SIGPIPE}) {
    seen->unblocked += sigismember(&mask, signal) == 1 ? 0 : 1;
  }
  seen->started.Set();
  seen->proceed.Wait();
  return nullptr;
}

}  // namespace

TEST(Thread, IsDetachedAndTakesNoSignalsOfTheHost) {
  const size_t threads = ThreadCount();
  static Seen& seen = *new Seen;  // never freed: nothing tells when a detached thread has let go of it
  ASSERT_TRUE(vqthread_create(Look, &seen));
  ASSERT_TRUE(seen.started.Wait());
  EXPECT_EQ(seen.detached, PTHREAD_CREATE_DETACHED);
  EXPECT_EQ(seen.unblocked, 0);
  EXPECT_EQ(ThreadCount(), threads + 1);
  seen.proceed.Set();
  EXPECT_TRUE(Eventually([&] { return ThreadCount() == threads; }));
}

TEST(Thread, StartingOneKeepsTheCallersSignals) {
  sigset_t before;
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  ASSERT_EQ(sigismember(&before, SIGTERM), 0) << "an earlier session of this process has blocked it";
  static Seen& seen = *new Seen;
  ASSERT_TRUE(vqthread_create(Look, &seen));
  seen.proceed.Set();
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (int signal = 1; signal < 32; ++signal) {
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
  }
  ASSERT_TRUE(seen.started.Wait());
}

TEST(Thread, ARefusalIsTold) {
  SystemHooks hooks;
  hooks.RefuseThreads();
  EXPECT_FALSE(vqthread_create(Look, nullptr));
}

TEST(ThreadEnd, IsWaitedForWhicheverComesFirst) {
  ThreadEnd early;
  early.Signal();
  early.Wait();
  ThreadEnd late;
  std::thread signalling([&] { late.Signal(); });
  late.Wait();
  signalling.join();
}

TEST(ReceiveThread, OfACoreThatIsNotConnectedPausesPostsAndReturnsNull) {
  FakeNapi js;
  TestCore core(js.Env());
  sem_init(&core.recvDone, 0, 0);
  core.semReady = true;
  const SystemHooks hooks;
  EXPECT_EQ(CDBCore::RecvThread(static_cast<CDBCore*>(&core)), nullptr);
  EXPECT_EQ(hooks.Pauses(), std::vector<unsigned int>{60000});
  EXPECT_EQ(hooks.Receives(), 0);
  EXPECT_EQ(sem_trywait(&core.recvDone), 0);
}

TEST(ReceiveThread, WithoutASemaphorePostsNothing) {
  FakeNapi js;
  TestCore core(js.Env());
  sem_init(&core.recvDone, 0, 0);
  core.DoRecv();
  EXPECT_NE(sem_trywait(&core.recvDone), 0);
  sem_destroy(&core.recvDone);
}

// A receive thread of the test's own, on a connection whose other end the test holds.
class ReceiveLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    core.notifySock.Attach(ends[0]);
    core.connected = true;
    core.semReady = true;
    sem_init(&core.recvDone, 0, 0);
    core.driverInfo["Pump"] = {0, 1, nullptr};
    core.driverSlots.resize(1);
    CDBDriver* pump = core._GetDriver("Pump");
    const uint8_t typed[] = {17, 0, 0};
    pump->tags[0].Decode(typed, sizeof typed);
    pump->SetCBFunc(js.Env(), js.Recorder());
  }
  void TearDown() override { close(ends[1]); }

  // How many receives the loop makes of so many bytes and the end behind them.
  int ReceivesFor(size_t count) {
    const std::string bytes(count, '\xFF');
    EXPECT_EQ(send(ends[1], bytes.data(), count, MSG_NOSIGNAL), static_cast<ssize_t>(count));
    EXPECT_EQ(shutdown(ends[1], SHUT_WR), 0);
    const SystemHooks hooks;
    core.DoRecv();
    return hooks.Receives();
  }

  FakeNapi js;
  TestCore core{js.Env()};
  int ends[2] = {-1, -1};
};

TEST_F(ReceiveLoop, EndsBehindTheChunkThatADisconnectMeets) {
  const SystemHooks hooks;
  std::thread receiving([&] { core.DoRecv(); });
  EXPECT_TRUE(Eventually([&] { return hooks.Receives() == 1; }));
  core.connected = false;
  EXPECT_EQ(send(ends[1], "\0\0\0\0\7", 5, MSG_NOSIGNAL), 5);
  receiving.join();
  EXPECT_EQ(hooks.Receives(), 1);  // the connection is not read again
  EXPECT_EQ(js.QueuedEver(), 1u);  // the chunk is taken all the same
  EXPECT_EQ(hooks.Pauses(), std::vector<unsigned int>{60000});
  EXPECT_EQ(sem_trywait(&core.recvDone), 0);
  EXPECT_TRUE(core.notifySock.IsSocket());
  EXPECT_EQ(core.driverInfo.count("Pump"), 1u);
  js.Drain();
}

TEST_F(ReceiveLoop, EndsAsADisconnectWantsWhenTheConnectionEndsBehindIt) {
  const SystemHooks hooks;
  std::thread receiving([&] { core.DoRecv(); });
  EXPECT_TRUE(Eventually([&] { return hooks.Receives() == 1; }));
  core.connected = false;
  shutdown(ends[1], SHUT_RDWR);
  receiving.join();
  EXPECT_EQ(hooks.Pauses(), std::vector<unsigned int>{60000});
  EXPECT_EQ(sem_trywait(&core.recvDone), 0);
  EXPECT_TRUE(core.semReady);
  EXPECT_EQ(core.driverInfo.count("Pump"), 1u);
}

TEST_F(ReceiveLoop, EndsTheSessionWhenTheServerCloses) {
  const SystemHooks hooks;
  EXPECT_EQ(shutdown(ends[1], SHUT_RDWR), 0);
  core.DoRecv();
  EXPECT_FALSE(core.connected);
  EXPECT_FALSE(core.semReady);
  EXPECT_FALSE(core.notifySock.IsSocket());
  EXPECT_TRUE(core.driverInfo.empty());
  EXPECT_EQ(core.driverSlots.size(), 1u);
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_TRUE(hooks.Pauses().empty());
}

TEST_F(ReceiveLoop, Reads2048BytesAtOnce) {
  EXPECT_EQ(ReceivesFor(2048), 2);  // the bytes, the end
}

TEST_F(ReceiveLoop, Reads2049BytesInTwo) { EXPECT_EQ(ReceivesFor(2049), 3); }
