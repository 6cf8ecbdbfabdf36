// Ending a session from this side: quickly, completely, and in every state.
#include "core/CoreFixture.h"

class DisconnectTest : public CoreTest {};

using Clock = std::chrono::steady_clock;

TEST_F(DisconnectTest, WithoutASessionItReturnsAtOnce) {
  const SystemHooks hooks;
  core->_Disconnect();
  Connect();
  core->_Disconnect();
  const size_t pauses = hooks.Pauses().size();
  core->_Disconnect();
  EXPECT_EQ(hooks.Pauses().size(), pauses);
}

TEST_F(DisconnectTest, ClosesBothConnectionsAndDestroysTheDriversQuickly) {
  const int descriptors = OpenDescriptors();
  Connect();
  FollowedDriver("Pump");
  const auto begin = Clock::now();
  core->_Disconnect();
  EXPECT_LT(Since(begin), kPromptly);
  EXPECT_TRUE(server.SeesNotifyClosed());
  EXPECT_TRUE(server.SeesRequestClosed());
  EXPECT_TRUE(IsGone(*core));
  EXPECT_FALSE(core->requestSock.IsSocket());
  EXPECT_FALSE(core->notifySock.IsSocket());
  EXPECT_EQ(core->requestSock.FixedPeer(), 0u);
  EXPECT_EQ(core->notifySock.FixedPeer(), 0u);
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_FALSE(core->semReady);
  server.CloseNotify();
  server.CloseRequest();
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(DisconnectTest, TheThreadPausesSixtyMillisecondsForTheLastNotifications) {
  Connect();
  const SystemHooks hooks;
  const auto begin = Clock::now();
  core->_Disconnect();
  EXPECT_EQ(hooks.Pauses(), std::vector<unsigned int>{60000});
  EXPECT_GE(Since(begin), std::chrono::milliseconds(60));  // it tells of its end behind the pause
}

TEST_F(DisconnectTest, TheThreadEnds) {
  const size_t threads = ThreadCount();
  Connect();
  core->_Disconnect();
  EXPECT_TRUE(Eventually([&] { return ThreadCount() <= threads; }));
}

TEST_F(DisconnectTest, TheDestructorEndsAnOpenSession) {
  Connect();
  FollowedDriver("Pump");
  const auto begin = Clock::now();
  core.reset();
  EXPECT_LT(Since(begin), kPromptly);
  EXPECT_TRUE(server.SeesNotifyClosed());
  EXPECT_TRUE(server.SeesRequestClosed());
}

TEST_F(DisconnectTest, NotificationsMayPourInMeanwhile) {
  Connect();
  FollowedDriver("Pump");
  std::thread pouring([&] {
    std::string chunk;
    for (int i = 0; i < 400; ++i) chunk += Change(0, 0, 1);
    for (int i = 0; i < 500; ++i) server.Notify(chunk);
  });
  ASSERT_TRUE(js.WaitQueuedEver(1));
  const auto begin = Clock::now();
  core->_Disconnect();
  EXPECT_LT(Since(begin), kPromptly);
  pouring.join();
  js.Drain();
}

TEST_F(DisconnectTest, WaitsAtMostSixteenSecondsForTheThread) {
  Connect();
  SystemHooks hooks;
  hooks.TimeOutSemaphoreWaits();
  core->_Disconnect();
  EXPECT_EQ(hooks.SemaphoreWaitSeconds(), 16);
  EXPECT_FALSE(core->connected);
  core->AwaitReceiver();  // the thread was late only
  EXPECT_TRUE(IsGone(*core));
  EXPECT_FALSE(core->semReady);
}

TEST_F(DisconnectTest, WithoutAThreadEverythingEndsBehindTheSixteenSeconds) {
  core->driverInfo["Pump"] = {0, 5, nullptr};
  Driver("Pump")->SetCBFunc(js.Env(), js.Recorder());
  core->connected = true;
  core->semReady = true;
  sem_init(&core->recvDone, 0, 0);
  SystemHooks hooks;
  hooks.TimeOutSemaphoreWaits();
  core->_Disconnect();
  EXPECT_EQ(hooks.SemaphoreWaitSeconds(), 16);
  EXPECT_FALSE(core->semReady);
  EXPECT_TRUE(core->driverInfo.empty());
  EXPECT_EQ(js.FunctionAt(0).released, 1);
}

TEST_F(DisconnectTest, WithoutASemaphoreThereIsNothingToWaitFor) {
  core->driverInfo["Pump"] = {0, 5, nullptr};
  core->connected = true;
  const auto begin = Clock::now();
  core->_Disconnect();
  EXPECT_LT(Since(begin), kPromptly);
  EXPECT_FALSE(core->connected);
  EXPECT_TRUE(core->driverInfo.empty());
}

TEST_F(DisconnectTest, TheNotificationConnectionEndsBeforeTheRequestConnection) {
  Connect();
  const int request = core->requestSock.Descriptor();
  const int notify = core->notifySock.Descriptor();
  const SystemHooks hooks;
  core->_Disconnect();
  EXPECT_EQ(hooks.Ended(), (std::vector<int>{notify, request, notify}));  // the thread is woken first
}

TEST_F(DisconnectTest, TheFixedPeersAreForgotten) {
  Connect();
  core->requestSock.SetFixedPeer(1);
  core->notifySock.SetFixedPeer(2);
  core->_Disconnect();
  EXPECT_EQ(core->requestSock.FixedPeer(), 0u);
  EXPECT_EQ(core->notifySock.FixedPeer(), 0u);
}

TEST_F(DisconnectTest, ASignalDoesNotEndTheWait) {
  Connect();
  SystemHooks hooks;
  hooks.InterruptSemaphoreWait();
  core->_Disconnect();
  EXPECT_FALSE(core->semReady);
  EXPECT_TRUE(IsGone(*core));
}

TEST_F(DisconnectTest, AfterTheServerClosedItReturnsAtOnce) {
  Connect();
  server.CloseNotify();
  ASSERT_TRUE(Eventually([&] { return !core->connected; }));
  const auto begin = Clock::now();
  core->_Disconnect();
  EXPECT_LT(Since(begin), kPromptly);
}

TEST_F(DisconnectTest, QueuedChangesAreStillDelivered) {
  Connect();
  FollowedDriver("Pump");
  server.Notify(Change(0, 1, 7));
  ASSERT_TRUE(js.WaitQueuedEver(1));
  core->_Disconnect();
  js.Drain();
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'B', 7)"});
}

TEST_F(DisconnectTest, QueuedChangesAreFreedWhenTheEnvironmentEnds) {
  Connect();
  FollowedDriver("Pump");
  server.Notify(Change(0, 1, 7));
  ASSERT_TRUE(js.WaitQueuedEver(1));
  core.reset();
  js.EndEnvironment();
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(DisconnectTest, AnEnvironmentThatClosesIsNotTouchedByTheThreadAgain) {
  Connect();
  CDBDriver* pump = FollowedDriver("Pump");
  js.CloseFunctions();
  server.Notify(Change(0, 0, 1));
  ASSERT_TRUE(Eventually([&] { return pump->notifyFunc.load() == nullptr; }));
  server.Notify(Change(0, 0, 2));
  ASSERT_TRUE(Eventually([&] { return FakeNapi::Show(pump->ValueToValue(pump->tags[0].Value())) == "2"; }));
  core->_Disconnect();
  EXPECT_EQ(js.FunctionAt(0).refused, 1);
  EXPECT_EQ(js.FunctionAt(0).released, 0);
}

TEST_F(DisconnectTest, ASessionWithoutAThreadEndsAtOnce) {
  server.Open();
  SystemHooks hooks;
  hooks.RefuseThreads();
  EXPECT_EQ(core->_Connect(server.Address().c_str(), "user", "word"), 0);
  server.Opened();
  EXPECT_TRUE(core->connected);
  EXPECT_NE(Driver("Pump"), nullptr);
  core->requestSock.BackInStep();
  server.Answer(FromHex("48 00 03 00 11 00 05"));
  EXPECT_EQ(FakeNapi::Show(core->_GetDriver("Pump")->GetTagValue(js.Env(), "A")), "5");
  core->_Disconnect();
  EXPECT_TRUE(IsGone(*core));
  EXPECT_FALSE(core->semReady);
}

TEST_F(DisconnectTest, AfterASessionWithoutAThreadTheNextOneHasItsNotifications) {
  server.Open();
  {
    SystemHooks hooks;
    hooks.RefuseThreads();
    EXPECT_EQ(core->_Connect(server.Address().c_str(), "user", "word"), 0);
  }
  server.Opened();
  Connect();
  FollowedDriver("Pump");
  server.Notify(Change(0, 1, 7));
  EXPECT_EQ(Changes(1), std::vector<std::string>{"('Pump', 'B', 7)"});
}

TEST_F(DisconnectTest, ManySessionsLeaveNothingBehind) {
  Connect();
  core->_Disconnect();
  server.CloseNotify();
  server.CloseRequest();
  const int descriptors = OpenDescriptors();
  const size_t threads = ThreadCount();
  for (int round = 0; round < 20; ++round) {
    Connect();
    FollowedDriver("Pump");
    server.Notify(Change(0, 0, 1));
    if (round % 2 == 0) server.CloseNotify();
    if (round % 3 == 0) core.reset();
    if (core == nullptr) core = std::make_unique<TestCore>(js.Env());
    core->_Disconnect();
    core->AwaitReceiver();
    js.Drain();
    server.CloseNotify();
    server.CloseRequest();
    EXPECT_EQ(OpenDescriptors(), descriptors) << round;
  }
  EXPECT_TRUE(Eventually([&] { return ThreadCount() <= threads; }));
}
