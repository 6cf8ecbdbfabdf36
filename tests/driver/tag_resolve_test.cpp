// Lists of names to tags: the cache, and the batch requests for the rest.
#include "driver/DriverFixture.h"

class TagResolveTest : public DriverTest {
 protected:
  bool Resolve(const std::string& list) {
    out.clear();
    return driver.CheckTagId(list.c_str(), out);
  }

  // Answers for as many names as there are ids.
  static std::string Batch(const std::vector<unsigned int>& ids) {
    std::string bytes = "L";
    for (const unsigned int id : ids) bytes += Word(id) + "??";
    return bytes;
  }

  Tags out;
};

TEST_F(TagResolveTest, TwoNamesAreAskedForInOneRequest) {
  core.AnswersBytes(Batch({2, 0}));
  EXPECT_TRUE(Resolve("Level, Flow"));
  EXPECT_EQ(core.Sent(), "4C 01 02 4C 65 76 65 6C 00 01 02 46 6C 6F 77 00");
  EXPECT_EQ(Ids(out), "2 0");
  EXPECT_EQ(driver.tags[2].name, "Level");
  EXPECT_EQ(driver.tags[0].name, "Flow");
  EXPECT_EQ(driver.tagIds.at("Level"), 2);
  EXPECT_EQ(driver.tagIds.at("Flow"), 0);
}

TEST_F(TagResolveTest, BlanksAroundANameAreDroppedAndThoseInsideStay) {
  core.AnswersBytes(Batch({0, 1}));
  EXPECT_TRUE(Resolve("  A, B C  "));
  EXPECT_EQ(core.Sent(), "4C 01 02 41 00 01 02 42 20 43 00");
}

TEST_F(TagResolveTest, OnlyTheSpaceIsABlank) {
  core.AnswersBytes(Batch({0}));
  EXPECT_TRUE(Resolve("\tA\r\n"));
  EXPECT_EQ(core.Sent(), "4C 01 02 09 41 0D 0A 00");
}

TEST_F(TagResolveTest, CachedNamesSendNothing) {
  KnowsAllTags();
  EXPECT_TRUE(Resolve("E,A,C"));
  EXPECT_EQ(core.Sent(), "");
  EXPECT_EQ(Ids(out), "4 0 2");
}

TEST_F(TagResolveTest, ACachedNameComesBeforeAnUncachedOneOfTheSameList) {
  Knows("X", 1);
  core.AnswersBytes(Batch({3}));
  EXPECT_TRUE(Resolve("Y,X"));
  EXPECT_EQ(Ids(out), "1 3");
}

TEST_F(TagResolveTest, CachedNamesSeenBehindASentBatchComeAfterIt) {
  Knows("X", 1);
  Knows("Z", 2);
  const std::string big(764, 'b');
  core.AnswersBytes(Batch({3}) + Batch({4}));
  EXPECT_TRUE(Resolve("X," + big + ",Y,Z"));  // Y needs a second batch, which is sent at the end
  EXPECT_EQ(Ids(out), "1 3 2 4");
}

TEST_F(TagResolveTest, ANameThatAnEarlierBatchAnsweredIsKnownFurtherOnInTheList) {
  const std::string big(764, 'b');
  core.AnswersBytes(Batch({1}) + Batch({3}));
  EXPECT_TRUE(Resolve("n," + big + ",n"));
  EXPECT_EQ(core.SentBytes().size(), 5u + 768u);
  EXPECT_EQ(Ids(out), "1 1 3");
}

TEST_F(TagResolveTest, EntriesAreAppendedToWhatThereIs) {
  Knows("X", 1);
  out = {nullptr, &driver.tags[4]};
  core.AnswersBytes(Batch({3}));
  EXPECT_TRUE(driver.CheckTagId("Y,X", out));
  EXPECT_EQ(Ids(out), "- 4 1 3");
  core.AnswersBytes(Batch({2}));
  EXPECT_TRUE(driver.ReqBatchGetPoss({"Z"}, "L", 1, out));
  EXPECT_EQ(Ids(out), "- 4 1 3 2");
}

TEST_F(TagResolveTest, ListsAndSingleNamesShareWhatIsKnown) {
  core.nextId = 3;
  driver.GetTagId("Level");
  core.nextId = 65535;
  driver.GetTagId("Nowhere");
  EXPECT_TRUE(Resolve("Nowhere,Level"));
  EXPECT_EQ(Ids(out), "- 3");
  EXPECT_EQ(core.Sent(), "");

  core.AnswersBytes(Batch({1, 65535}));
  EXPECT_TRUE(Resolve("Flow,Gone"));
  core.asked.clear();
  EXPECT_EQ(driver.GetTagId("Flow"), 1);
  EXPECT_EQ(driver.GetTagId("Gone"), 65535);
  EXPECT_TRUE(core.asked.empty());
}

TEST_F(TagResolveTest, ADriverWithoutTagsStillAsksForTheNamesOfAList) {
  driver.SetTagCount(0);
  core.AnswersBytes(Batch({0}));
  EXPECT_TRUE(Resolve("A"));
  EXPECT_EQ(core.Sent(), "4C 01 02 41 00");
  EXPECT_EQ(Ids(out), "-");
  EXPECT_EQ(driver.tagIds.at("A"), 0);
}

TEST_F(TagResolveTest, AKnownIdIsLookedUpInTheTableOfNow) {
  KnowsAllTags();
  driver.SetTagCount(2);
  EXPECT_TRUE(Resolve("E,B"));
  EXPECT_EQ(Ids(out), "- 1");
  driver.SetTagCount(5);
  EXPECT_TRUE(Resolve("E,B"));
  EXPECT_EQ(Ids(out), "4 1");
  EXPECT_EQ(driver.tags[4].name, "");  // a fresh tag: only a resolved name is stored
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(TagResolveTest, ATagOfTwoNamesHasTheOneThatWasResolvedLast) {
  core.AnswersBytes(Batch({2, 2}));
  EXPECT_TRUE(Resolve("Level,Stand"));
  EXPECT_EQ(Ids(out), "2 2");
  EXPECT_TRUE(Resolve("Level"));
  EXPECT_EQ(driver.tags[2].name, "Stand");
}

TEST_F(TagResolveTest, AnEmptyListHasNoEntries) {
  EXPECT_TRUE(Resolve(""));
  EXPECT_EQ(Ids(out), "");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(TagResolveTest, NothingBetweenTwoCommasIsNoEntryAndABlankIsANullOne) {
  Knows("A", 0);
  EXPECT_TRUE(Resolve("A,,A"));
  EXPECT_EQ(Ids(out), "0 0");
  EXPECT_TRUE(Resolve("A, ,A,  "));
  EXPECT_EQ(Ids(out), "0 - 0 -");
  EXPECT_EQ(core.Sent(), "");
  EXPECT_EQ(driver.tagIds.size(), 1u);  // an empty name is not kept
}

TEST_F(TagResolveTest, AnEmptyNameStaysNullEvenWhenTheCacheHasIt) {
  driver.tagIds[""] = 1;
  EXPECT_TRUE(Resolve(" "));
  EXPECT_EQ(Ids(out), "-");
}

TEST_F(TagResolveTest, AnUnknownNameIsANullEntryAndNotAskedForAgain) {
  core.AnswersBytes(Batch({65535}));
  EXPECT_TRUE(Resolve("Nowhere"));
  EXPECT_EQ(Ids(out), "-");
  EXPECT_NE(core.Sent(), "");
  EXPECT_TRUE(Resolve("Nowhere"));
  EXPECT_EQ(Ids(out), "-");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(TagResolveTest, AnIdPastTheTableIsANullEntryBothTimes) {
  core.AnswersBytes(Batch({5, 4}));
  EXPECT_TRUE(Resolve("F,E"));
  EXPECT_EQ(Ids(out), "- 4");
  EXPECT_TRUE(Resolve("F,E"));
  EXPECT_EQ(Ids(out), "- 4");
  EXPECT_EQ(driver.tagIds.at("F"), 5);
}

TEST_F(TagResolveTest, ANameTwiceInAListIsAskedForTwiceAndTheLaterAnswerStays) {
  core.AnswersBytes(Batch({1, 2}));
  EXPECT_TRUE(Resolve("A,A"));
  EXPECT_EQ(core.SentBytes().size(), 9u);
  EXPECT_EQ(Ids(out), "1 2");
  EXPECT_EQ(driver.tagIds.at("A"), 2);
}

TEST_F(TagResolveTest, AFullRequestHas768Bytes) {
  const std::string first(400, 'a');
  const std::string second(361, 'b');  // 1 + 403 + 364 = 768
  core.AnswersBytes(Batch({0, 1}));
  EXPECT_TRUE(Resolve(first + "," + second));
  EXPECT_EQ(core.SentBytes().size(), 768u);
  EXPECT_EQ(Ids(out), "0 1");
}

TEST_F(TagResolveTest, ANameThatWouldReach769BytesStartsASecondRequest) {
  const std::string first(400, 'a');
  const std::string second(362, 'b');
  core.AnswersBytes(Batch({0}) + Batch({1}));
  EXPECT_TRUE(Resolve(first + "," + second));
  const std::string head = "L\x01\x02";
  EXPECT_EQ(core.SentBytes(), head + first + '\0' + head + second + '\0');
  EXPECT_EQ(Ids(out), "0 1");
}

TEST_F(TagResolveTest, ANameOf764BytesFitsARequestOfItsOwn) {
  const std::string name(764, 'n');
  core.AnswersBytes(Batch({2}));
  EXPECT_TRUE(Resolve(name));
  EXPECT_EQ(core.SentBytes().size(), 768u);
  EXPECT_EQ(Ids(out), "2");
}

TEST_F(TagResolveTest, ANameOf765BytesIsANullEntryAndNothingIsSentForIt) {
  Knows("A", 0);
  EXPECT_TRUE(Resolve("A," + std::string(765, 'n') + ",A"));
  EXPECT_EQ(core.Sent(), "");
  EXPECT_EQ(Ids(out), "0 - 0");
  EXPECT_EQ(driver.tagIds.size(), 1u);
}

TEST_F(TagResolveTest, AHundredAndNinetyOneShortNamesShareARequestAndOneMoreDoesNot) {
  std::string list;
  std::vector<unsigned int> ids;
  for (int i = 0; i < 192; ++i) {
    list += std::string(1, static_cast<char>(i < 26 ? 'a' + i : i < 52 ? 'A' + i - 26 : 0x80 + (i - 52) % 120)) + ",";
    ids.push_back(65535);
  }
  core.AnswersBytes(Batch(std::vector<unsigned int>(191, 65535)) + Batch({0}));
  EXPECT_TRUE(Resolve(list));
  EXPECT_EQ(core.SentBytes().size(), 765u + 5u);
  EXPECT_EQ(out.size(), 192u);
  EXPECT_EQ(out.back(), &driver.tags[0]);
}

TEST_F(TagResolveTest, AnAnswerWithAnotherLetterFailsAndKeepsWhatWasThere) {
  Knows("A", 0);
  core.Answers("6C 00 00 00 00");
  EXPECT_FALSE(Resolve("A,B"));
  EXPECT_EQ(Ids(out), "0");
  EXPECT_EQ(driver.tagIds.count("B"), 0u);
}

TEST_F(TagResolveTest, NamesOfAFailedBatchAreAskedForNextTime) {
  core.Answers("30 00 00 00 00");
  EXPECT_FALSE(Resolve("B"));
  core.Sent();
  core.AnswersBytes(Batch({1}));
  EXPECT_TRUE(Resolve("B"));
  EXPECT_EQ(core.Sent(), "4C 01 02 42 00");
}

TEST_F(TagResolveTest, AFailedFirstBatchEndsTheList) {
  Knows("A", 0);
  core.HangsUp();
  EXPECT_FALSE(Resolve(std::string(764, 'x') + ",Y,A"));
  EXPECT_EQ(Ids(out), "");
  EXPECT_EQ(core.SentBytes().size(), 768u);
}

TEST_F(TagResolveTest, AFailedSecondBatchKeepsWhatTheFirstOneBrought) {
  Knows("X", 1);
  const std::string big(764, 'b');
  const std::string bigger(764, 'c');
  core.AnswersBytes(Batch({3}) + "l...." + Batch({4}));
  EXPECT_FALSE(Resolve("X," + big + "," + bigger + ",Y,X"));
  EXPECT_EQ(core.SentBytes().size(), 2u * 768u);
  EXPECT_EQ(Ids(out), "1 3");
  EXPECT_EQ(driver.tagIds, (std::map<CString, unsigned short>{{"X", 1}, {big, 3}}));
  EXPECT_EQ(driver.tags[3].name, big);
}

TEST_F(TagResolveTest, APreparedBatchThatFailsLeavesEverythingAsItWas) {
  Knows("A", 0);
  out = {&driver.tags[4]};
  core.Answers("6C 01 00 00 00");
  EXPECT_FALSE(driver.ReqBatchGetPoss({"A"}, "L", 1, out));
  core.Answers("4C 01 00 00");
  core.HangsUp();
  EXPECT_FALSE(driver.ReqBatchGetPoss({"A"}, "L", 1, out));
  EXPECT_EQ(Ids(out), "4");
  EXPECT_EQ(driver.tagIds.at("A"), 0);
  EXPECT_EQ(driver.tags[1].name, "");
}

TEST_F(TagResolveTest, ExactlyTheBytesOfTheAnswerAreRead) {
  core.AnswersBytes(Batch({0, 1}) + "zz");
  EXPECT_TRUE(Resolve("A,B"));
  EXPECT_EQ(core.Unread(), "7A 7A");
}

TEST_F(TagResolveTest, APreparedBatchWithoutNamesIsAnsweredByTheLetterAlone) {
  core.AnswersBytes("Lz");
  EXPECT_TRUE(driver.ReqBatchGetPoss({}, "Lxyz", 4, out));
  EXPECT_EQ(Ids(out), "");
  EXPECT_EQ(core.Unread(), "7A");
}

TEST_F(TagResolveTest, EveryCutOfTheAnswerFails) {
  const std::string answer = Batch({0, 1});
  for (size_t cut = 0; cut <= answer.size(); ++cut) {
    FakeCore other;
    CDBDriver subject(js.Env(), "Pump", 1, &other);
    subject.SetTagCount(5);
    other.AnswersBytes(answer.substr(0, cut));
    other.HangsUp();
    Tags entries;
    EXPECT_EQ(subject.CheckTagId("A,B", entries), cut == answer.size()) << cut;
    EXPECT_EQ(entries.size(), cut == answer.size() ? 2u : 0u) << cut;
    EXPECT_EQ(subject.tagIds.size(), cut == answer.size() ? 2u : 0u) << cut;
  }
}

TEST_F(TagResolveTest, AnAnswerThatNeverComesEndsWithTheTimeOut) {
  core.sock.SetTimeOut(20);
  EXPECT_FALSE(Resolve("A"));
  core.Answers("4C");
  EXPECT_FALSE(Resolve("B"));
}

TEST_F(TagResolveTest, AnAnswerMayComeByteByByte) {
  SystemHooks hooks;
  hooks.SliceReceives(1);
  core.AnswersBytes(Batch({4, 3, 2}));
  EXPECT_TRUE(Resolve("x,y,z"));
  EXPECT_EQ(Ids(out), "4 3 2");
}

TEST_F(TagResolveTest, AServerThatIsGoneFailsAndSendsNothingMore) {
  core.Vanish();
  EXPECT_FALSE(Resolve("A"));
  EXPECT_EQ(Ids(out), "");
}

TEST_F(TagResolveTest, ADriverOfAnEndedSessionResolvesNothing) {
  KnowsAllTags();
  core.gate.Close();
  EXPECT_FALSE(Resolve("A"));
  EXPECT_FALSE(driver.ReqBatchGetPoss({"B"}, "L", 1, out));
  EXPECT_EQ(Ids(out), "");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(TagResolveTest, APreparedBatchIsSentAsItIsAndItsAnswerTakenInOrder) {
  Knows("old", 0);
  core.AnswersBytes(Batch({2, 65535, 3}));
  EXPECT_TRUE(driver.ReqBatchGetPoss({"old", "none", "new"}, "Lxyz", 4, out));
  EXPECT_EQ(core.SentBytes(), "Lxyz");
  EXPECT_EQ(Ids(out), "2 - 3");
  EXPECT_EQ(driver.tagIds.at("old"), 2);  // an entry that was there is overwritten
  EXPECT_EQ(driver.tagIds.at("none"), 65535);
  EXPECT_EQ(driver.tags[3].name, "new");
}

TEST_F(TagResolveTest, ChineseNamesGoOutInTheirOwnBytes) {
  core.AnswersBytes(Batch({1}));
  EXPECT_TRUE(Resolve("\xCB\xAE\xCE\xBB"));
  EXPECT_EQ(core.Sent(), "4C 01 02 CB AE CE BB 00");
}
