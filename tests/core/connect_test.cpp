// Opening a session: what goes over the wire, and what stands afterwards.
#include <utime.h>

#include <algorithm>

#include "core/CoreFixture.h"
#include "support/HandshakeScript.h"

namespace {

const std::string kLogin("9user\0word\0", 11);
const std::string kFileRequest = "4RecData/drvinfo.dat\r\nHello:Yes\r\n\r\n";

}  // namespace

class ConnectTest : public ::testing::Test {
 protected:
  // The handshake and the exact login.
  ScriptedPeer& ExpectLogin() { return AddHandshake(peer, "Plant", 0x12345678, 9).On(0).ExpectBytes(kLogin); }
  int Connect() { return core._Connect(peer.Address().c_str(), "user", "word"); }

  FakeNapi js;
  ScriptedPeer peer;
  MirrorCleaner mirror{peer.Address()};
  TestCore core{js.Env()};
};

TEST_F(ConnectTest, LogsInAndFetchesTheDriverFileInThisOrder) {
  ExpectLogin()
      .Reply("39 FF FF FF FF 0D 0C 0B 0A")
      .ExpectBytes(kFileRequest)
      .ReplyBytes(ScriptedServer::FileReply(std::string("Pump\0\1\0\5\0", 9), 0x12345678));
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  peer.Join();
  EXPECT_TRUE(core.connected);
  EXPECT_EQ(core.rights, 0x0A0B0C0Du);
  ASSERT_EQ(core.driverInfo.size(), 1u);
  EXPECT_EQ(core.driverInfo.at("Pump").wDrvId, 1);
  EXPECT_EQ(core.driverInfo.at("Pump").wTagCount, 5);
  EXPECT_EQ(core.projectPath, mirror.Path() + "Plant/");
  EXPECT_TRUE(std::filesystem::exists(mirror.Path() + "Plant/RecData/drvinfo.dat"));
}

TEST_F(ConnectTest, PausesThreeTimesSixMilliseconds) {
  ExpectLogin().Reply("39").ExpectBytes(kFileRequest).ReplyBytes(ScriptedServer::FileReply("", 1));
  peer.Start();
  const SystemHooks hooks;
  EXPECT_EQ(Connect(), 0);
  peer.Join();
  const std::vector<unsigned int> pauses = hooks.Pauses();
  EXPECT_EQ(std::count(pauses.begin(), pauses.end(), 6000u), 3);
}

TEST_F(ConnectTest, AnAcceptanceWithoutRightsGivesNone) {
  ExpectLogin().Reply("39 FF FF FF FF 07 08").ExpectBytes(kFileRequest).ReplyBytes(ScriptedServer::FileReply("", 1));
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  peer.Join();
  EXPECT_EQ(core.rights, 0x0807u);  // what is missing counts as zero
}

TEST_F(ConnectTest, ADriverFileThatIsCurrentIsNotAskedFor) {
  std::filesystem::create_directories(mirror.Path() + "Plant/RecData");
  const std::string path = mirror.Path() + "Plant/RecData/drvinfo.dat";
  std::ofstream(path, std::ios::binary) << std::string("Pump\0\0\0\5\0", 9);
  utimbuf times{0x12345678, 0x12345678};
  ASSERT_EQ(utime(path.c_str(), &times), 0);
  Event done;
  ExpectLogin().Reply("39").Wait(done).WaitClose();
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  EXPECT_EQ(core.driverInfo.count("Pump"), 1u);
  done.Set();
  core._Disconnect();
  peer.Join();
}

TEST_F(ConnectTest, AServerWithoutADriverFileGivesASessionWithoutDrivers) {
  ExpectLogin().Reply("39").ExpectBytes(kFileRequest).ReplyBytes("Exist:No\r\n\r\n");
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  peer.Join();
  EXPECT_TRUE(core.driverInfo.empty());
  EXPECT_EQ(core.driverSlots.size(), 0u);
}

TEST_F(ConnectTest, WithALocalServerTheDriverFileIsReadFromWhereItLies) {
  std::filesystem::create_directories(mirror.Path() + "Plant/RecData");
  std::ofstream(mirror.Path() + "Plant/RecData/drvinfo.dat", std::ios::binary) << std::string("Fan\0\3\0\2\0", 8);
  core.localServer = true;
  Event done;
  ExpectLogin().Reply("39").Wait(done).WaitClose();
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  EXPECT_EQ(core.driverInfo.at("Fan").wDrvId, 3);
  done.Set();
  core._Disconnect();
  peer.Join();
}

TEST_F(ConnectTest, AUserAndPasswordOf253BytesTogetherFillTheRequest) {
  const std::string user(200, 'u');
  const std::string password(53, 'p');
  AddHandshake(peer, "Plant").On(0).ExpectBytes("9" + user + '\0' + password + '\0').Reply("30");
  peer.Start();
  EXPECT_EQ(core._Connect(peer.Address().c_str(), user.c_str(), password.c_str()), -1);
  peer.Join();
}

TEST_F(ConnectTest, AUserAndPasswordOf254BytesTogetherAreNotSent) {
  AddHandshake(peer, "Plant").On(0).WaitClose();
  peer.Start();
  EXPECT_EQ(core._Connect(peer.Address().c_str(), std::string(200, 'u').c_str(), std::string(54, 'p').c_str()), -2);
  peer.Join();
}

TEST_F(ConnectTest, AnEmptyUserAndPasswordAreTwoZeroBytes) {
  AddHandshake(peer, "Plant").On(0).Expect("39 00 00").Reply("30");
  peer.Start();
  EXPECT_EQ(core._Connect(peer.Address().c_str(), "", ""), -1);
  peer.Join();
}

TEST_F(ConnectTest, AChineseProjectHasItsTreeUnderBothNames) {
  const std::string project = "\xCB\xAE\xB3\xA7";  // GB2312
  AddHandshake(peer, project, 1, 9).On(0).ExpectBytes(kLogin).Reply("39").ExpectBytes(kFileRequest);
  peer.ReplyBytes(ScriptedServer::FileReply(std::string("Pump\0\1\0\5\0", 9), 1));
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  peer.Join();
  EXPECT_EQ(core.driverInfo.count("Pump"), 1u);
  EXPECT_TRUE(std::filesystem::is_directory(mirror.Path() + project + "/RecData/Alarm2"));
  EXPECT_TRUE(std::filesystem::exists(mirror.Path() + "\xE6\xB0\xB4\xE5\x8E\x82/RecData/drvinfo.dat"));
}

TEST_F(ConnectTest, ASemaphoreThatIsReadyIsTakenAsItIs) {
  sem_init(&core.recvDone, 0, 3);
  core.semReady = true;
  ExpectLogin().Reply("39").ExpectBytes(kFileRequest).ReplyBytes(ScriptedServer::FileReply("", 1));
  peer.Start();
  EXPECT_EQ(Connect(), 0);
  peer.Join();
  int posts = 0;
  sem_getvalue(&core.recvDone, &posts);
  EXPECT_EQ(posts, 3);
}

TEST(Core, BeginsDisconnectedWithoutDriversAndRights) {
  FakeNapi js;
  const TestCore core(js.Env());
  EXPECT_FALSE(core.connected);
  EXPECT_FALSE(core.semReady);
  EXPECT_FALSE(core.localServer);
  EXPECT_EQ(core.rights, 0u);
  EXPECT_EQ(core.driverSlots.size(), 0u);
  EXPECT_TRUE(core.driverInfo.empty());
  EXPECT_TRUE(core.textList.empty());
  EXPECT_TRUE(core.tagList.empty());
}

class SessionTest : public CoreTest {};

TEST_F(SessionTest, HasOneSlotADriverAllEmptyAndASemaphore) {
  Connect();
  ASSERT_EQ(core->driverSlots.size(), 2u);
  EXPECT_EQ(core->driverSlots[0], nullptr);
  EXPECT_EQ(core->driverSlots[1], nullptr);
  EXPECT_TRUE(core->semReady);
  int posts = -1;
  sem_getvalue(&core->recvDone, &posts);
  EXPECT_EQ(posts, 0);
}

TEST_F(SessionTest, StartsOneThread) {
  const size_t before = ThreadCount();
  Connect();
  EXPECT_EQ(ThreadCount(), before + 1);
}

TEST_F(SessionTest, MayBeOpenedAgainAfterADisconnect) {
  for (int round = 0; round < 3; ++round) {
    Connect();
    CDBDriver* driver = FollowedDriver("Pump");
    server.Notify(Change(0, 1, 7));
    EXPECT_EQ(Changes(static_cast<size_t>(round) + 1).back(), "('Pump', 'B', 7)");
    core->_Disconnect();
    EXPECT_TRUE(server.SeesRequestClosed());
    EXPECT_TRUE(server.SeesNotifyClosed());
    static_cast<void>(driver);
  }
}

TEST_F(SessionTest, MayBeOpenedAgainAfterTheServerClosed) {
  for (int round = 0; round < 3; ++round) {
    Connect();
    Driver("Pump");
    server.CloseNotify();
    EXPECT_TRUE(server.SeesRequestClosed());
  }
  Connect();
  EXPECT_NE(core->_GetDriver("Pump"), nullptr);
}

TEST_F(SessionTest, ASecondConnectOnAnOpenSessionDisconnectsItFirst) {
  Connect();
  FollowedDriver("Pump");
  ScriptedServer other;
  other.Open();
  EXPECT_EQ(core->_Connect(other.Address().c_str(), "user", "word"), 0);
  other.Opened();
  EXPECT_TRUE(server.SeesRequestClosed());
  EXPECT_TRUE(server.SeesNotifyClosed());
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_EQ(core->driverSlots[0], nullptr);
  EXPECT_TRUE(core->connected);
}

TEST_F(SessionTest, ASecondConnectThatFailsLeavesNoSession) {
  Connect();
  Driver("Pump");
  EXPECT_EQ(core->_Connect("127.0.0.1:1", "user", "word"), -2);
  EXPECT_TRUE(IsGone(*core));
  EXPECT_TRUE(server.SeesRequestClosed());
  EXPECT_TRUE(server.SeesNotifyClosed());
}

TEST_F(SessionTest, AConnectFromInsideARequestIsRefusedAndChangesNothing) {
  Connect();
  {
    const SessionUse use(*core);
    EXPECT_EQ(core->_Connect(server.Address().c_str(), "user", "word"), -2);
  }
  FollowedDriver("Pump");
  server.Notify(Change(0, 0, 1));
  EXPECT_EQ(Changes(1).size(), 1u);
}
