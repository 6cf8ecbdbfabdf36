// The receive thread: chunks of notifications, their borders, and long silence.
#include "core/CoreFixture.h"

class ReceiveTest : public CoreTest {
 protected:
  void SetUp() override {
    Connect();
    FollowedDriver("Pump");
  }

  static std::string Changed(unsigned int tag, int value) {
    return "('Pump', '" + std::string(1, static_cast<char>('A' + tag)) + "', " + std::to_string(value) + ")";
  }

  // A change that comes in a chunk of its own: whatever was sent before has been dispatched when it is there.
  std::vector<std::string> ChangesBehind(const std::string& chunk, size_t count) {
    server.Notify(chunk);
    EXPECT_TRUE(Eventually([&] { return Drained(); }));
    server.Notify(Change(0, 4, 99));
    return Changes(count + 1);
  }

  // The client has taken all that was sent.
  bool Drained() {
    char byte;
    return recv(core->notifySock.Descriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 1;
  }
};

TEST_F(ReceiveTest, RecordsOfOneChunkAreTakenInOrder) {
  server.Notify(Change(0, 0, 1) + "\xFF\xFF\xFF" + Change(0, 1, 2) + FromHex("FF FF 08 00 00") + Change(0, 0, 3));
  EXPECT_EQ(Changes(3), (std::vector<std::string>{Changed(0, 1), Changed(1, 2), Changed(0, 3)}));
}

TEST_F(ReceiveTest, EveryTypeArrivesAsDocumented) {
  CDBDriver* pump = core->_GetDriver("Pump");
  for (const ValueType& type : kSizedTypes) {
    const std::string bytes = FromHex(type.bytes);
    const std::string typed = Word(type.code) + bytes;
    pump->tags[0].Decode(reinterpret_cast<const uint8_t*>(typed.data()), typed.size());
    js.calls.clear();
    const size_t before = js.QueuedEver();
    server.Notify(Word(0) + Word(0) + bytes + Change(0, 1, 1));
    const std::string shown = type.shown == std::string("nothing") ? "undefined" : type.shown;
    EXPECT_EQ(Changes(before + 2), (std::vector<std::string>{"('Pump', 'A', " + shown + ")", Changed(1, 1)}))
        << type.code;
  }
}

TEST_F(ReceiveTest, AnUnknownRecordDropsTheRestOfItsChunkOnly) {
  for (const char* unknown : {"FF FF 00", "FF FF 17", "05 00 00 00 01", "01 00 00 00 01"}) {
    js.calls.clear();
    const std::string chunk = Change(0, 0, 1) + FromHex(unknown) + Change(0, 0, 2);
    EXPECT_EQ(ChangesBehind(chunk, js.QueuedEver() + 1), (std::vector<std::string>{Changed(0, 1), Changed(4, 99)}))
        << unknown;
  }
}

TEST_F(ReceiveTest, ARecordThatTheDriverCannotTakeDropsTheRestToo) {
  core->_GetDriver("Pump")->tags[1].type = VT_EMPTY;
  const std::string chunk = Change(0, 0, 1) + Change(0, 1, 2) + Change(0, 0, 3);
  EXPECT_EQ(ChangesBehind(chunk, 1), (std::vector<std::string>{Changed(0, 1), Changed(4, 99)}));
}

TEST_F(ReceiveTest, ARecordSplitOverTwoChunksIsMisparsedAndTheSecondPartIsAFreshRecord) {
  // The head in one chunk is dropped; its value, in the next, is the beginning of a record of its own.
  server.Notify(Word(0) + Word(0));
  ASSERT_TRUE(Eventually([&] { return Drained(); }));
  server.Notify(Change(0, 2, 7));
  EXPECT_EQ(Changes(1), std::vector<std::string>{Changed(2, 7)});
}

TEST_F(ReceiveTest, ARecordCutAtEveryPlaceNeverReachesTheCallback) {
  const std::string record = Change(0, 0, 1);
  for (size_t cut = 1; cut < record.size(); ++cut) {
    js.calls.clear();
    EXPECT_EQ(ChangesBehind(record.substr(0, cut), js.QueuedEver()), std::vector<std::string>{Changed(4, 99)}) << cut;
  }
}

TEST_F(ReceiveTest, ARecordThatEndsWithAFullChunkIsTaken) {
  std::string chunk;
  for (int i = 0; i < 409; ++i) chunk += Change(0, 0, 1);  // 2045 bytes
  chunk += "\xFF\xFF\xFF";
  ASSERT_EQ(chunk.size(), 2048u);
  server.Notify(chunk + Change(0, 1, 2));
  const std::vector<std::string> changes = Changes(410);
  EXPECT_EQ(changes.size(), 410u);
  EXPECT_EQ(changes.back(), Changed(1, 2));
}

TEST_F(ReceiveTest, ARecordAcrossTheEndOfAFullChunkIsLost) {
  std::string bytes;
  for (int i = 0; i < 410; ++i) bytes += Change(0, 0, 1);  // 2050 bytes: the last record has three in the first chunk
  EXPECT_EQ(ChangesBehind(bytes, 409).size(), 410u);
}

TEST_F(ReceiveTest, ATextAcrossTheEndOfAFullChunkIsLost) {
  const std::string typed = FromHex("08 00 00");
  core->_GetDriver("Pump")->tags[1].Decode(reinterpret_cast<const uint8_t*>(typed.data()), typed.size());
  const std::string text(2043, 'x');  // with its head 2047 bytes, so that the NUL is the last of the chunk
  server.Notify(Word(0) + Word(1) + text + '\0');
  EXPECT_EQ(Changes(1), std::vector<std::string>{"('Pump', 'B', '" + text + "')"});
  js.calls.clear();
  EXPECT_EQ(ChangesBehind(Word(0) + Word(1) + text + "x" + '\0', 1), std::vector<std::string>{Changed(4, 99)});
}

TEST_F(ReceiveTest, ALongSilenceIsNoEnd) {
  core->notifySock.SetRecvTimeOut(20);
  server.Notify(Change(0, 0, 1));  // the next receive has the short time-out
  EXPECT_EQ(Changes(1).size(), 1u);
  const SystemHooks hooks;
  ASSERT_TRUE(Eventually([&] { return hooks.Receives() >= 3; }));
  server.Notify(Change(0, 0, 2));
  EXPECT_EQ(Changes(2).back(), Changed(0, 2));
  EXPECT_TRUE(core->connected);
}

TEST_F(ReceiveTest, NotificationsThatNobodyFetchesPileUpWithoutWaiting) {
  std::string chunk;
  for (int i = 0; i < 400; ++i) chunk += Change(0, 0, 1);
  for (int i = 1; i <= 25; ++i) {
    server.Notify(chunk);
    ASSERT_TRUE(js.WaitQueuedEver(static_cast<size_t>(i) * 400));
  }
  EXPECT_EQ(js.Queued(), 10000u);
  EXPECT_EQ(js.FunctionAt(0).blocking, 0);
}

TEST_F(ReceiveTest, AnotherDriverGetsItsOwnRecords) {
  FollowedDriver("Fan");
  server.Notify(Change(1, 1, 5) + Change(0, 1, 6));
  std::vector<std::string> changes = Changes(2);
  std::sort(changes.begin(), changes.end());
  EXPECT_EQ(changes, (std::vector<std::string>{"('Fan', 'B', 5)", "('Pump', 'B', 6)"}));
}
