// Connecting tags: request 'b' and its answer.
#include "driver/DriverFixture.h"

class ConnectTagTest : public DriverTest {
 protected:
  ConnectTagTest() { KnowsAllTags(); }

  // One chunk of an answer.
  static std::string Chunk(const std::string& values) {
    return "b" + Word(static_cast<unsigned int>(values.size())) + values;
  }

  std::string ConnectedTags() {
    std::string text;
    for (const CDBDriver::STag& tag : driver.tags) text += tag.connected != 0 ? '1' : '0';
    return text;
  }
};

TEST_F(ConnectTagTest, TwoTagsAreConnectedWithTheirValues) {
  core.AnswersBytes(Chunk(FromHex("02 00 FF FF 08 00 68 69 00")));
  EXPECT_TRUE(driver._ConnectTag("B,D"));
  EXPECT_EQ(core.Sent(), "62 02 00 01 02 01 00 00 01 02 03 00 00");
  EXPECT_EQ(Shown(1), "-1");
  EXPECT_EQ(Shown(3), "'hi'");
  EXPECT_EQ(ConnectedTags(), "01010");
}

TEST_F(ConnectTagTest, UnknownEmptyAndConnectedTagsAreLeftOut) {
  Knows("None", 65535);
  Connected(0, "11 00 07");
  core.AnswersBytes(Chunk(FromHex("11 00 09")));
  EXPECT_TRUE(driver._ConnectTag("None, ,A,C"));
  EXPECT_EQ(core.Sent(), "62 01 00 01 02 02 00 00");
  EXPECT_EQ(Shown(0), "7");
  EXPECT_EQ(Shown(2), "9");
}

TEST_F(ConnectTagTest, NothingToConnectSendsNothingAndIsASuccess) {
  Connected(0, "11 00 07");
  EXPECT_TRUE(driver._ConnectTag("A"));
  EXPECT_TRUE(driver._ConnectTag(""));
  EXPECT_TRUE(driver._ConnectTag(" , "));
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(ConnectTagTest, ATagTwiceInAListIsAskedForTwiceAndKeepsTheLaterValue) {
  core.AnswersBytes(Chunk(FromHex("11 00 01 11 00 02")));
  EXPECT_TRUE(driver._ConnectTag("A,A"));
  EXPECT_EQ(core.Sent(), "62 02 00 01 02 00 00 00 01 02 00 00 00");
  EXPECT_EQ(Shown(0), "2");
}

TEST_F(ConnectTagTest, EveryTypeArrivesAsDocumented) {
  for (const ValueType& type : kSizedTypes) {
    driver.tags[0].connected = 0;
    core.AnswersBytes(Chunk(Word(type.code) + FromHex(type.bytes)));
    EXPECT_TRUE(driver._ConnectTag("A")) << type.code;
    EXPECT_EQ(Shown(0), type.shown) << type.code;
    EXPECT_EQ(driver.tags[0].Value().vt, type.code);
    EXPECT_EQ(driver.tags[0].type, type.code);
  }
  for (const ValueType& type : kBareTypes) {
    driver.tags[0].connected = driver.tags[1].connected = 0;
    core.AnswersBytes(Chunk(Word(type.code) + FromHex("11 00 07")));
    EXPECT_TRUE(driver._ConnectTag("A,B")) << type.code;
    EXPECT_EQ(Shown(0) + " " + Shown(1), "nothing 7") << type.code;
  }
}

TEST_F(ConnectTagTest, AnArrayIsOneTypeWordAndItsCountIsTakenForTheNextType) {
  core.AnswersBytes(Chunk(FromHex("00 20 11 00 07")));  // the "count" 17 reads as an unsigned byte's type
  EXPECT_TRUE(driver._ConnectTag("A,B"));
  EXPECT_EQ(driver.tags[0].Value().vt, 0x200C);
  EXPECT_EQ(Shown(0), "nothing");
  EXPECT_EQ(Shown(1), "7");
}

TEST_F(ConnectTagTest, ChunksMaySplitTheValuesAtEveryBorder) {
  const std::vector<std::string> values = {FromHex("11 00 01"), FromHex("08 00 74 77 6F 00"), FromHex("02 00 03 00"),
                                           FromHex("12 00 04 00")};
  for (int borders = 0; borders < 8; ++borders) {
    for (CDBDriver::STag& tag : driver.tags) tag.connected = 0;
    std::string chunk = values[0];
    for (size_t i = 1; i < values.size(); ++i) {
      if ((borders >> (i - 1) & 1) != 0) {
        core.AnswersBytes(Chunk(chunk));
        chunk.clear();
      }
      chunk += values[i];
    }
    core.AnswersBytes(Chunk(chunk));
    EXPECT_TRUE(driver._ConnectTag("A,B,C,D")) << borders;
    EXPECT_EQ(Shown(0) + Shown(1) + Shown(2) + Shown(3), "1'two'34") << borders;
    EXPECT_EQ(core.Unread(), "") << borders;
  }
}

TEST_F(ConnectTagTest, AValueCutByAChunksEndFailsAndTheTagsBeforeItStayConnected) {
  core.AnswersBytes(Chunk(FromHex("11 00 01 02 00 FF")) + Chunk(FromHex("FF")));
  EXPECT_FALSE(driver._ConnectTag("A,B"));
  EXPECT_EQ(ConnectedTags(), "10000");
  EXPECT_EQ(Shown(0), "1");
  EXPECT_EQ(Shown(1), "nothing");
}

TEST_F(ConnectTagTest, ValuesBeyondTheLastTagAreLeftAlone) {
  core.AnswersBytes(Chunk(FromHex("11 00 01 11 00 02")));
  EXPECT_TRUE(driver._ConnectTag("A"));
  EXPECT_EQ(Shown(0), "1");
  EXPECT_EQ(ConnectedTags(), "10000");
}

TEST_F(ConnectTagTest, NothingIsReadOnceEveryTagHasItsValue) {
  core.AnswersBytes(Chunk(FromHex("11 00 01")) + "b" + Word(0) + "next");
  EXPECT_TRUE(driver._ConnectTag("A"));
  EXPECT_EQ(core.Unread(), "62 00 00 6E 65 78 74");
}

TEST_F(ConnectTagTest, EmptyChunksAreSkipped) {
  core.AnswersBytes(Chunk("") + Chunk("") + Chunk(FromHex("11 00 01")));
  EXPECT_TRUE(driver._ConnectTag("A"));
  EXPECT_EQ(Shown(0), "1");
}

TEST_F(ConnectTagTest, EmptyChunksWithoutEndFail) {
  std::string answer;
  for (int i = 0; i < 1024; ++i) answer += Chunk("");
  core.AnswersBytes(answer + Chunk(FromHex("11 00 01")));
  EXPECT_TRUE(driver._ConnectTag("A"));  // as many as are borne
  core.AnswersBytes(answer + Chunk("") + Chunk(FromHex("11 00 01")));
  EXPECT_FALSE(driver._ConnectTag("B"));
  EXPECT_EQ(ConnectedTags(), "10000");
}

TEST_F(ConnectTagTest, AnotherLetterFails) {
  core.AnswersBytes("B" + Word(3) + FromHex("11 00 01"));
  EXPECT_FALSE(driver._ConnectTag("A"));
  EXPECT_EQ(ConnectedTags(), "00000");
  EXPECT_EQ(core.Unread(), "03 00 11 00 01");  // the letter alone was read
}

TEST_F(ConnectTagTest, AnotherLetterInTheSecondChunkKeepsTheFirst) {
  core.AnswersBytes(Chunk(FromHex("11 00 01")) + "H" + Word(3) + FromHex("11 00 02"));
  EXPECT_FALSE(driver._ConnectTag("A,B"));
  EXPECT_EQ(ConnectedTags(), "10000");
}

TEST_F(ConnectTagTest, EveryCutOfTheAnswerFailsAndConnectsWhatCameWhole) {
  const std::string answer = Chunk(FromHex("11 00 01")) + Chunk(FromHex("08 00 68 69 00"));
  for (size_t cut = 0; cut <= answer.size(); ++cut) {
    FakeCore other;
    CDBDriver subject(js.Env(), "Pump", 1, &other);
    subject.SetTagCount(2);
    subject.tagIds = {{"A", 0}, {"B", 1}};
    other.AnswersBytes(answer.substr(0, cut));
    other.HangsUp();
    EXPECT_EQ(subject._ConnectTag("A,B"), cut == answer.size()) << cut;
    EXPECT_EQ(subject.tags[0].connected, cut >= 6 ? 1 : 0) << cut;
    EXPECT_EQ(subject.tags[1].connected, cut == answer.size() ? 1 : 0) << cut;
  }
}

TEST_F(ConnectTagTest, AnAnswerThatStopsEndsWithTheTimeOut) {
  core.sock.SetTimeOut(20);
  EXPECT_FALSE(driver._ConnectTag("A"));
  core.Answers("62 03");
  EXPECT_FALSE(driver._ConnectTag("A"));
}

TEST_F(ConnectTagTest, AnAnswerMayComeByteByByte) {
  SystemHooks hooks;
  hooks.SliceReceives(1);
  core.AnswersBytes(Chunk(FromHex("11 00 01 08 00 68 69 00")));
  EXPECT_TRUE(driver._ConnectTag("A,B"));
  EXPECT_EQ(Shown(1), "'hi'");
}

TEST_F(ConnectTagTest, AServerThatIsGoneFails) {
  core.Vanish();
  EXPECT_FALSE(driver._ConnectTag("A"));
}

TEST_F(ConnectTagTest, ARequestThatCannotBeSentFailsAndNoAnswerIsRead) {
  shutdown(core.sock.Descriptor(), SHUT_WR);
  core.AnswersBytes(Chunk(FromHex("11 00 01")));
  EXPECT_FALSE(driver._ConnectTag("A"));
  EXPECT_EQ(ConnectedTags(), "00000");
  EXPECT_EQ(core.Unread(), "62 03 00 11 00 01");
}

TEST_F(ConnectTagTest, NamesThatCannotBeResolvedFail) {
  core.Answers("30");
  core.HangsUp();
  EXPECT_FALSE(driver._ConnectTag("A,Unknown"));
  EXPECT_EQ(core.Sent(), "4C 01 02 55 6E 6B 6E 6F 77 6E 00");
}

TEST_F(ConnectTagTest, ADriverOfAnEndedSessionConnectsNothing) {
  core.gate.Close();
  EXPECT_FALSE(driver._ConnectTag("A"));
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(ConnectTagTest, ConnectingIsNoUseOfTheLastSendTime) {
  const time_t before = core.sock.LastSend();
  SystemHooks hooks;
  hooks.SetTime(before + 1000);
  core.AnswersBytes(Chunk(FromHex("11 00 01")));
  EXPECT_TRUE(driver._ConnectTag("A"));
  EXPECT_EQ(core.sock.LastSend(), before);
}

class ConnectManyTest : public ConnectTagTest {
 protected:
  ConnectManyTest() { driver.SetTagCount(600); }

  // Names of count tags, resolved already.
  std::string Many(uint16_t count) {
    std::string list;
    for (uint16_t i = 0; i < count; ++i) {
      Knows("t" + std::to_string(i), i);
      list += "t" + std::to_string(i) + ",";
    }
    return list;
  }

  void AnswersMany(int count) {
    std::string values;
    for (int i = 0; i < count; ++i) values += FromHex("11 00 01");
    core.AnswersBytes(Chunk(values));
  }

  size_t CountConnected() {
    return static_cast<size_t>(std::count_if(driver.tags.begin(), driver.tags.end(),
                                             [](const CDBDriver::STag& tag) { return tag.connected != 0; }));
  }
};

TEST_F(ConnectManyTest, ConnectsAll519TagsOfOneCall) {
  const std::string list = Many(519);
  AnswersMany(519);
  EXPECT_TRUE(driver._ConnectTag(list.c_str()));
  const std::string sent = core.SentBytes();
  EXPECT_EQ(sent.size(), 3u + 5u * 519u);
  EXPECT_EQ(ToHex(sent.substr(0, 3)), "62 07 02");
  EXPECT_EQ(CountConnected(), 519u);
}

TEST_F(ConnectManyTest, OfSixHundredTagsOnlyTheFirst519AreConnected) {
  for (const uint16_t count : {uint16_t{520}, uint16_t{600}}) {
    for (CDBDriver::STag& tag : driver.tags) tag.connected = 0;
    const std::string list = Many(count);
    AnswersMany(519);
    EXPECT_TRUE(driver._ConnectTag(list.c_str()));
    const std::string sent = core.SentBytes();
    EXPECT_EQ(sent.size(), 2598u);
    EXPECT_EQ(ToHex(sent.substr(2593)), "01 02 06 02 00");
    EXPECT_EQ(CountConnected(), 519u);
    EXPECT_EQ(driver.tags[519].connected, 0);
  }
}

TEST_F(ConnectManyTest, ASecondCallConnectsTheRest) {
  const std::string list = Many(600);
  AnswersMany(519);
  AnswersMany(81);
  EXPECT_TRUE(driver._ConnectTag(list.c_str()));
  core.Sent();
  EXPECT_TRUE(driver._ConnectTag(list.c_str()));
  EXPECT_EQ(ToHex(core.SentBytes().substr(0, 8)), "62 51 00 01 02 07 02 00");
  EXPECT_EQ(CountConnected(), 600u);
}
