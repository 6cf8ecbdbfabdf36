// Reading tags: request 'H', its answer, and the JavaScript value that comes of it.
#include <algorithm>

#include "driver/DriverFixture.h"

class ReadTagTest : public DriverTest {
 protected:
  ReadTagTest() { KnowsAllTags(); }

  static std::string Chunk(int more, const std::string& values) {
    return "H" + std::string(1, static_cast<char>(more)) + Word(static_cast<unsigned int>(values.size())) + values;
  }
  void AnswersValues(const std::string& typedHex) { core.AnswersBytes(Chunk(0, FromHex(typedHex))); }

  bool Read(const std::string& list) {
    out.clear();
    return driver._GetTagValue(list.c_str(), out);
  }

  // The JavaScript result of a read.
  std::string Got(const std::string& list) { return FakeNapi::Show(driver.GetTagValue(js.Env(), list.c_str())); }

  Tags out;
};

TEST_F(ReadTagTest, TwoTagsAreAskedForInOneRequest) {
  AnswersValues("02 00 FF FF 05 00 00 00 00 00 00 00 F8 3F");
  EXPECT_TRUE(Read("B,E"));
  EXPECT_EQ(core.Sent(), "48 02 00 01 02 01 00 01 02 04 00");
  EXPECT_EQ(Ids(out), "1 4");
  EXPECT_EQ(Shown(1), "-1");
  EXPECT_EQ(Shown(4), "1.5");
  EXPECT_EQ(driver.tags[1].connected, 0);
}

TEST_F(ReadTagTest, AConnectedTagIsNotAskedForAndHasItsLastNotification) {
  Connected(0, "11 00 07");
  Notified(0, "08");
  EXPECT_EQ(Got("A"), "8");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(ReadTagTest, ConnectedUnknownAndEmptyTagsAreLeftOutOfTheRequest) {
  Knows("None", 65535);
  Connected(0, "11 00 07");
  AnswersValues("11 00 09");
  EXPECT_EQ(Got("A,None, ,C"), "[7, <unset>, <unset>, 9]");
  EXPECT_EQ(core.Sent(), "48 01 00 01 02 02 00");
}

TEST_F(ReadTagTest, OneTagGivesABareValueAndTwoGiveAnArray) {
  AnswersValues("11 00 01");
  EXPECT_EQ(Got("A"), "1");
  AnswersValues("11 00 02 08 00 68 69 00");
  EXPECT_EQ(Got("A,B"), "[2, 'hi']");
}

TEST_F(ReadTagTest, ASingleUnknownTagAndAnEmptyListGiveUndefined) {
  Knows("None", 65535);
  EXPECT_EQ(Got("None"), "nothing");
  EXPECT_EQ(Got(" "), "nothing");
  EXPECT_EQ(Got(""), "nothing");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(ReadTagTest, SeveralUnknownTagsGiveAnArrayWithoutElements) {
  Knows("None", 65535);
  EXPECT_EQ(Got("None,None"), "[<unset>, <unset>]");
}

TEST_F(ReadTagTest, AMixedListComesCachedNamesFirst) {
  driver.tagIds.erase("D");
  core.Answers("4C 03 00 00 00");
  AnswersValues("11 00 0A 11 00 0B");
  EXPECT_EQ(Got("D,A"), "[10, 11]");
  EXPECT_EQ(core.Sent(), "4C 01 02 44 00 48 02 00 01 02 00 00 01 02 03 00");
  EXPECT_EQ(Shown(0), "10");
  EXPECT_EQ(Shown(3), "11");
}

TEST_F(ReadTagTest, EveryTypeArrivesAsDocumented) {
  for (const ValueType& type : kSizedTypes) {
    core.AnswersBytes(Chunk(0, Word(type.code) + FromHex(type.bytes)));
    EXPECT_EQ(Got("A"), type.shown) << type.code;
    EXPECT_EQ(driver.tags[0].type, type.code);
  }
  for (const ValueType& type : kBareTypes) {
    core.AnswersBytes(Chunk(0, Word(type.code) + FromHex("11 00 07")));
    EXPECT_EQ(Got("A,B"), "[undefined, 7]") << type.code;
  }
}

TEST_F(ReadTagTest, AnArrayIsOneTypeWordAndItsCountIsTakenForTheNextType) {
  AnswersValues("00 20 11 00 07");
  EXPECT_EQ(Got("A,B"), "[undefined, 7]");
  EXPECT_EQ(driver.tags[0].Value().vt, 0x200C);
}

TEST_F(ReadTagTest, TextGoesToJavaScriptByteForByte) {
  AnswersValues("08 00 E6 B0 B4 00");
  EXPECT_EQ(Got("A"), "'\xE6\xB0\xB4'");
}

TEST_F(ReadTagTest, ATypeMayChangeFromReadToRead) {
  AnswersValues("08 00 68 69 00");
  EXPECT_EQ(Got("A"), "'hi'");
  AnswersValues("0B 00 00");
  EXPECT_EQ(Got("A"), "false");
}

TEST_F(ReadTagTest, ChunksMaySplitTheValuesAtEveryBorder) {
  const std::vector<std::string> values = {FromHex("11 00 01"), FromHex("08 00 74 77 6F 00"), FromHex("02 00 03 00"),
                                           FromHex("12 00 04 00")};
  for (int borders = 0; borders < 8; ++borders) {
    std::string chunk = values[0];
    for (size_t i = 1; i < values.size(); ++i) {
      if ((borders >> (i - 1) & 1) != 0) {
        core.AnswersBytes(Chunk(1, chunk));
        chunk.clear();
      }
      chunk += values[i];
    }
    core.AnswersBytes(Chunk(0, chunk));
    EXPECT_EQ(Got("A,B,C,D"), "[1, 'two', 3, 4]") << borders;
    EXPECT_EQ(core.Unread(), "") << borders;
  }
}

TEST_F(ReadTagTest, AValueCutByAChunksEndFailsAndKeepsTheValuesBeforeIt) {
  AnswersValues("11 00 05 11 00 06");
  EXPECT_TRUE(Read("A,B"));
  core.AnswersBytes(Chunk(1, FromHex("11 00 01 02 00 FF")) + Chunk(0, FromHex("FF")));
  EXPECT_FALSE(Read("A,B"));
  EXPECT_EQ(Shown(0), "1");
  EXPECT_EQ(Shown(1), "6");
}

TEST_F(ReadTagTest, WithoutMoreTheTagsThatGotNoValueKeepTheirs) {
  AnswersValues("11 00 05 11 00 06");
  EXPECT_TRUE(Read("A,B"));
  core.AnswersBytes(Chunk(0, FromHex("11 00 01")));
  EXPECT_TRUE(Read("A,B"));
  EXPECT_EQ(Shown(0) + Shown(1), "16");
}

TEST_F(ReadTagTest, OnlyOneMeansMore) {
  for (const int more : {0, 2, 0x31, 0xFF}) {
    core.AnswersBytes(Chunk(more, FromHex("11 00 01")));
    EXPECT_TRUE(Read("A,B")) << more;
    EXPECT_EQ(core.Unread(), "");
  }
}

TEST_F(ReadTagTest, NothingIsReadOnceEveryTagHasItsValueEvenIfMoreWasPromised) {
  core.AnswersBytes(Chunk(1, FromHex("11 00 01")) + "next");
  EXPECT_TRUE(Read("A"));
  EXPECT_EQ(core.Unread(), "6E 65 78 74");
}

TEST_F(ReadTagTest, ValuesBeyondTheLastTagAreLeftAlone) {
  core.AnswersBytes(Chunk(0, FromHex("11 00 01 11 00 02 FF")));
  EXPECT_TRUE(Read("A"));
  EXPECT_EQ(Shown(0), "1");
  EXPECT_EQ(core.Unread(), "");
}

TEST_F(ReadTagTest, AnEmptyAnswerIsASuccessWithoutValues) {
  core.AnswersBytes(Chunk(0, ""));
  EXPECT_EQ(Got("A"), "nothing");
}

TEST_F(ReadTagTest, EmptyChunksAreBorneUpToALimit) {
  std::string empty;
  for (int i = 0; i < 1024; ++i) empty += Chunk(1, "");
  core.AnswersBytes(empty + Chunk(0, FromHex("11 00 01")));
  EXPECT_TRUE(Read("A"));
  core.AnswersBytes(empty + Chunk(1, "") + Chunk(0, FromHex("11 00 02")));
  EXPECT_FALSE(Read("A"));
  EXPECT_EQ(Shown(0), "1");
}

TEST_F(ReadTagTest, AnotherLetterFailsWithTheWholeHeadRead) {
  core.AnswersBytes("h" + std::string("\0\3\0", 3) + "rest");
  EXPECT_FALSE(Read("A"));
  EXPECT_EQ(core.Unread(), "72 65 73 74");
}

TEST_F(ReadTagTest, EveryCutOfTheAnswerFails) {
  const std::string answer = Chunk(1, FromHex("11 00 01")) + Chunk(0, FromHex("08 00 68 69 00"));
  for (size_t cut = 0; cut <= answer.size(); ++cut) {
    FakeCore other;
    CDBDriver subject(js.Env(), "Pump", 1, &other);
    subject.SetTagCount(2);
    subject.tagIds = {{"A", 0}, {"B", 1}};
    other.AnswersBytes(answer.substr(0, cut));
    other.HangsUp();
    const std::string shown = FakeNapi::Show(subject.GetTagValue(js.Env(), "A,B"));
    EXPECT_EQ(shown, cut == answer.size() ? "[1, 'hi']" : "nothing") << cut;
    EXPECT_EQ(subject.tags[0].value.vt, cut >= 7 ? VT_UI1 : VT_EMPTY) << cut;
  }
}

TEST_F(ReadTagTest, AnAnswerThatStopsEndsWithTheTimeOut) {
  core.sock.SetTimeOut(20);
  EXPECT_FALSE(Read("A"));
  core.Answers("48 00 03");
  EXPECT_FALSE(Read("A"));
}

TEST_F(ReadTagTest, AnAnswerMayComeByteByByte) {
  SystemHooks hooks;
  hooks.SliceReceives(1);
  core.AnswersBytes(Chunk(1, FromHex("11 00 01")) + Chunk(0, FromHex("08 00 68 69 00")));
  EXPECT_EQ(Got("A,B"), "[1, 'hi']");
}

TEST_F(ReadTagTest, AServerThatIsGoneOrASessionThatEndedGivesUndefined) {
  core.Vanish();
  EXPECT_EQ(Got("A"), "nothing");
  core.gate.Close();
  EXPECT_EQ(Got("A"), "nothing");
}

TEST_F(ReadTagTest, ARequestThatCannotBeSentFailsAndNoAnswerIsRead) {
  shutdown(core.sock.Descriptor(), SHUT_WR);
  AnswersValues("11 00 01");
  EXPECT_FALSE(Read("A"));
  EXPECT_EQ(Shown(0), "nothing");
  EXPECT_EQ(core.Unread(), "48 00 03 00 11 00 01");
}

TEST_F(ReadTagTest, EntriesAreAppendedToOutAndAllOfOutIsRead) {
  out.push_back(&driver.tags[4]);
  AnswersValues("11 00 01 11 00 02");
  EXPECT_TRUE(driver._GetTagValue("A", out));
  EXPECT_EQ(Ids(out), "4 0");
  EXPECT_EQ(core.Sent(), "48 02 00 01 02 04 00 01 02 00 00");
  EXPECT_EQ(Shown(4) + Shown(0), "12");
}

TEST_F(ReadTagTest, AFailedReadLeavesTheEntriesInOut) {
  core.Answers("68 00 00 00");
  EXPECT_FALSE(Read("A,B"));
  EXPECT_EQ(Ids(out), "0 1");
  core.sock.SetTimeOut(20);
  EXPECT_FALSE(Read("C,Unknown"));
  EXPECT_EQ(Ids(out), "2");
}

TEST_F(ReadTagTest, NamesThatCannotBeResolvedGiveUndefined) {
  core.HangsUp();
  EXPECT_EQ(Got("Unknown"), "nothing");
  EXPECT_EQ(core.Sent(), "4C 01 02 55 6E 6B 6E 6F 77 6E 00");
}

TEST_F(ReadTagTest, ReadingIsNoUseOfTheLastSendTime) {
  const time_t before = core.sock.LastSend();
  SystemHooks hooks;
  hooks.SetTime(before + 1000);
  AnswersValues("11 00 01");
  EXPECT_TRUE(Read("A"));
  EXPECT_EQ(core.sock.LastSend(), before);
}

TEST_F(ReadTagTest, AFailedNodeApiCallThrowsItsMessageAndGivesUndefined) {
  Connected(0, "11 00 01");
  Connected(1, "07 00 00 00 00 00 00 00 00 00");
  for (const char* call :
       {"napi_create_uint32", "napi_create_array_with_length", "napi_set_element", "napi_get_undefined"}) {
    js.Fail(call, "Went wrong");
    EXPECT_EQ(Got("A,B"), "nothing") << call;
    EXPECT_EQ(js.TakeException(), "Went wrong") << call;
  }
  js.Fail("napi_create_uint32", nullptr);
  EXPECT_EQ(Got("A"), "nothing");
  EXPECT_EQ(js.TakeException(), "empty error message");
}

class ReadManyTest : public ReadTagTest {
 protected:
  void SetUp() override {
    driver.SetTagCount(1100);
    for (uint16_t i = 0; i < 1100; ++i) {
      Knows("t" + std::to_string(i), i);
      list += "t" + std::to_string(i) + ",";
      if (i == 1022) exactly = list;
    }
    for (int i = 0; i < 1023; ++i) values += FromHex("11 00 01");
  }
  std::string list;
  std::string exactly;
  std::string values;
};

TEST_F(ReadManyTest, Asks1023TagsInOneRequest) {
  core.AnswersBytes(Chunk(0, values));
  EXPECT_TRUE(Read(exactly));
  const std::string sent = core.SentBytes();
  EXPECT_EQ(sent.size(), 4095u);
  EXPECT_EQ(ToHex(sent.substr(0, 3)), "48 FF 03");
  EXPECT_EQ(Shown(1022), "1");
}

TEST_F(ReadManyTest, AsksOnlyTheFirst1023OfMoreTags) {
  core.AnswersBytes(Chunk(0, values));
  EXPECT_TRUE(Read(list));
  const std::string sent = core.SentBytes();
  EXPECT_EQ(sent.size(), 4095u);
  EXPECT_EQ(ToHex(sent.substr(4091)), "01 02 FE 03");
  EXPECT_EQ(out.size(), 1100u);
  EXPECT_EQ(Shown(1022), "1");
  EXPECT_EQ(Shown(1023), "nothing");
}

TEST_F(ReadManyTest, ConnectedTagsDoNotCountAmongThe1023) {
  Connected(0, "11 00 07");
  Connected(500, "11 00 07");
  core.AnswersBytes(Chunk(0, values));
  EXPECT_TRUE(Read(list));
  const std::string sent = core.SentBytes();
  EXPECT_EQ(sent.size(), 4095u);
  EXPECT_EQ(ToHex(sent.substr(0, 7)), "48 FF 03 01 02 01 00");
  EXPECT_EQ(ToHex(sent.substr(4091)), "01 02 00 04");
  EXPECT_EQ(Shown(1024), "1");
  EXPECT_EQ(Shown(1025), "nothing");
}
