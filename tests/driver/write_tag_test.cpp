// Writing tags: request 'g', which has no answer.
#include <algorithm>

#include "driver/DriverFixture.h"

class WriteTagTest : public DriverTest {
 protected:
  WriteTagTest() { KnowsAllTags(); }

  int Write(const std::string& list, napi_value value) { return driver.SetTagValue(js.Env(), list.c_str(), value); }
};

TEST_F(WriteTagTest, ANumberIsWrittenAsADouble) {
  EXPECT_EQ(Write("A", js.Number(3)), 0);
  EXPECT_EQ(core.Sent(), "67 01 00 01 02 00 00 05 00 00 00 00 00 00 00 08 40");
}

TEST_F(WriteTagTest, BooleansAreOneByte) {
  EXPECT_EQ(Write("B", js.Boolean(true)), 0);
  EXPECT_EQ(core.Sent(), "67 01 00 01 02 01 00 0B 00 01");
  EXPECT_EQ(Write("B", js.Boolean(false)), 0);
  EXPECT_EQ(core.Sent(), "67 01 00 01 02 01 00 0B 00 00");
}

TEST_F(WriteTagTest, TextIsWrittenAsUtf8WithANul) {
  EXPECT_EQ(Write("C", js.Text("\xE6\xB0\xB4")), 0);
  EXPECT_EQ(core.Sent(), "67 01 00 01 02 02 00 08 00 E6 B0 B4 00");
  EXPECT_EQ(Write("C", js.Text("")), 0);
  EXPECT_EQ(core.Sent(), "67 01 00 01 02 02 00 08 00 00");
}

TEST_F(WriteTagTest, TextEndsAtItsFirstNul) {
  EXPECT_EQ(Write("C", js.Text(std::string("ab\0cd", 5))), 0);
  EXPECT_EQ(core.Sent(), "67 01 00 01 02 02 00 08 00 61 62 00");
}

TEST_F(WriteTagTest, TextOf127BytesIsWrittenWhole) {
  EXPECT_EQ(Write("A", js.Text(std::string(127, 'x'))), 0);
  EXPECT_EQ(core.SentBytes().substr(9), std::string(127, 'x') + '\0');
}

TEST_F(WriteTagTest, LongerTextIsCutTo127Bytes) {
  for (const size_t size : {128u, 200u, 100000u}) {
    EXPECT_EQ(Write("A", js.Text(std::string(size, 'x'))), 0);
    EXPECT_EQ(core.SentBytes().substr(9), std::string(127, 'x') + '\0');
  }
}

TEST_F(WriteTagTest, ACharacterThatDoesNotFitWholeIsLeftOut) {
  EXPECT_EQ(Write("A", js.Text(std::string(126, 'x') + "\xE6\xB0\xB4")), 0);
  EXPECT_EQ(core.SentBytes().substr(9), std::string(126, 'x') + '\0');
}

TEST_F(WriteTagTest, WhatIsNeitherTextNorNumberNorBooleanIsRefused) {
  for (const napi_value value : {js.Null(), js.Undefined(), js.Object(), js.Array({}), js.Recorder()}) {
    EXPECT_EQ(Write("A", value), -3) << FakeNapi::Show(value);
  }
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, SeveralTagsTakeTheElementsOfAnArray) {
  EXPECT_EQ(Write("A,B,C", js.Array({js.Boolean(true), js.Text("x"), js.Number(-1)})), 0);
  EXPECT_EQ(core.Sent(),
            "67 03 00 01 02 00 00 0B 00 01 01 02 01 00 08 00 78 00 01 02 02 00 05 00 00 00 00 00 00 00 F0 BF");
}

TEST_F(WriteTagTest, UnknownTagsAreSkippedWithTheirElements) {
  Knows("None", 65535);
  EXPECT_EQ(Write("A,None,C", js.Array({js.Boolean(true), js.Object(), js.Boolean(false)})), 0);
  EXPECT_EQ(core.Sent(), "67 02 00 01 02 00 00 0B 00 01 01 02 02 00 0B 00 00");
}

TEST_F(WriteTagTest, SeveralUnknownTagsWriteACountOfNothing) {
  Knows("None", 65535);
  EXPECT_EQ(Write("None,None", js.Array({})), 0);
  EXPECT_EQ(core.Sent(), "67 00 00");
}

TEST_F(WriteTagTest, ElementsGoToTheTagsInTheOrderOfTheEntries) {
  driver.tagIds.erase("D");
  core.Answers("4C 03 00 00 00");
  EXPECT_EQ(Write("D,A", js.Array({js.Boolean(true), js.Boolean(false)})), 0);
  EXPECT_EQ(core.Sent(), "4C 01 02 44 00 67 02 00 01 02 00 00 0B 00 01 01 02 03 00 0B 00 00");
}

TEST_F(WriteTagTest, SeveralTagsWithoutAnArrayAreRefused) {
  EXPECT_EQ(Write("A,B", js.Number(1)), -3);
  EXPECT_EQ(Write("A,B", js.Object()), -3);
  Knows("None", 65535);
  EXPECT_EQ(Write("None,None", js.Number(1)), -3);  // also when nothing would be written
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, MissingOrUnfitElementsAreRefused) {
  EXPECT_EQ(Write("A,B", js.Array({js.Number(1)})), -3);
  EXPECT_EQ(Write("A,B", js.Array({js.Number(1), js.Null()})), -3);
  EXPECT_EQ(Write("A,B", js.Array({js.Number(1), nullptr})), -3);
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, ElementsBeyondTheTagsAreIgnored) {
  EXPECT_EQ(Write("A,B", js.Array({js.Boolean(true), js.Boolean(true), js.Object()})), 0);
  EXPECT_EQ(core.SentBytes().size(), 3u + 2u * 7u);
}

TEST_F(WriteTagTest, AnElementWhoseReadingThrowsIsRefusedAndTheExceptionStays) {
  EXPECT_EQ(Write("A,B", js.Array({js.Number(1), js.ThrowingElement("getter")})), -3);
  EXPECT_EQ(js.TakeException(), "getter");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, ASingleUnknownTagIsRefused) {
  Knows("None", 65535);
  EXPECT_EQ(Write("None", js.Number(1)), -3);
  EXPECT_EQ(Write(" ", js.Number(1)), -3);
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, AnEmptyListWritesNothingAndIsASuccess) {
  EXPECT_EQ(Write("", js.Object()), 0);
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, OnlyTheBitOfValueEightAllowsWriting) {
  for (const uint32_t rights : {0u, 7u, 0xFFFFFFF7u}) {
    core.rights = rights;
    EXPECT_EQ(Write("A,Unresolved", js.Number(1)), -1) << rights;
    EXPECT_EQ(core.Sent(), "") << rights;
  }
  for (const uint32_t rights : {8u, 15u, 0xFFFFFFFFu}) {
    core.rights = rights;
    EXPECT_EQ(Write("A", js.Number(1)), 0) << rights;
  }
}

TEST_F(WriteTagTest, NamesThatCannotBeResolvedGiveMinusTwo) {
  core.HangsUp();
  EXPECT_EQ(Write("A,Unknown", js.Array({js.Number(1), js.Number(2)})), -2);
  EXPECT_EQ(core.Sent(), "4C 01 02 55 6E 6B 6E 6F 77 6E 00");  // and no write behind it
}

TEST_F(WriteTagTest, AServerThatIsGoneOrASessionThatEndedGivesMinusTwo) {
  core.Vanish();
  EXPECT_EQ(Write("A", js.Number(1)), -2);
  core.gate.Close();
  core.rights = 0;
  EXPECT_EQ(Write("A", js.Number(1)), -2);
}

TEST_F(WriteTagTest, NoAnswerIsReadAndTheTableStaysAsItIs) {
  Connected(0, "11 00 07");
  core.Answers("67 67 67");
  EXPECT_EQ(Write("A", js.Number(3)), 0);
  EXPECT_EQ(Shown(0), "7");
  EXPECT_EQ(core.Unread(), "67 67 67");
}

TEST_F(WriteTagTest, AWriteIsTheLastSend) {
  SystemHooks hooks;
  hooks.SetTime(4102444800);
  EXPECT_EQ(Write("A", js.Number(3)), 0);
  EXPECT_EQ(core.sock.LastSend(), 4102444800);
}

TEST_F(WriteTagTest, ARequestOf2048BytesIsSentAndOneOf2049IsNot) {
  // 15 texts of 127 bytes take 15 x 134 = 2010 bytes behind the head of 3; 35 more fill the request.
  driver.SetTagCount(20);
  std::string list;
  std::vector<napi_value> values(15, js.Text(std::string(127, 'x')));
  for (uint16_t i = 0; i < 16; ++i) {
    Knows("t" + std::to_string(i), i);
    list += "t" + std::to_string(i) + ",";
  }
  values.push_back(js.Text(std::string(28, 'y')));
  EXPECT_EQ(Write(list, js.Array(values)), 0);
  EXPECT_EQ(core.SentBytes().size(), 2048u);
  values.back() = js.Text(std::string(29, 'y'));
  EXPECT_EQ(Write(list, js.Array(values)), -3);
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, AnEntryWhoseHeadDoesNotFitIsRefused) {
  driver.SetTagCount(300);
  std::string list;
  for (uint16_t i = 0; i < 293; ++i) {
    Knows("t" + std::to_string(i), i);
    list += "t" + std::to_string(i) + ",";
    if (i == 291) {
      EXPECT_EQ(Write(list, js.Array(std::vector<napi_value>(300, js.Boolean(true)))), 0);
      EXPECT_EQ(core.SentBytes().size(), 3u + 292u * 7u);  // 2047 bytes
    }
  }
  EXPECT_EQ(Write(list, js.Array(std::vector<napi_value>(300, js.Boolean(true)))), -3);
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, ValueToBufAppendsAndAdvances) {
  uint8_t buffer[CDBDriver::kWriteRoom] = {};
  unsigned int length = 5;
  EXPECT_TRUE(driver.ValueToBuf(js.Env(), js.Boolean(true), buffer, length));
  EXPECT_EQ(length, 8u);
  EXPECT_TRUE(driver.ValueToBuf(js.Env(), js.Text("z"), buffer, length));
  EXPECT_EQ(length, 12u);
  EXPECT_EQ(ToHex(std::string(buffer + 5, buffer + 12)), "0B 00 01 08 00 7A 00");
  EXPECT_FALSE(driver.ValueToBuf(js.Env(), js.Null(), buffer, length));
  EXPECT_EQ(length, 12u);
  EXPECT_TRUE(std::all_of(buffer + 12, std::end(buffer), [](uint8_t byte) { return byte == 0; }));
}

TEST_F(WriteTagTest, ValueToBufStopsAtTheEndOfTheRoom) {
  uint8_t buffer[CDBDriver::kWriteRoom] = {};
  unsigned int length = CDBDriver::kWriteRoom - 9;
  EXPECT_FALSE(driver.ValueToBuf(js.Env(), js.Number(1), buffer, length));  // needs 10
  EXPECT_EQ(length, CDBDriver::kWriteRoom - 9);
  length = CDBDriver::kWriteRoom - 10;
  EXPECT_TRUE(driver.ValueToBuf(js.Env(), js.Number(1), buffer, length));
  EXPECT_EQ(length, CDBDriver::kWriteRoom);
  EXPECT_FALSE(driver.ValueToBuf(js.Env(), js.Boolean(true), buffer, length));
  length = CDBDriver::kWriteRoom + 1;
  EXPECT_FALSE(driver.ValueToBuf(js.Env(), js.Boolean(true), buffer, length));
}

TEST_F(WriteTagTest, AFailedNodeApiCallIsABadValueAndThrowsItsMessage) {
  const auto fails = [&](const char* call, const char* list, napi_value value) {
    js.Fail(call, "Went wrong");
    EXPECT_EQ(Write(list, value), -3) << call;
    EXPECT_EQ(js.TakeException(), "Went wrong") << call;
    js.Fail(call, nullptr);
    EXPECT_EQ(Write(list, value), -3) << call;
    EXPECT_EQ(js.TakeException(), "empty error message") << call;
  };
  for (const char* call : {"napi_typeof", "napi_get_value_double"}) fails(call, "A", js.Number(1));
  fails("napi_get_value_string_utf8", "A", js.Text("x"));
  fails("napi_get_value_bool", "A", js.Boolean(true));
  for (const char* call : {"napi_is_array", "napi_get_array_length", "napi_get_element"}) {
    fails(call, "A,B", js.Array({js.Number(1), js.Number(2)}));
  }
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(WriteTagTest, AnUnfitValueThrowsNothing) {
  EXPECT_EQ(Write("A", js.Null()), -3);
  EXPECT_EQ(Write("A,B", js.Number(1)), -3);
  EXPECT_EQ(Write("A,B", js.Array({js.Number(1)})), -3);
  EXPECT_FALSE(js.Pending());
}
