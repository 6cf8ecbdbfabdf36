// The tag table and the look-up of single names.
#include "driver/DriverFixture.h"

using TagTableTest = DriverTest;

namespace {

CDBDriver::STag& SetText(CDBDriver::STag& tag, const char* text) {
  tag.value.SetString(text, std::string(text).size());
  tag.name = text;
  tag.connected = 1;
  return tag;
}

}  // namespace

TEST_F(TagTableTest, ANewDriverHasNoTagsNoNamesAndNoFunction) {
  const CDBDriver fresh(js.Env(), "Fan", 7, &core);
  EXPECT_TRUE(fresh.tags.empty());
  EXPECT_TRUE(fresh.tagIds.empty());
  EXPECT_EQ(fresh.notifyFunc.load(), nullptr);
  EXPECT_EQ(fresh.Number(), 7);
  EXPECT_EQ(fresh.Name(), "Fan");
  EXPECT_EQ(fresh.env, js.Env());
  EXPECT_EQ(fresh.core, &core);
}

TEST_F(TagTableTest, ThreeTagsOnAnEmptyTableHaveIdsZeroToTwoAndNothingElse) {
  CDBDriver fresh(js.Env(), "Fan", 7, &core);
  fresh.SetTagCount(3);
  ASSERT_EQ(fresh.tags.size(), 3u);
  for (uint16_t i = 0; i < 3; ++i) {
    EXPECT_EQ(fresh.tags[i].id, i);
    EXPECT_EQ(fresh.tags[i].name, "");
    EXPECT_EQ(fresh.tags[i].value.vt, VT_EMPTY);
    EXPECT_EQ(fresh.tags[i].value.i64, 0);
    EXPECT_EQ(fresh.tags[i].connected, 0);
    EXPECT_EQ(fresh.tags[i].type, VT_EMPTY);
  }
}

TEST_F(TagTableTest, ShrinkingFreesTagsAndGrowingAgainGivesFreshOnes) {
  for (CDBDriver::STag& tag : driver.tags) {
    SetText(tag, "a text long enough to live on the heap by itself").type = VT_BSTR;
    tag.id = 99;
  }
  ASSERT_EQ(Notified(4, "6E 65 77 00"), 4);
  driver.SetTagCount(2);
  ASSERT_EQ(driver.tags.size(), 2u);
  EXPECT_EQ(Shown(1), "'a text long enough to live on the heap by itself'");
  EXPECT_EQ(driver.tags[0].id, 0);
  EXPECT_EQ(driver.tags[1].id, 1);

  driver.SetTagCount(5);
  for (uint16_t i = 2; i < 5; ++i) {
    EXPECT_EQ(driver.tags[i].id, i);
    EXPECT_EQ(driver.tags[i].name, "");
    EXPECT_EQ(driver.tags[i].Value().vt, VT_EMPTY);
    EXPECT_EQ(driver.tags[i].connected, 0);
    EXPECT_EQ(Notified(i, "6E 65 77 00"), 65535);  // its type is unknown again
  }
}

TEST_F(TagTableTest, AQueuedChangeOfATagThatIsNoMoreIsFreedAndNotDelivered) {
  driver.SetCBFunc(js.Env(), js.Recorder());
  for (const size_t tag : {1u, 4u}) {
    SetText(driver.tags[tag], "text").type = VT_BSTR;
    ASSERT_EQ(Notified(static_cast<uint16_t>(tag), "6E 65 77 00"), 4);
  }
  driver.SetTagCount(2);
  EXPECT_EQ(js.Drain(), 2u);
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'text', 'new')"});
}

TEST_F(TagTableTest, TheSameCountNumbersTheTagsAnewAndKeepsTheRest) {
  SetText(driver.tags[4], "kept").id = 99;
  driver.SetTagCount(5);
  EXPECT_EQ(driver.tags[4].id, 4);
  EXPECT_EQ(driver.tags[4].name, "kept");
  EXPECT_EQ(Shown(4), "'kept'");
  EXPECT_EQ(driver.tags[4].connected, 1);
}

TEST_F(TagTableTest, GrowingKeepsValuesNamesAndConnections) {
  SetText(driver.tags[0], "kept").id = 99;
  driver.SetTagCount(65535);
  EXPECT_EQ(driver.tags[0].id, 0);
  EXPECT_EQ(driver.tags[0].name, "kept");
  EXPECT_EQ(Shown(0), "'kept'");
  EXPECT_EQ(driver.tags[0].connected, 1);
  EXPECT_EQ(driver.tags[65534].id, 65534);
}

TEST_F(TagTableTest, NoTagsAtAllIsAllowed) {
  driver.SetTagCount(0);
  EXPECT_TRUE(driver.tags.empty());
}

TEST_F(TagTableTest, AnEmptyOrMissingNameHasNoTagAndIsNotAskedFor) {
  core.nextId = 1;
  EXPECT_EQ(driver.GetTagId(""), 65535);
  EXPECT_EQ(driver.GetTagId(nullptr), 65535);
  EXPECT_TRUE(core.asked.empty());
  EXPECT_TRUE(driver.tagIds.empty());
}

TEST_F(TagTableTest, ADriverWithoutTagsAsksForNoName) {
  driver.SetTagCount(0);
  core.nextId = 1;
  EXPECT_EQ(driver.GetTagId("A"), 65535);
  EXPECT_TRUE(core.asked.empty());
  EXPECT_TRUE(driver.tagIds.empty());
}

TEST_F(TagTableTest, ADriverWithoutTagsDoesNotAnswerFromItsCacheEither) {
  Knows("A", 0);
  driver.SetTagCount(0);
  EXPECT_EQ(driver.GetTagId("A"), 65535);
  EXPECT_TRUE(core.asked.empty());
}

TEST_F(TagTableTest, ASingleNameIsAskedForAsItStands) {
  core.nextId = 0;
  EXPECT_EQ(driver.GetTagId(" A,B "), 0);
  EXPECT_EQ(driver.GetTagId(" "), 0);
  EXPECT_EQ(core.asked, (std::vector<std::string>{"513  A,B ", "513  "}));
  EXPECT_EQ(driver.tagIds.count(" A,B "), 1u);
}

TEST_F(TagTableTest, ATagOfTwoNamesHasTheOneThatWasResolvedLast) {
  core.nextId = 2;
  driver.GetTagId("Level");
  driver.GetTagId("Stand");
  EXPECT_EQ(driver.tags[2].name, "Stand");
  EXPECT_EQ(driver.GetTagId("Level"), 2);  // from the cache: names no tag
  EXPECT_EQ(driver.tags[2].name, "Stand");
}

TEST_F(TagTableTest, KnownNamesOutliveTheirTags) {
  core.nextId = 4;
  driver.GetTagId("Level");
  driver.SetTagCount(2);
  EXPECT_EQ(driver.GetTagId("Level"), 4);
  driver.SetTagCount(5);
  EXPECT_EQ(driver.GetTagId("Level"), 4);
  EXPECT_EQ(driver.tags[4].name, "");  // a fresh tag: only a resolved name is stored
  EXPECT_EQ(core.asked.size(), 1u);
}

TEST_F(TagTableTest, ANameIsAskedForWithTheDriverNumberOnceAndStoredInItsTag) {
  core.nextId = 3;
  EXPECT_EQ(driver.GetTagId("Level"), 3);
  EXPECT_EQ(driver.tags[3].name, "Level");
  core.nextId = 4;
  EXPECT_EQ(driver.GetTagId("Level"), 3);
  EXPECT_EQ(core.asked, std::vector<std::string>{"513 Level"});
}

TEST_F(TagTableTest, AnUnknownNameIsAskedForOnce) {
  core.nextId = 65535;
  EXPECT_EQ(driver.GetTagId("Nowhere"), 65535);
  core.nextId = 1;
  EXPECT_EQ(driver.GetTagId("Nowhere"), 65535);
  EXPECT_EQ(core.asked.size(), 1u);
}

TEST_F(TagTableTest, ANameThatGotNoAnswerIsNotAskedForAgainEither) {
  EXPECT_EQ(driver.GetTagId("A"), 65535);
  core.nextId = 1;
  EXPECT_EQ(driver.GetTagId("A"), 65535);
  EXPECT_EQ(core.asked.size(), 1u);
}

TEST_F(TagTableTest, AnIdPastTheTableIsReturnedAndKeptButNamesNoTag) {
  core.nextId = 5;
  EXPECT_EQ(driver.GetTagId("F"), 5);
  EXPECT_EQ(driver.tagIds.at("F"), 5);
  for (const CDBDriver::STag& tag : driver.tags) EXPECT_EQ(tag.name, "");
  core.nextId = 4;
  EXPECT_EQ(driver.GetTagId("E"), 4);
  EXPECT_EQ(driver.tags[4].name, "E");
}

TEST_F(TagTableTest, NamesAreOrderedByBytesTheShorterFirst) {
  for (const char* name : {"b", "\xB1\xC3", "a1", "B", "a"}) driver.GetTagId(name);
  std::vector<std::string> order;
  for (const auto& [name, id] : driver.tagIds) order.push_back(name);
  EXPECT_EQ(order, (std::vector<std::string>{"B", "a", "a1", "b", "\xB1\xC3"}));
}

TEST_F(TagTableTest, ADriverOfAnEndedSessionAnswersFromItsCacheAndAsksNothing) {
  Knows("A", 0);
  core.gate.Close();
  core.nextId = 1;
  EXPECT_EQ(driver.GetTagId("A"), 0);
  EXPECT_EQ(driver.GetTagId("B"), 65535);
  EXPECT_TRUE(core.asked.empty());
}

TEST_F(TagTableTest, AMovedTagTakesEverythingWithIt) {
  SetText(driver.tags[1], "text");
  driver.tags[1].type = VT_BSTR;
  ASSERT_EQ(Notified(1, "6E 65 77 00"), 4);
  CDBDriver::STag moved(std::move(driver.tags[1]));
  EXPECT_EQ(moved.id, 1);
  EXPECT_EQ(moved.name, "text");
  EXPECT_EQ(moved.connected, 1);
  EXPECT_EQ(moved.type, VT_BSTR);
  EXPECT_EQ(*moved.Value().str, "new");
}
