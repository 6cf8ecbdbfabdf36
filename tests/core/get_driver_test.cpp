// Drivers of a session: made on first use, found by exact name, gone with the session.
#include "core/CoreFixture.h"

class GetDriverTest : public CoreTest {};

TEST_F(GetDriverTest, ADriverIsMadeOnceWithItsNumberNameAndTags) {
  Connect();
  CDBDriver* fan = core->_GetDriver("Fan");
  ASSERT_NE(fan, nullptr);
  EXPECT_EQ(fan->Number(), 1);
  EXPECT_EQ(fan->Name(), "Fan");
  EXPECT_EQ(fan->tags.size(), 2u);
  EXPECT_EQ(fan->env, js.Env());
  EXPECT_EQ(fan->core, core.get());
  EXPECT_EQ(core->driverSlots[1], fan);
  EXPECT_EQ(core->driverSlots[0], nullptr);
  EXPECT_EQ(core->driverInfo.at("Fan").pDriver, fan);
  EXPECT_EQ(core->_GetDriver("Fan"), fan);
}

TEST_F(GetDriverTest, ANameMustMatchExactly) {
  Connect();
  for (const char* name : {"fan", "FAN", "Fa", "Fan ", "", "Nobody"}) {
    EXPECT_EQ(core->_GetDriver(name), nullptr) << name;
  }
  EXPECT_EQ(core->_GetDriver(nullptr), nullptr);
}

TEST_F(GetDriverTest, WithoutASessionThereIsNoDriver) {
  EXPECT_EQ(core->_GetDriver("Pump"), nullptr);
  Connect();
  core->_Disconnect();
  EXPECT_EQ(core->_GetDriver("Pump"), nullptr);
}

TEST_F(GetDriverTest, DriverNumbersWithGapsHaveSlotsUpToTheHighest) {
  server.plan.drivers = {{"Low", 3, 1}, {"High", 300, 1}};
  Connect();
  EXPECT_EQ(core->driverSlots.size(), 301u);
  FollowedDriver("High");
  EXPECT_EQ(core->driverSlots[300], core->_GetDriver("High"));
  server.Notify(Change(300, 0, 5));
  EXPECT_EQ(Changes(1), std::vector<std::string>{"('High', 'A', 5)"});
}

TEST_F(GetDriverTest, TheHighestDriverNumberHasASlotToo) {
  server.plan.drivers = {{"Last", 65535, 1}};
  Connect();
  EXPECT_EQ(core->driverSlots.size(), 65536u);
  EXPECT_EQ(core->driverSlots[65535], nullptr);
  CDBDriver* last = core->_GetDriver("Last");
  EXPECT_NE(last, nullptr);
  EXPECT_EQ(core->driverSlots[65535], last);
}

TEST_F(GetDriverTest, TwoDriversOfOneNumberShareTheSlotOfTheLater) {
  server.plan.drivers = {{"One", 1, 1}, {"Two", 1, 1}};
  Connect();
  EXPECT_EQ(core->driverSlots.size(), 2u);
  CDBDriver* one = core->_GetDriver("One");
  CDBDriver* two = core->_GetDriver("Two");
  EXPECT_NE(one, two);
  EXPECT_EQ(core->driverSlots[1], two);
}

TEST_F(GetDriverTest, ADriverOfNoTagsTakesNoNotification) {
  server.plan.drivers = {{"Bare", 0, 0}};
  Connect();
  EXPECT_EQ(core->_GetDriver("Bare")->tags.size(), 0u);
  const uint8_t record[] = {0, 0, 0, 0, 1};
  EXPECT_EQ(core->OnDBNotify(record, sizeof record), 65539);
}

TEST_F(GetDriverTest, AChineseNameIsFoundByItsOwnBytes) {
  server.plan.drivers = {{"\xB1\xC3", 0, 1}};
  Connect();
  EXPECT_NE(core->_GetDriver("\xB1\xC3"), nullptr);
}

TEST_F(GetDriverTest, ClearDriversDestroysThemAllAndKeepsTheSlots) {
  Connect();
  FollowedDriver("Pump");
  FollowedDriver("Fan");
  core->_Disconnect();
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_EQ(js.FunctionAt(1).released, 1);
  EXPECT_TRUE(core->driverInfo.empty());
  EXPECT_EQ(core->driverSlots.size(), 2u);
  EXPECT_EQ(core->driverSlots[0], nullptr);
  core->ClearDrivers();
  EXPECT_EQ(core->driverSlots.size(), 2u);
}

TEST_F(GetDriverTest, ANewSessionHasNewDriversAndItsOwnSlots) {
  Connect();
  core->_GetDriver("Pump");
  core->_Disconnect();
  server.plan.drivers = {{"Valve", 4, 3}};
  Connect();
  EXPECT_EQ(core->driverSlots.size(), 5u);
  EXPECT_EQ(core->_GetDriver("Pump"), nullptr);
  EXPECT_EQ(core->_GetDriver("Valve")->tags.size(), 3u);
}

// A core that no server is needed for: its driver list is put there by hand.
class DriverListTest : public ::testing::Test {
 protected:
  FakeNapi js;
  TestCore core{js.Env()};
};

TEST_F(DriverListTest, AnEntryThatHasADriverGivesItAsItIs) {
  CDBDriver driver(js.Env(), "Other", 9, &core);
  core.driverInfo["Pump"] = {0, 5, &driver};
  core.driverSlots.resize(1);
  EXPECT_EQ(core._GetDriver("Pump"), &driver);
  EXPECT_EQ(driver.tags.size(), 0u);  // neither sized nor entered anew
  EXPECT_EQ(core.driverSlots[0], nullptr);
  core.driverInfo.clear();
}

TEST_F(DriverListTest, ADriverWithoutASlotIsMadeAllTheSame) {
  core.driverInfo["Far"] = {2, 3, nullptr};
  core.driverSlots.resize(2);
  CDBDriver* far = core._GetDriver("Far");
  ASSERT_NE(far, nullptr);
  EXPECT_EQ(far->Number(), 2);
  EXPECT_EQ(core._GetDriver("Far"), far);
  EXPECT_EQ(core.driverSlots.size(), 2u);
}

TEST_F(DriverListTest, ClearDriversGoesByTheOrderOfTheNames) {
  for (const char* name : {"B", "C", "A"}) core.driverInfo[name] = {0, 1, nullptr};
  for (const char* name : {"B", "C", "A"}) core._GetDriver(name)->SetCBFunc(js.Env(), js.Recorder());
  core.ClearDrivers();
  EXPECT_EQ(js.FunctionAt(2).order, 1);  // A
  EXPECT_EQ(js.FunctionAt(0).order, 2);  // B
  EXPECT_EQ(js.FunctionAt(1).order, 3);  // C
  EXPECT_TRUE(core.driverInfo.empty());
}

TEST_F(DriverListTest, ClearDriversDestroysEveryDriverOfTheListWhoeverMadeIt) {
  auto* driver = new CDBDriver(js.Env(), "Pump", 0, &core);
  driver->SetCBFunc(js.Env(), js.Recorder());
  core.driverInfo["Pump"] = {0, 5, driver};
  core.driverInfo["Unused"] = {1, 5, nullptr};
  core.ClearDrivers();
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_TRUE(core.driverInfo.empty());
}

TEST(DriverSlots, GrowingKeepsTheSlotsAndShrinkingDropsTheRest) {
  DriverSlots slots;
  auto* driver = reinterpret_cast<CDBDriver*>(&slots);  // only its address matters
  EXPECT_EQ(slots.size(), 0u);
  slots.resize(2);
  slots[1] = driver;
  slots.resize(3);
  EXPECT_EQ(slots[0], nullptr);
  EXPECT_EQ(slots[1], driver);
  EXPECT_EQ(slots[2], nullptr);
  slots.resize(1);
  slots.resize(2);
  EXPECT_EQ(slots[1], nullptr);
  slots[0] = driver;
  slots.Forget();
  EXPECT_EQ(slots[0], nullptr);
  EXPECT_EQ(slots.size(), 2u);
  slots.resize(0);
  EXPECT_TRUE(slots.empty());
  slots.push_back(nullptr);
  slots.push_back(driver);
  EXPECT_EQ(std::vector<CDBDriver*>(slots.begin(), slots.end()), (std::vector<CDBDriver*>{nullptr, driver}));
}
