// The core's own requests on the request connection.
#include "core/CoreFixture.h"

class CoreRequestsTest : public CoreTest {
 protected:
  void SetUp() override { Connect(); }

  // From here on every send fails at once, while answers still come in.
  void RefuseSends() { EXPECT_EQ(shutdown(core->requestSock.Descriptor(), SHUT_WR), 0); }

  // What lies on the request connection, unread.
  std::string Unread() {
    char bytes[64];
    const int count = core->requestSock._Recv(bytes, sizeof bytes, MSG_DONTWAIT);
    return std::string(bytes, static_cast<size_t>(std::max(count, 0)));
  }
  uint16_t id = 4711;
};

TEST_F(CoreRequestsTest, RequestAllSendsTheWholeRequestAndReadsExactlyTheAnswer) {
  server.Answer("abcdef");
  char reply[4] = {};
  EXPECT_EQ(core->RequestAll("Lxyz", 4, 4, reply), 1);
  EXPECT_EQ(std::string(reply, 4), "abcd");
  EXPECT_EQ(server.Requested(), "Lxyz");
  EXPECT_EQ(core->RequestAll("2", 1, 2, reply), 1);
  EXPECT_EQ(std::string(reply, 2), "ef");
}

TEST_F(CoreRequestsTest, RequestAllTakesAnAnswerByteByByte) {
  SystemHooks hooks;
  hooks.SliceReceives(1);
  server.Answer("abcd");
  char reply[4] = {};
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 1);
  EXPECT_EQ(std::string(reply, 4), "abcd");
}

TEST_F(CoreRequestsTest, RequestAllFailsWhenTheAnswerIsShort) {
  server.Answer("abc");
  core->requestSock.SetTimeOut(30);
  char reply[4];
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 0);
}

TEST_F(CoreRequestsTest, RequestAllFailsWhenNothingCanBeSent) {
  char reply[4];
  core->requestSock.Shutdown();
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 0);
  core->_Disconnect();
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 0);
  EXPECT_EQ(TestCore(js.Env()).RequestAll("L", 1, 4, reply), 0);
}

TEST_F(CoreRequestsTest, RequestsThatTheServerDoesNotTakeFailAfterTheirTimeOutAndTheNextSessionWorks) {
  const std::string filler(4096, '\0');
  const int fd = core->requestSock.Descriptor();
  while (send(fd, filler.data(), filler.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
  }
  ASSERT_EQ(errno, EAGAIN);
  core->requestSock.SetTimeOut(50);
  char reply[4];
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 0);
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_FALSE(core->UnadviseTag(1));
  EXPECT_GE(Since(begin).count(), 140);
  EXPECT_LT(Since(begin).count(), 2000);
  core->_Disconnect();
  Connect();
  server.Answer(FromHex("4C 01 00"));
  EXPECT_TRUE(core->GetTagId(0, "A", &id));
}

TEST_F(CoreRequestsTest, RequestAllReceivesNothingWhenTheSendFailed) {
  server.Answer("abcd");
  RefuseSends();
  char reply[5] = "----";
  EXPECT_EQ(core->RequestAll("L", 1, 4, reply), 0);
  EXPECT_STREQ(reply, "----");
  EXPECT_EQ(Unread(), "abcd");
}

TEST_F(CoreRequestsTest, RequestAllDoesNotAskWhetherTheSessionIsOpen) {
  core->connected = false;
  server.Answer("ab");
  char reply[2];
  EXPECT_EQ(core->RequestAll("L", 1, 2, reply), 1);
  core->connected = true;
}

TEST_F(CoreRequestsTest, RequestAllTakesRequestsAndAnswersOfNoLength) {
  char reply[1] = {'-'};
  EXPECT_EQ(core->RequestAll("L", 1, 0, reply), 1);
  EXPECT_EQ(reply[0], '-');
  EXPECT_EQ(server.Requested(), "L");
  server.Answer("a");
  EXPECT_EQ(core->RequestAll("L", 0, 1, reply), 1);
  EXPECT_EQ(reply[0], 'a');
  EXPECT_EQ(server.Requested(), "");
}

TEST_F(CoreRequestsTest, RequestAllDoesNotTouchTheTimeOfTheLastSendAndGetTagIdDoes) {
  SystemHooks hooks;
  hooks.SetTime(4000000000);
  const time_t before = core->requestSock.LastSend();
  server.Answer("ab");
  char reply[2];
  EXPECT_EQ(core->RequestAll("L", 1, 2, reply), 1);
  EXPECT_EQ(core->requestSock.LastSend(), before);
  server.Answer(FromHex("4C 01 00"));
  EXPECT_TRUE(core->GetTagId(0, "A", id));
  EXPECT_EQ(core->requestSock.LastSend(), 4000000000);
  hooks.SetTime(4000000001);
  server.Answer("d");
  EXPECT_TRUE(core->UnadviseTag(1));
  EXPECT_EQ(core->requestSock.LastSend(), 4000000001);
}

TEST_F(CoreRequestsTest, GetTagIdAsksForOneNameOfOneDriver) {
  server.Answer(FromHex("4C 34 12"));
  EXPECT_TRUE(core->GetTagId(0x0201, "Level", id));
  EXPECT_EQ(id, 0x1234);
  EXPECT_EQ(ToHex(server.Requested()), "4C 01 02 4C 65 76 65 6C 00");
}

TEST_F(CoreRequestsTest, GetTagIdReadsAtMostSixteenBytesOfTheAnswer) {
  server.Answer(FromHex("4C FF FF") + std::string(13, '.') + "+");
  EXPECT_TRUE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 65535);
  char rest[4];
  EXPECT_EQ(core->requestSock._Recv(rest, 4), 1);
  EXPECT_EQ(rest[0], '+');
}

TEST_F(CoreRequestsTest, GetTagIdTakesAnAnswerByteByByte) {
  SystemHooks hooks;
  hooks.SliceReceives(1);
  server.Answer(FromHex("4C 34 12"));
  EXPECT_TRUE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 0x1234);
}

TEST_F(CoreRequestsTest, GetTagIdFailsOnAnotherLetterAndLeavesTheIdAlone) {
  server.Answer(FromHex("6C 34 12"));
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 4711);
}

TEST_F(CoreRequestsTest, GetTagIdFailsOnACutOrMissingAnswer) {
  core->requestSock.SetTimeOut(30);
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  for (const char* cut : {"4C", "4C 34"}) {
    core->requestSock.BackInStep();
    server.Answer(FromHex(cut));
    EXPECT_FALSE(core->GetTagId(0, "A", id)) << cut;
  }
  server.CloseRequest();
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 4711);
}

TEST_F(CoreRequestsTest, GetTagIdReceivesNothingWhenTheSendFailed) {
  server.Answer(FromHex("4C 34 12"));
  RefuseSends();
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 4711);
  EXPECT_EQ(ToHex(Unread()), "4C 34 12");
}

TEST_F(CoreRequestsTest, GetTagIdSendsANameOf252Bytes) {
  const std::string name(252, 'n');
  server.Answer(FromHex("4C 01 00"));
  EXPECT_TRUE(core->GetTagId(0, name.c_str(), id));
  EXPECT_EQ(server.Requested().size(), 256u);
}

TEST_F(CoreRequestsTest, GetTagIdDoesNotSendANameOf253BytesOrNone) {
  EXPECT_FALSE(core->GetTagId(0, std::string(253, 'n').c_str(), id));
  EXPECT_FALSE(core->GetTagId(0, nullptr, id));
  EXPECT_EQ(server.Requested(), "");
  EXPECT_EQ(id, 4711);
}

TEST_F(CoreRequestsTest, GetTagIdWithoutASessionSendsNothing) {
  core->connected = false;  // as if the receive thread had just found the server gone
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_EQ(server.Requested(), "");
  core->connected = true;
  core->_Disconnect();
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  EXPECT_FALSE(TestCore(js.Env()).GetTagId(0, "A", id));
  EXPECT_EQ(id, 4711);
}

TEST_F(CoreRequestsTest, ADriverLooksASingleNameUpThroughTheCore) {
  server.Answer(FromHex("4C 03 00"));
  CDBDriver* pump = core->_GetDriver("Pump");
  EXPECT_EQ(pump->GetTagId("Level"), 3);
  EXPECT_EQ(pump->GetTagId("Level"), 3);
  EXPECT_EQ(ToHex(server.Requested()), "4C 00 00 4C 65 76 65 6C 00");
  EXPECT_EQ(pump->tags[3].name, "Level");
}

TEST_F(CoreRequestsTest, ADriverAsksForANameTheServerDoesNotKnowOnceAndForOneTooLongNever) {
  CDBDriver* pump = core->_GetDriver("Pump");
  server.Answer(FromHex("4C FF FF"));
  EXPECT_EQ(pump->GetTagId("Nowhere"), 65535);
  EXPECT_EQ(ToHex(server.Requested()), "4C 00 00 4E 6F 77 68 65 72 65 00");
  EXPECT_EQ(pump->GetTagId("Nowhere"), 65535);
  EXPECT_EQ(pump->GetTagId(""), 65535);
  EXPECT_EQ(pump->GetTagId(nullptr), 65535);
  const std::string tooLong(253, 'n');
  EXPECT_EQ(pump->GetTagId(tooLong.c_str()), 65535);
  EXPECT_EQ(pump->tagIds.at(tooLong), 65535);
  EXPECT_EQ(server.Requested(), "");
}

TEST_F(CoreRequestsTest, ADriverResolvesAListThroughTheCoreWithoutTouchingTheTimeOfTheLastSend) {
  SystemHooks hooks;
  hooks.SetTime(4000000000);
  const time_t before = core->requestSock.LastSend();
  CDBDriver* fan = core->_GetDriver("Fan");
  std::vector<CDBDriver::STag*> tags;
  server.Answer(FromHex("4C 01 00 00 00 FF FF 00 00"));
  EXPECT_TRUE(fan->CheckTagId("Level, Nowhere", tags));
  EXPECT_EQ(ToHex(server.Requested()), "4C 01 00 4C 65 76 65 6C 00 01 00 4E 6F 77 68 65 72 65 00");
  EXPECT_EQ(tags, (std::vector<CDBDriver::STag*>{&fan->tags[1], nullptr}));
  EXPECT_EQ(core->requestSock.LastSend(), before);
}

TEST_F(CoreRequestsTest, UnadviseSendsTheSignedIdAndIsTrueOnD) {
  server.Answer("d");
  EXPECT_TRUE(core->UnadviseTag(-2));
  EXPECT_EQ(ToHex(server.Requested()), "64 FE FF FF FF");
  server.Answer("dddddddddddddddd");
  EXPECT_TRUE(core->UnadviseTag(0x01020304));
  EXPECT_EQ(ToHex(server.Requested()), "64 04 03 02 01");
}

TEST_F(CoreRequestsTest, UnadviseReadsAtMostSixteenBytesOfTheAnswer) {
  server.Answer("d" + std::string(15, '.') + "+");
  EXPECT_TRUE(core->UnadviseTag(1));
  EXPECT_EQ(Unread(), "+");
}

TEST_F(CoreRequestsTest, UnadviseLooksForItsAnswerAlsoAfterASendThatFailed) {
  server.Answer("d");
  RefuseSends();
  EXPECT_TRUE(core->UnadviseTag(1));  // only a send of no byte ends it
  EXPECT_EQ(Unread(), "");
}

TEST_F(CoreRequestsTest, UnadviseIsFalseOnAnythingElse) {
  server.Answer("Dd");
  EXPECT_FALSE(core->UnadviseTag(1));
  core->requestSock.SetTimeOut(30);
  EXPECT_FALSE(core->UnadviseTag(1));
  server.CloseRequest();
  EXPECT_FALSE(core->UnadviseTag(1));
  core->_Disconnect();
  EXPECT_FALSE(core->UnadviseTag(1));
  EXPECT_FALSE(TestCore(js.Env()).UnadviseTag(1));
}

TEST_F(CoreRequestsTest, UnadviseDoesNotAskWhetherTheSessionIsOpen) {
  core->connected = false;
  server.Answer("d");
  EXPECT_TRUE(core->UnadviseTag(1));
  core->connected = true;
}

TEST_F(CoreRequestsTest, ALateAnswerIsNotTakenForTheNextOne) {
  core->requestSock.SetTimeOut(30);
  EXPECT_FALSE(core->GetTagId(0, "A", id));
  server.Answer(FromHex("4C 34 12"));
  server.Requested();
  core->requestSock.SetTimeOut(5000);
  std::thread answering([&] {
    server.Request(5);
    server.Answer(FromHex("4C 02 00"));
  });
  EXPECT_TRUE(core->GetTagId(0, "B", id));
  answering.join();
  EXPECT_EQ(id, 2);
}
