// Notification records: how long each is, and where each goes.
#include "core/CoreFixture.h"

class DispatchTest : public ::testing::Test {
 protected:
  DispatchTest() {
    core.driverInfo["Pump"] = {0, 3, nullptr};
    core.driverInfo["Idle"] = {1, 3, nullptr};  // its slot stays empty
    core.driverSlots.resize(3);
    pump = core._GetDriver("Pump");
    const uint8_t typed[] = {17, 0, 0};
    for (CDBDriver::STag& tag : pump->tags) tag.Decode(typed, sizeof typed);
  }

  // Dispatches a record that stands alone on the heap, so that a read past it is noticed.
  int Dispatched(const std::string& bytes) {
    const std::unique_ptr<uint8_t[]> record(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), record.get());
    return core.OnDBNotify(record.get(), bytes.size());
  }
  int Dispatched(const char* hex) { return Dispatched(FromHex(hex)); }

  // A core record of a command that is as long as any.
  static std::string CoreRecord(int command, const std::string& body) {
    std::string record = "\xFF\xFF" + std::string(1, static_cast<char>(command)) + body;
    record.resize(64, '\0');
    return record;
  }

  FakeNapi js;
  TestCore core{js.Env()};
  CDBDriver* pump;
};

TEST_F(DispatchTest, EveryCoreCommandTakesItsOwnLength) {
  for (int command = 0; command < 256; ++command) {
    int length = 0xFFFF;
    switch (command) {
      case 1:
      case 3:
        length = 35;
        break;
      case 2:
      case 5:
      case 7:
        length = 7;
        break;
      case 4:
        length = 43;
        break;
      case 6:
        length = 20;
        break;
      case 8:
        length = 5;
        break;
      case 9:
      case 14:
      case 15:
      case 22:
        length = 8;
        break;
      case 10:
      case 11:
      case 12:
      case 13:
        length = 15;
        break;
      case 16:
      case 17:
      case 18:
      case 19:
      case 20:
      case 21:
        length = 11;
        break;  // with the text "abc"
      case 255:
        length = 3;
        break;
      default:
        break;
    }
    EXPECT_EQ(Dispatched(CoreRecord(command, std::string("\0\0\2\0abc\0", 8))), length) << command;
  }
}

TEST_F(DispatchTest, ACoreRecordWithoutACommandDropsTheChunk) {
  EXPECT_EQ(Dispatched("FF FF"), 0xFFFF);
  EXPECT_EQ(Dispatched("FF FF FF"), 3);
}

TEST_F(DispatchTest, AHalfRecordNumberDropsTheChunk) {
  EXPECT_EQ(Dispatched("00"), 0xFFFF);
  EXPECT_EQ(Dispatched(""), 0xFFFF);
}

TEST_F(DispatchTest, SkippedRecordsMayRunPastTheirChunk) {
  EXPECT_EQ(Dispatched("FF FF 04"), 43);
  EXPECT_EQ(Dispatched("FF FF 06 00"), 20);
}

TEST_F(DispatchTest, ADriverRecordTakesFourBytesAndItsValue) {
  EXPECT_EQ(Dispatched("00 00 02 00 2A FF"), 5);
  EXPECT_EQ(FakeNapi::Show(pump->ValueToValue(pump->tags[2].Value())), "42");
}

TEST_F(DispatchTest, ARecordThatTheDriverCannotTakePassesTheChunksEnd) {
  EXPECT_EQ(Dispatched("00 00 03 00 2A"), 65539);  // no such tag
  EXPECT_EQ(Dispatched("00 00 02 00"), 65539);     // no value
}

TEST_F(DispatchTest, ADriverRecordWithoutItsTagDropsTheChunk) {
  EXPECT_EQ(Dispatched("00 00 02"), 0xFFFF);
  EXPECT_EQ(Dispatched("00 00"), 0xFFFF);
}

TEST_F(DispatchTest, ADriverPastTheSlotsOrOfAnEmptySlotDropsTheChunk) {
  EXPECT_EQ(Dispatched("05 00 00 00 01"), 0xFFFF);
  EXPECT_EQ(Dispatched("03 00 00 00 01"), 0xFFFF);
  EXPECT_EQ(Dispatched("01 00 00 00 01"), 0xFFFF);
  EXPECT_EQ(Dispatched("FE FF 00 00 01"), 0xFFFF);
}

TEST_F(DispatchTest, DriverAndTagIndexesHaveTwoBytesEverywhere) {
  EXPECT_EQ(Dispatched("00 01 00 00 2A"), 0xFFFF);  // driver 256
  EXPECT_EQ(Dispatched("00 00 00 01 2A"), 65539);   // tag 256 of driver 0
  for (int command = 9; command <= 22; ++command) {
    EXPECT_EQ(Dispatched(CoreRecord(command, std::string("\0\1\0\0", 4))), 0xFFFF) << command;
    EXPECT_EQ(Dispatched(CoreRecord(command, std::string("\0\0\0\1", 4))), 0xFFFF) << command;
  }
}

TEST_F(DispatchTest, ADriverThatIsMadeFillsItsSlotAndTakesRecords) {
  core._GetDriver("Idle")->tags[1].type = VT_UI1;
  EXPECT_EQ(Dispatched("01 00 01 00 01"), 5);
}

TEST_F(DispatchTest, TagEventsAreCheckedForDriverAndTag) {
  for (int command = 9; command <= 22; ++command) {
    EXPECT_EQ(Dispatched(CoreRecord(command, std::string("\3\0\0\0", 4))), 0xFFFF) << command;  // past the slots
    EXPECT_EQ(Dispatched(CoreRecord(command, std::string("\1\0\0\0", 4))), 0xFFFF) << command;  // an empty slot
    EXPECT_EQ(Dispatched(CoreRecord(command, std::string("\0\0\3\0", 4))), 0xFFFF) << command;  // past the tags
    EXPECT_NE(Dispatched(CoreRecord(command, std::string("\0\0\2\0", 4))), 0xFFFF) << command;
  }
}

TEST_F(DispatchTest, TagEventsWithoutTheirTagDropTheChunk) {
  EXPECT_EQ(Dispatched("FF FF 09 00 00 02"), 0xFFFF);
  EXPECT_EQ(Dispatched("FF FF 09 00 00 02 00"), 8);
}

TEST_F(DispatchTest, ATagEventsTextGivesItsLength) {
  for (int command = 16; command <= 21; ++command) {
    EXPECT_EQ(Dispatched("\xFF\xFF" + std::string(1, static_cast<char>(command)) + std::string("\0\0\0\0\0", 5)), 8);
    std::string longest = CoreRecord(command, std::string(4, '\0') + std::string(60, 'x'));
    longest[63] = '\0';
    EXPECT_EQ(Dispatched(longest), 64) << command;
  }
}

TEST_F(DispatchTest, ATagEventsTextWithoutEndDropsTheChunk) {
  EXPECT_EQ(Dispatched("FF FF 11 00 00 00 00 61 62 63"), 0xFFFF);
  EXPECT_EQ(Dispatched("FF FF 11 00 00 00 00"), 0xFFFF);
  EXPECT_EQ(Dispatched("FF FF 11 00 00 00 00 61 62 63 00"), 11);
}

TEST_F(DispatchTest, AnAlarmWithoutASubscriptionIsSkipped) {
  for (const int command : {1, 3}) {
    EXPECT_EQ(Dispatched(CoreRecord(command, "")), 35);
  }
  EXPECT_EQ(js.Functions(), 0u);
}

TEST_F(DispatchTest, AnAlarmThatIsCutOffDropsTheChunk) {
  const std::string alarm = CoreRecord(1, "").substr(0, 35);
  EXPECT_EQ(Dispatched(alarm), 35);
  for (size_t cut = 3; cut < 35; ++cut) EXPECT_EQ(Dispatched(alarm.substr(0, cut)), 0xFFFF) << cut;
}

TEST_F(DispatchTest, ARecordMayBeGivenWithoutASize) {
  const uint8_t record[] = {0, 0, 1, 0, 9};
  EXPECT_EQ(core.OnDBNotify(record), 5);
  const uint8_t text[] = {0xFF, 0xFF, 17, 0, 0, 0, 0, 'a', 0};
  EXPECT_EQ(core.OnDBNotify(text), 9);
}
