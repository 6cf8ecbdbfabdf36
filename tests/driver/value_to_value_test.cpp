// The JavaScript form of each type of value.
#include <cmath>
#include <limits>

#include "driver/DriverFixture.h"

class ValueToValueTest : public DriverTest {
 protected:
  // The JavaScript value of a typed encoding.
  std::string Converted(const std::string& typed) {
    XVariant value;
    value.FromBuffer(typed.data(), true);
    return FakeNapi::Show(driver.ValueToValue(value));
  }

  std::string Maker(const std::string& typed) {
    js.log.clear();
    Converted(typed);
    return js.log.empty() ? "" : js.log.front();
  }
};

TEST_F(ValueToValueTest, EveryTypeIsConvertedAsDocumented) {
  for (const ValueType& type : kSizedTypes) {
    EXPECT_EQ(Converted(Word(type.code) + FromHex(type.bytes)), type.shown) << type.code;
  }
  for (const ValueType& type : kBareTypes) EXPECT_EQ(Converted(Word(type.code)), type.shown) << type.code;
  EXPECT_FALSE(js.Pending());
}

TEST_F(ValueToValueTest, EveryOtherTypeCodeIsUndefined) {
  XVariant value;
  for (unsigned int code = 24; code <= 0xFFFF; ++code) {
    value.vt = static_cast<uint16_t>(code);
    ASSERT_EQ(driver.ValueToValue(value), nullptr) << code;
  }
  value.vt = VT_EMPTY;
}

TEST_F(ValueToValueTest, BothEndsOfEveryIntegerArriveUnharmed) {
  EXPECT_EQ(Converted(FromHex("02 00 00 80")), "-32768");
  EXPECT_EQ(Converted(FromHex("02 00 FF 7F")), "32767");
  EXPECT_EQ(Converted(FromHex("03 00 00 00 00 80")), "-2147483648");
  EXPECT_EQ(Converted(FromHex("03 00 FF FF FF 7F")), "2147483647");
  EXPECT_EQ(Converted(FromHex("16 00 FF FF FF 7F")), "2147483647");
  EXPECT_EQ(Converted(FromHex("10 00 80")), "128");
  EXPECT_EQ(Converted(FromHex("10 00 7F")), "127");
  EXPECT_EQ(Converted(FromHex("11 00 FF")), "255");
  EXPECT_EQ(Converted(FromHex("12 00 00 80")), "32768");
  EXPECT_EQ(Converted(FromHex("13 00 00 00 00 80")), "2147483648");
  EXPECT_EQ(Converted(FromHex("17 00 FF FF FF FF")), "4294967295");
}

TEST_F(ValueToValueTest, ASignedByteOfMinusOneIs255) { EXPECT_EQ(Converted(FromHex("10 00 FF")), "255"); }

TEST_F(ValueToValueTest, AFloatIsWidenedExactly) {
  XVariant value;
  value.vt = VT_R4;
  value.f32 = 0.1f;
  EXPECT_EQ(FakeNapi::Show(driver.ValueToValue(value)), "0.100000001490116");
  value.f32 = std::numeric_limits<float>::infinity();
  EXPECT_EQ(FakeNapi::Show(driver.ValueToValue(value)), "inf");
  value.vt = VT_R8;
  value.f64 = -std::numeric_limits<double>::infinity();
  EXPECT_EQ(FakeNapi::Show(driver.ValueToValue(value)), "-inf");
}

TEST_F(ValueToValueTest, ABooleanIsTrueForAnyByteButZero) {
  XVariant value;
  value.vt = VT_BOOL;
  for (const int byte : {0, 1, 2, 255}) {
    value.byte = static_cast<uint8_t>(byte);
    EXPECT_EQ(FakeNapi::Show(driver.ValueToValue(value)), byte != 0 ? "true" : "false");
  }
}

TEST_F(ValueToValueTest, TextIsItsBytesAsTheyStandAndNoTextIsEmpty) {
  EXPECT_EQ(Converted(FromHex("08 00 CB AE 00")), "'\xCB\xAE'");
  EXPECT_EQ(Converted(FromHex("08 00 00")), "''");
  XVariant none;
  none.vt = VT_BSTR;
  EXPECT_EQ(FakeNapi::Show(driver.ValueToValue(none)), "''");
}

TEST_F(ValueToValueTest, ValuesAreMadeInTheDriversEnvironment) {
  FakeNapi other;
  driver.env = other.Env();
  EXPECT_EQ(Converted(FromHex("11 00 01")), "1");
  EXPECT_EQ(other.log, std::vector<std::string>{"napi_create_uint32"});
  EXPECT_TRUE(js.log.empty());
}

TEST_F(ValueToValueTest, EachTypeIsMadeByTheCallThatFitsItsSign) {
  EXPECT_EQ(Maker(FromHex("02 00 01 00")), "napi_create_int32");
  EXPECT_EQ(Maker(FromHex("03 00 01 00 00 00")), "napi_create_int32");
  EXPECT_EQ(Maker(FromHex("16 00 01 00 00 00")), "napi_create_int32");
  EXPECT_EQ(Maker(FromHex("10 00 01")), "napi_create_uint32");
  EXPECT_EQ(Maker(FromHex("13 00 01 00 00 00")), "napi_create_uint32");
  EXPECT_EQ(Maker(FromHex("17 00 01 00 00 00")), "napi_create_uint32");
  EXPECT_EQ(Maker(FromHex("04 00 00 00 00 00")), "napi_create_double");
  EXPECT_EQ(Maker(FromHex("07 00 00 00 00 00 00 00 00 00")), "");
}

TEST_F(ValueToValueTest, AFailedCallThrowsItsMessageAndGivesNothing) {
  const std::pair<const char*, const char*> makers[] = {
      {"02 00 01 00", "napi_create_int32"},
      {"11 00 01", "napi_create_uint32"},
      {"05 00 00 00 00 00 00 00 00 00", "napi_create_double"},
      {"08 00 41 00", "napi_create_string_utf8"},
      {"0B 00 01", "napi_get_boolean"},
  };
  for (const auto& [typed, maker] : makers) {
    js.Fail(maker, "No memory");
    EXPECT_EQ(Converted(FromHex(typed)), "nothing") << maker;
    EXPECT_EQ(js.TakeException(), "No memory") << maker;
    js.Fail(maker, nullptr);
    EXPECT_EQ(Converted(FromHex(typed)), "nothing") << maker;
    EXPECT_EQ(js.TakeException(), "empty error message") << maker;
  }
}

TEST_F(ValueToValueTest, AFailedCallLeavesAPendingExceptionAlone) {
  js.Throw("earlier");
  js.Fail("napi_create_uint32", "later");
  EXPECT_EQ(Converted(FromHex("11 00 01")), "nothing");
  EXPECT_EQ(js.TakeException(), "earlier");
}
