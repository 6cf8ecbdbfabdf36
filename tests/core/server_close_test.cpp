// The server ends the session: while nothing happens, while a request waits, while JavaScript uses the session.
#include "core/CoreFixture.h"

class ServerCloseTest : public CoreTest {
 protected:
  void SetUp() override {
    descriptors = OpenDescriptors();
    Connect();
  }

  // Both of the client's connections are closed, and what the test holds of the server's.
  bool NothingIsOpen() {
    server.CloseNotify();
    server.CloseRequest();
    return Eventually([&] { return OpenDescriptors() == descriptors; });
  }

  int descriptors = 0;
};

using Clock = std::chrono::steady_clock;

TEST_F(ServerCloseTest, AnIdleSessionIsClearedWithoutAnyCall) {
  FollowedDriver("Pump");
  FollowedDriver("Fan");
  const size_t threads = ThreadCount();
  server.CloseNotify();
  EXPECT_TRUE(server.SeesRequestClosed());
  EXPECT_TRUE(Eventually([&] { return ThreadCount() == threads - 1; }));
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_EQ(js.FunctionAt(1).released, 1);
  EXPECT_TRUE(NothingIsOpen());
  EXPECT_FALSE(core->connected);
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(ServerCloseTest, AfterwardsThereIsNoDriverAndRequestsFailAtOnce) {
  Driver("Pump");
  server.CloseNotify();
  ASSERT_TRUE(Eventually([&] { return IsGone(*core); }));
  uint16_t id = 1;
  char reply[4];
  EXPECT_EQ(core->_GetDriver("Pump"), nullptr);
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 0);
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_FALSE(core->UnadviseTag(1));
  EXPECT_EQ(core->_SetRtAlarmNotify(js.Recorder(), true), -2);
  EXPECT_EQ(core->driverSlots.size(), 2u);
}

TEST_F(ServerCloseTest, NoPauseAndNoPostOnThisPath) {
  const SystemHooks hooks;
  server.CloseNotify();
  core->AwaitReceiver();
  EXPECT_TRUE(hooks.Pauses().empty());
  EXPECT_FALSE(core->semReady);
}

TEST_F(ServerCloseTest, TheFixedPeersAreForgotten) {
  core->requestSock.SetFixedPeer(1);
  core->notifySock.SetFixedPeer(2);
  server.CloseNotify();
  core->AwaitReceiver();
  EXPECT_EQ(core->requestSock.FixedPeer(), 0u);
  EXPECT_EQ(core->notifySock.FixedPeer(), 0u);
}

TEST_F(ServerCloseTest, BothConnectionsAreClosedTheRequestConnectionFirst) {
  const int request = core->requestSock.Descriptor();
  const int notify = core->notifySock.Descriptor();
  const SystemHooks hooks;
  shutdown(notify, SHUT_RD);  // for the client as if the server had closed
  core->AwaitReceiver();
  EXPECT_EQ(hooks.Closed(), (std::vector<int>{request, notify}));
}

TEST_F(ServerCloseTest, ARequestInFlightReturnsAtOnceAndTheSessionIsThenGone) {
  CDBDriver* pump = FollowedDriver("Pump");
  Clock::time_point closed;
  std::thread closing([&] {
    server.Request(7);
    closed = Clock::now();
    server.CloseNotify();
  });
  const napi_value value = pump->GetTagValue(js.Env(), "A");
  const auto returned = Clock::now();
  closing.join();
  EXPECT_EQ(value, nullptr);
  EXPECT_LT(returned - closed, std::chrono::seconds(3));  // its time-out would be five
  EXPECT_TRUE(Eventually([&] { return IsGone(*core); }));
  EXPECT_TRUE(Eventually([&] { return js.FunctionAt(0).released == 1; }));
  EXPECT_TRUE(NothingIsOpen());
}

TEST_F(ServerCloseTest, EveryKindOfRequestInFlightReturnsItsFailure) {
  using Request = std::function<bool(CDBDriver&)>;
  const std::pair<size_t, Request> requests[] = {
      {8, [](CDBDriver& driver) { return driver._ConnectTag("A"); }},
      {5, [](CDBDriver& driver) { return driver._ConnectTag("Z"); }},
      {5, [](CDBDriver& driver) { return driver.GetTagId("Z") != 65535; }},
      {5, [this](CDBDriver& driver) { return driver.SetTagValue(js.Env(), "Z", js.Number(1)) != -2; }},
      {5, [this](CDBDriver&) { return core->UnadviseTag(1); }},
      {1, [this](CDBDriver&) { return core->_SetRtAlarmNotify(js.Recorder(), false) != -2; }},
  };
  for (const auto& [bytes, request] : requests) {
    Connect();
    CDBDriver* pump = Driver("Pump");
    Clock::time_point closed;
    std::thread closing([&, count = bytes] {
      server.Request(count);
      closed = Clock::now();
      server.CloseNotify();
    });
    EXPECT_FALSE(request(*pump)) << bytes;
    const auto returned = Clock::now();
    closing.join();
    EXPECT_LT(returned - closed, std::chrono::seconds(3)) << bytes;
    EXPECT_TRUE(Eventually([&] { return IsGone(*core); })) << bytes;
  }
}

TEST_F(ServerCloseTest, WhoeverIsInsideTheSessionKeepsItUntilTheyLeave) {
  CDBDriver* pump = FollowedDriver("Pump");
  const size_t threads = ThreadCount();
  {
    const SessionUse use(*core);
    server.CloseNotify();
    ASSERT_TRUE(Eventually([&] { return ThreadCount() == threads - 1; }));  // the receive thread does not wait
    EXPECT_FALSE(core->connected);
    EXPECT_EQ(js.FunctionAt(0).released, 0);
    EXPECT_EQ(pump->Name(), "Pump");
    EXPECT_EQ(pump->GetTagValue(js.Env(), "A"), nullptr);  // its request fails, the driver stands
    EXPECT_TRUE(core->requestSock.IsSocket());
  }
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_TRUE(IsGone(*core));
  EXPECT_FALSE(core->requestSock.IsSocket());
  EXPECT_TRUE(NothingIsOpen());
}

TEST_F(ServerCloseTest, AConnectedTagIsStillReadInsideAnAbandonedSession) {
  CDBDriver* pump = Driver("Pump");
  pump->tags[0].connected = 1;
  server.Notify(Change(0, 0, 7));
  const SessionUse use(*core);
  server.CloseNotify();
  ASSERT_TRUE(Eventually([&] { return !core->connected; }));
  EXPECT_EQ(FakeNapi::Show(pump->GetTagValue(js.Env(), "A")), "7");
}

TEST_F(ServerCloseTest, AGetterInAnArrayMayOutliveTheSessionOfItsWrite) {
  CDBDriver* pump = Driver("Pump");
  const napi_value values = js.Array({js.Number(1), js.ThrowingElement("getter")});
  {
    const SessionUse use(*core);
    server.CloseNotify();
    ASSERT_TRUE(Eventually([&] { return !core->connected; }));
    EXPECT_EQ(pump->SetTagValue(js.Env(), "A,B", values), -3);
  }
  EXPECT_EQ(js.TakeException(), "getter");
  EXPECT_TRUE(Eventually([&] { return IsGone(*core); }));
}

TEST_F(ServerCloseTest, OnlyTheRequestConnectionClosedLeavesTheNotifications) {
  CDBDriver* pump = FollowedDriver("Pump");
  server.CloseRequest();
  EXPECT_EQ(pump->GetTagValue(js.Env(), "A"), nullptr);
  server.Notify(Change(0, 0, 5));
  EXPECT_EQ(Changes(1), std::vector<std::string>{"('Pump', 'A', 5)"});
  EXPECT_TRUE(core->connected);
}

TEST_F(ServerCloseTest, QueuedChangesOutliveTheDriverAndAreDelivered) {
  FollowedDriver("Pump");
  server.Notify(Change(0, 1, 7));
  ASSERT_TRUE(js.WaitQueuedEver(1));
  server.CloseNotify();
  core->AwaitReceiver();
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  js.Drain();
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'B', 7)"});
}

TEST_F(ServerCloseTest, ChangesRightBeforeTheCloseAreStillTaken) {
  FollowedDriver("Pump");
  server.Notify(Change(0, 0, 1) + Change(0, 1, 2));
  server.CloseNotify();
  EXPECT_EQ(Changes(2).size(), 2u);
}

TEST_F(ServerCloseTest, AResetEndsTheSessionAsACloseDoes) {
  Driver("Pump");
  server.ResetNotify();
  EXPECT_TRUE(Eventually([&] { return IsGone(*core); }));
}

TEST_F(ServerCloseTest, TheDestructorMayComeWhileTheThreadTearsDown) {
  for (int round = 0; round < 20; ++round) {
    Connect();
    FollowedDriver("Pump");
    server.CloseNotify();
    if (round % 2 == 0) Eventually([&] { return !core->connected; });
    core = std::make_unique<TestCore>(js.Env());
  }
}

TEST_F(ServerCloseTest, AConnectMayComeWhileTheThreadTearsDown) {
  for (int round = 0; round < 20; ++round) {
    Driver("Pump");
    server.CloseNotify();
    Connect();
  }
  EXPECT_TRUE(core->connected);
}
