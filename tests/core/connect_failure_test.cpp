// Opening a session that fails: the code of each failure, and that both connections are closed behind it.
#include <algorithm>

#include "core/CoreFixture.h"
#include "support/HandshakeScript.h"

namespace {

const std::string kLogin("9user\0word\0", 11);
const std::string kFileRequest = "4RecData/drvinfo.dat\r\nHello:Yes\r\n\r\n";

}  // namespace

class ConnectFailureTest : public ::testing::Test {
 protected:
  ScriptedPeer& Opening(const std::string& project = "Plant") { return AddHandshake(peer, project, 1, 100); }
  ScriptedPeer& LoggedIn() { return Opening().On(0).ExpectBytes(kLogin).Reply("39 00 00 00 00 08 00 00 00"); }

  // Plays the script; both connections must be closed behind a failure. Returns the code.
  int Connect(int closedByTheServer = 0) {
    core.driverInfo["Kept"] = {7, 1, nullptr};
    core.rights = 99;
    const int descriptors = OpenDescriptors();
    peer.Start();
    const int code = core._Connect(peer.Address().c_str(), "user", "word");
    peer.Join();
    EXPECT_FALSE(core.connected);
    EXPECT_FALSE(core.requestSock.IsSocket());
    EXPECT_FALSE(core.notifySock.IsSocket());
    EXPECT_EQ(core.requestSock.FixedPeer(), 0u);
    EXPECT_EQ(core.notifySock.FixedPeer(), 0u);
    EXPECT_EQ(OpenDescriptors() - static_cast<int>(peer.Connections()) + closedByTheServer, descriptors);
    EXPECT_EQ(core.driverInfo.count("Kept"), 1u);  // the drivers are left as they were
    EXPECT_EQ(core.driverSlots.size(), 0u);
    EXPECT_EQ(core.rights, 99u);
    EXPECT_FALSE(core.semReady);
    return code;
  }

  // The pauses between the steps; the handshake has others.
  static int StepPauses(const SystemHooks& hooks) {
    const std::vector<unsigned int> pauses = hooks.Pauses();
    return static_cast<int>(std::count(pauses.begin(), pauses.end(), 6000u));
  }

  FakeNapi js;
  ScriptedPeer peer;
  MirrorCleaner mirror{peer.Address()};
  TestCore core{js.Env()};
};

TEST_F(ConnectFailureTest, ALoginThatIsRefusedGivesMinusOne) {
  Opening().On(0).ExpectBytes(kLogin).Reply("30");
  EXPECT_EQ(Connect(), -1);
}

TEST_F(ConnectFailureTest, ALoginAnswerOutOfPlaceGivesMinusThree) {
  Opening().On(0).ExpectBytes(kLogin).ReplyBytes("x");
  EXPECT_EQ(Connect(), -3);
}

TEST_F(ConnectFailureTest, ALoginAnswerOfAZeroByteGivesMinusThree) {
  Opening().On(0).ExpectBytes(kLogin).Reply("00 39");
  EXPECT_EQ(Connect(), -3);
}

TEST_F(ConnectFailureTest, NoAnswerToTheLoginGivesMinusTwo) {
  Opening().On(0).ExpectBytes(kLogin).Shutdown();
  EXPECT_EQ(Connect(), -2);
}

TEST_F(ConnectFailureTest, AServerThatIsGoneBeforeTheLoginGivesMinusTwo) {
  Opening().On(0).Reset();
  EXPECT_EQ(Connect(1), -2);
}

TEST_F(ConnectFailureTest, ALoginThatIsAnsweredIsFollowedByTheThirdPauseWhateverTheAnswer) {
  for (const char* answer : {"0", "x"}) {
    ScriptedPeer other;
    const MirrorCleaner otherMirror(other.Address());
    AddHandshake(other, "Plant").On(0).ExpectBytes(kLogin).ReplyBytes(answer);
    other.Start();
    const SystemHooks hooks;
    EXPECT_LT(core._Connect(other.Address().c_str(), "user", "word"), 0);
    other.Join();
    EXPECT_EQ(StepPauses(hooks), 3) << answer;
  }
}

TEST_F(ConnectFailureTest, NoAnswerToTheLoginIsNotFollowedByAPause) {
  Opening().On(0).ExpectBytes(kLogin).Shutdown();
  const SystemHooks hooks;
  EXPECT_EQ(Connect(), -2);
  EXPECT_EQ(StepPauses(hooks), 2);
}

TEST_F(ConnectFailureTest, AnEmptyProjectNameIsNoticedBehindTheFirstPause) {
  Opening("").On(0).WaitClose().On(1).WaitClose();
  const SystemHooks hooks;
  EXPECT_EQ(Connect(), -3);
  EXPECT_EQ(StepPauses(hooks), 1);
}

TEST_F(ConnectFailureTest, ARegistrationThatFailsPausesNowhere) {
  peer.Accept().ReceiveSome().ReplyBytes("0");
  const SystemHooks hooks;
  EXPECT_EQ(Connect(), -2);
  EXPECT_EQ(StepPauses(hooks), 0);
}

TEST_F(ConnectFailureTest, ARelayThatCannotBeReachedIsForgotten) {
  EXPECT_EQ(core._Connect("p2p(127.210.21.1):Device", "user", "word"), -2);
  EXPECT_EQ(core.requestSock.FixedPeer(), 0u);
  EXPECT_EQ(core.notifySock.FixedPeer(), 0u);
  EXPECT_FALSE(core.requestSock.IsSocket());
}

TEST_F(ConnectFailureTest, NobodyListeningGivesMinusTwo) {
  peer.StopListening();
  peer.Start();
  peer.Join();
  EXPECT_EQ(core._Connect(peer.Address().c_str(), "user", "word"), -2);
  EXPECT_FALSE(core.requestSock.IsSocket());
}

TEST_F(ConnectFailureTest, ARefusedRegistrationGivesMinusTwo) {
  peer.Accept().ReceiveSome().ReplyBytes("0");
  EXPECT_EQ(Connect(), -2);
}

TEST_F(ConnectFailureTest, ARefusedSecondRegistrationGivesMinusTwo) {
  peer.Accept().ReceiveSome().ReplyBytes("7").Accept().ReceiveSome().ReplyBytes(Scrambled("0"));
  EXPECT_EQ(Connect(), -2);
}

TEST_F(ConnectFailureTest, ARelayAddressWithoutAColonGivesMinusTwo) {
  EXPECT_EQ(core._Connect("p2p", "user", "word"), -2);
}

TEST_F(ConnectFailureTest, AnEmptyProjectNameGivesMinusThreeAndNoLoginIsSent) {
  Opening("").On(0).WaitClose().On(1).WaitClose();
  EXPECT_EQ(Connect(), -3);
  EXPECT_FALSE(std::filesystem::exists(mirror.Path()));
}

TEST_F(ConnectFailureTest, AProjectNameThatLeadsElsewhereGivesMinusThreeAndNothingIsMade) {
  for (const char* name : {"a/b", "/", ".", "..", "../../tmp"}) {
    ScriptedPeer other;
    const MirrorCleaner otherMirror(other.Address());
    AddHandshake(other, name).On(0).WaitClose().On(1).WaitClose();
    other.Start();
    EXPECT_EQ(core._Connect(other.Address().c_str(), "user", "word"), -3) << name;
    other.Join();
    EXPECT_FALSE(std::filesystem::exists(otherMirror.Path())) << name;
  }
}

TEST_F(ConnectFailureTest, ADriverFileThatDoesNotComeGivesMinusTwo) {
  LoggedIn().ExpectBytes(kFileRequest).Shutdown();
  EXPECT_EQ(Connect(), -2);
}

TEST_F(ConnectFailureTest, ADriverFileThatIsCutShortGivesMinusTwo) {
  LoggedIn().ExpectBytes(kFileRequest).ReplyBytes("Size:64\r\n\r\nonly this").Shutdown();
  EXPECT_EQ(Connect(), -2);
}

TEST_F(ConnectFailureTest, TheRequestConnectionIsClosedFirst) {
  Opening().On(0).ExpectBytes(kLogin).Reply("30").WaitClose().On(1).WaitClose();
  const SystemHooks hooks;
  peer.Start();
  EXPECT_EQ(core._Connect(peer.Address().c_str(), "user", "word"), -1);
  const std::vector<int> closed = hooks.Closed();
  peer.Join();
  // The client's two connections were made in this order, so that the first has the lower number.
  ASSERT_GE(closed.size(), 2u);
  EXPECT_LT(closed[closed.size() - 2], closed[closed.size() - 1]);
}

TEST_F(ConnectFailureTest, AFailureLeavesTheWayFreeForALaterSession) {
  Opening().On(0).ExpectBytes(kLogin).Reply("30");
  EXPECT_EQ(Connect(), -1);
  ScriptedServer good;
  good.Open();
  EXPECT_EQ(core._Connect(good.Address().c_str(), "user", "word"), 0);
  good.Opened();
  EXPECT_NE(core._GetDriver("Pump"), nullptr);
}

TEST_F(ConnectFailureTest, EveryCutOfTheOpeningEndsInADocumentedCode) {
  // What the server says, step by step; the script stops after each byte of it.
  const std::string second = Scrambled(PlainSecondReply("P", "s", AckBytes(1, 9)));
  const std::string file = ScriptedServer::FileReply(std::string("Pump\0\0\0\5\0", 9), 1);
  const std::string login = FromHex("39 00 00 00 00 08 00 00 00");
  const auto play = [&](size_t secondBytes, size_t loginBytes, size_t fileBytes) {
    ScriptedPeer cut;
    const MirrorCleaner cleaner(cut.Address());
    cut.Accept().ReceiveSome().ReplyBytes("7").Accept().ReceiveSome().ReplyBytes(second.substr(0, secondBytes));
    if (secondBytes == second.size()) cut.On(0).ExpectBytes(kLogin).ReplyBytes(login.substr(0, loginBytes));
    if (secondBytes == second.size() && loginBytes > 0) {
      cut.ExpectBytes(kFileRequest).ReplyBytes(file.substr(0, fileBytes));
    }
    cut.On(0).Shutdown().On(1).Shutdown();
    cut.Start();
    TestCore subject(js.Env());
    const int code = subject._Connect(cut.Address().c_str(), "user", "word");
    cut.Join();
    return code;
  };
  for (size_t n = 0; n < second.size(); n += 5) {
    const int code = play(n, 0, 0);
    EXPECT_TRUE(code == -2 || code == -3) << "second reply cut at " << n << ": " << code;
  }
  for (size_t n = 0; n <= login.size(); ++n) EXPECT_EQ(play(second.size(), n, file.size()), n == 0 ? -2 : 0) << n;
  for (size_t n = 0; n <= file.size(); ++n) {
    const int code = play(second.size(), login.size(), n);
    // A header cut before its size says that there is no body.
    const bool sized = n >= file.find("\r\n\r\n") + 4;
    EXPECT_EQ(code, n == 0 || (sized && n < file.size()) ? -2 : code) << "file cut at " << n;
    EXPECT_TRUE(code == -2 || (code == 0 && (n == file.size() || !sized))) << "file cut at " << n << ": " << code;
  }
}
