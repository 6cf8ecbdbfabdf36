#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "VariantTools.h"
#include "value/XVariant.h"

namespace {

constexpr int16_t kMin16 = std::numeric_limits<int16_t>::min(), kMax16 = std::numeric_limits<int16_t>::max();
constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min(), kMax32 = std::numeric_limits<int32_t>::max();
constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min(), kMax64 = std::numeric_limits<int64_t>::max();
constexpr uint32_t kMaxU32 = std::numeric_limits<uint32_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kTwo63 = 9223372036854775808.0;
constexpr float kFloatMax = std::numeric_limits<float>::max();

// The text form, or "(none)" for a type without one.
std::string Str(const XVariant& v, int precision) {
  CString text("old");
  if (v.ToStringA(text, precision)) return text;
  return text.empty() ? "(none)" : "(none, not emptied)";
}

void SetZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

// Times of these tests are UTC unless a test says otherwise.
class XVariantConvertTest : public testing::Test {
 protected:
  XVariantConvertTest() { SetZone("UTC0"); }
};

struct TextRow {
  XVariant value;
  const char* text;        // precision -1
  const char* oneDecimal;  // precision 1
  const char* noDecimals;  // precision 0
};

TEST_F(XVariantConvertTest, IntegersPrintInFull) {
  const TextRow rows[] = {
      {Int16(kMin16), "-32768", "-32768.0", "-32768"},
      {Int16(kMax16), "32767", "32767.0", "32767"},
      {Int16(0), "0", "0.0", "0"},
      {Int16(-1), "-1", "-1.0", "-1"},
      {Uint16(0), "0", "0.0", "0"},
      {Uint16(65535), "65535", "65535.0", "65535"},
      {Int32(kMin32), "-2147483648", "-2147483648.0", "-2147483648"},
      {Int32(kMax32), "2147483647", "2147483647.0", "2147483647"},
      {Int32(kMin32, VT_INT), "-2147483648", "-2147483648.0", "-2147483648"},
      {Int32(-1, VT_INT), "-1", "-1.0", "-1"},
      {Int32(kMax32, VT_INT), "2147483647", "2147483647.0", "2147483647"},
      {Int32(0), "0", "0.0", "0"},
      {Int32(0, VT_INT), "0", "0.0", "0"},
      {Uint32(kMaxU32), "4294967295", "4294967295.0", "4294967295"},
      {Uint32(kMaxU32, VT_UINT), "4294967295", "4294967295.0", "4294967295"},
      {Uint32(0), "0", "0.0", "0"},
      {Uint32(0, VT_UINT), "0", "0.0", "0"},
      {Uint32(0x80000000u, VT_UINT), "2147483648", "2147483648.0", "2147483648"},
      {Byte(VT_I1, 0), "0", "0.0", "0"},
      {Byte(VT_I1, 0x7f), "127", "127.0", "127"},
      {Byte(VT_I1, 0x80), "128", "128.0", "128"},  // unsigned, though the type is signed
      {Byte(VT_I1, 0xff), "255", "255.0", "255"},
      {Byte(VT_UI1, 0), "0", "0.0", "0"},
      {Byte(VT_UI1, 0xff), "255", "255.0", "255"},
  };
  for (const TextRow& row : rows) {
    for (int precision : {kMin32, -1, 11, kMax32}) EXPECT_EQ(row.text, Str(row.value, precision));
    EXPECT_EQ(row.oneDecimal, Str(row.value, 1));
    EXPECT_EQ(row.noDecimals, Str(row.value, 0));
    for (int precision = 1; precision <= 10; ++precision) {
      const std::string zeros(static_cast<size_t>(precision), '0');
      EXPECT_EQ(row.text + ("." + zeros), Str(row.value, precision)) << row.value.vt;
    }
  }
}

TEST_F(XVariantConvertTest, AnIntegerGetsAsManyZeroDecimalsAsAsked) {
  EXPECT_EQ("7.000", Str(Int16(7), 3));
  EXPECT_EQ("42.00", Str(Int32(42), 2));
}

TEST_F(XVariantConvertTest, A64BitIntegerPrintsItsLow32BitsWithoutDecimals) {
  for (int precision = -1; precision <= 11; ++precision) {
    EXPECT_EQ("5", Str(Int64(5), precision));
    EXPECT_EQ("-1", Str(Int64(0xffffffff), precision));
    EXPECT_EQ("-2147483648", Str(Int64(0x180000000), precision));
    EXPECT_EQ("0", Str(Int64(kMin64), precision));
    EXPECT_EQ("-1", Str(Int64(kMax64), precision));
  }
}

TEST_F(XVariantConvertTest, ABooleanPrintsOneOrZeroWithoutDecimals) {
  for (int precision = -1; precision <= 11; ++precision) {
    EXPECT_EQ("0", Str(Byte(VT_BOOL, 0), precision));
    EXPECT_EQ("1", Str(Byte(VT_BOOL, 1), precision));
    EXPECT_EQ("1", Str(Byte(VT_BOOL, 0x80), precision));
  }
}

TEST_F(XVariantConvertTest, AStringPrintsItself) {
  for (int precision = -1; precision <= 11; ++precision) {
    EXPECT_EQ("a b", Str(Text("a b"), precision));
    EXPECT_EQ("", Str(Text(""), precision));
    EXPECT_EQ("", Str(Bare(VT_BSTR), precision));
  }
}

TEST_F(XVariantConvertTest, EveryOtherTypeHasNoText) {
  for (uint16_t type : kValueless) {
    for (int precision = -1; precision <= 11; ++precision) EXPECT_EQ("(none)", Str(Bare(type, -1), precision)) << type;
  }
}

TEST_F(XVariantConvertTest, FloatsPrintByPrecisionFromMinusOneToEleven) {
  const char* expected[] = {"2.5",      "3",         "2.5",        "2.50",        "2.500",        "2.5000", "2.50000",
                            "2.500000", "2.5000000", "2.50000000", "2.500000000", "2.5000000000", "2.5"};
  for (int precision = -1; precision <= 11; ++precision) {
    EXPECT_EQ(expected[precision + 1], Str(Double(2.5), precision)) << precision;
    EXPECT_EQ(expected[precision + 1], Str(Float(2.5f), precision)) << precision;
    const std::string negative = std::string("-").append(expected[precision + 1]);
    EXPECT_EQ(negative, Str(Double(-2.5), precision)) << precision;
    EXPECT_EQ(negative, Str(Float(-2.5f), precision)) << precision;
  }
}

TEST_F(XVariantConvertTest, EveryPrecisionOutOfRangePrintsTheShortForm) {
  for (int precision : {kMin32, -2, -1, 11, 12, kMax32}) {
    EXPECT_EQ("1e+10", Str(Double(1e10), precision));
    EXPECT_EQ("0.1", Str(Float(0.1f), precision));
    EXPECT_EQ("1.23457", Str(Double(1.23456789), precision));
    EXPECT_EQ("1e-05", Str(Double(0.00001), precision));
  }
}

TEST_F(XVariantConvertTest, FixedNotationHoldsTheLargestNumbersWhole) {
  const std::string largest = Str(Double(-std::numeric_limits<double>::max()), 10);
  EXPECT_EQ(321u, largest.size());
  EXPECT_EQ("-17976931348623157", largest.substr(0, 18));
  EXPECT_EQ("0000000000", largest.substr(311));
  EXPECT_EQ("340282346638528859811704183484516925440.0", Str(Float(kFloatMax), 1));
  EXPECT_EQ("0.1000000015", Str(Float(0.1f), 10)) << "the float's own value";
  EXPECT_EQ("0.1000000000", Str(Double(0.1), 10));
}

TEST_F(XVariantConvertTest, InfinitiesAndNanPrintAsTheCLibraryHasThem) {
  for (int precision : {-1, 1, 10, 11}) {
    EXPECT_EQ("inf", Str(Double(kInfinity), precision));
    EXPECT_EQ("-inf", Str(Float(-std::numeric_limits<float>::infinity()), precision));
    EXPECT_EQ("nan", Str(Double(std::copysign(kNan, 1.0)), precision));
    EXPECT_EQ("-nan", Str(Double(std::copysign(kNan, -1.0)), precision));
  }
}

TEST_F(XVariantConvertTest, ZerosAndTheSmallestNumbersPrintAsTheCLibraryHasThem) {
  EXPECT_EQ("0", Str(Double(0.0), -1));
  EXPECT_EQ("-0", Str(Double(-0.0), -1));
  EXPECT_EQ("-0", Str(Float(-0.0f), 11));
  EXPECT_EQ("-0.00", Str(Double(-0.0), 2));
  EXPECT_EQ("4.94066e-324", Str(Double(std::numeric_limits<double>::denorm_min()), -1));
  EXPECT_EQ("1.4013e-45", Str(Float(std::numeric_limits<float>::denorm_min()), -1));
  EXPECT_EQ("0.0000000000", Str(Float(std::numeric_limits<float>::denorm_min()), 10));
  EXPECT_EQ("3.40282e+38", Str(Float(kFloatMax), -1));
  EXPECT_EQ("-1.79769e+308", Str(Double(-std::numeric_limits<double>::max()), 11));
}

TEST_F(XVariantConvertTest, PrecisionZeroRoundsHalfAwayFromZero) {
  const std::pair<double, const char*> rows[] = {
      {2.5, "3"},
      {-2.5, "-3"},
      {3.5, "4"},
      {2.4, "2"},
      {-2.4, "-2"},
      {0.5, "1"},
      {-0.5, "-1"},
      {0.0, "0"},
      {-0.0, "0"},
      {0.25, "0"},
      {-0.25, "0"},
      {2147483647.0, "2147483647"},
      {-2147483648.0, "-2147483648"},
  };
  for (const auto& [value, text] : rows) {
    EXPECT_EQ(text, Str(Double(value), 0)) << value;
  }
}

TEST_F(XVariantConvertTest, PrecisionZeroCutsWhatIsOutOfRangeTo32Bits) {
  const std::pair<double, const char*> rows[] = {
      {2147483647.5, "-2147483648"},
      {4294967296.0, "0"},
      {4294967301.0, "5"},
      {-4294967301.0, "-5"},
      {1e18, "-1486618624"},
      {kTwo63, "0"},
      {-kTwo63, "0"},
      {1e300, "0"},
      {kInfinity, "0"},
      {-kInfinity, "0"},
      {kNan, "0"},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(text, Str(Double(value), 0)) << value;
}

TEST_F(XVariantConvertTest, AFloatIsRoundedInSinglePrecision) {
  EXPECT_EQ("1", Str(Float(0.49999997f), 0)) << "0.5 is added in single precision: gives 1.0";
  EXPECT_EQ("-1", Str(Float(-0.49999997f), 0));
  EXPECT_EQ("0", Str(Double(0.49999997), 0));
  EXPECT_EQ("8388610", Str(Float(8388609.0f), 0)) << "8388609.5 is no float";
  EXPECT_EQ("8388609", Str(Double(8388609.0), 0));
  EXPECT_EQ("-2147483648", Str(Float(2147483648.0f), 0));
  EXPECT_EQ("0", Str(Float(std::numeric_limits<float>::quiet_NaN()), 0));
  EXPECT_EQ("0", Str(Float(kFloatMax), 0));
}

struct NumberRow {
  XVariant value;
  float asFloat;
  double asDouble;
  int32_t asInt;
  int64_t asInt64;
};

void ExpectNumbers(const NumberRow& row) {
  SCOPED_TRACE(testing::Message() << "type " << row.value.vt << ", bytes " << row.value.i64);
  EXPECT_EQ(row.asFloat, row.value.ToFloat());
  EXPECT_EQ(row.asDouble, row.value.ToDouble());
  EXPECT_EQ(row.asDouble, row.value.ToDate());
  EXPECT_EQ(row.asInt, row.value.ToInt());
  EXPECT_EQ(row.asInt64, row.value.ToInt64());
  EXPECT_EQ(row.asInt != 0, row.value.ToBool());
}

TEST_F(XVariantConvertTest, IntegersConvertAtBothEndsOfTheirTypes) {
  const NumberRow rows[] = {
      {Int16(kMin16), -32768.0f, -32768.0, -32768, -32768},
      {Int16(kMax16), 32767.0f, 32767.0, 32767, 32767},
      {Int16(0), 0.0f, 0.0, 0, 0},
      {Uint16(65535), 65535.0f, 65535.0, 65535, 65535},
      {Uint16(0), 0.0f, 0.0, 0, 0},
      {Int32(kMin32), -2147483648.0f, -2147483648.0, kMin32, kMin32},
      {Int32(kMax32), 2147483648.0f, 2147483647.0, kMax32, kMax32},
      {Int32(kMin32, VT_INT), -2147483648.0f, -2147483648.0, kMin32, kMin32},
      {Int32(-1, VT_INT), -1.0f, -1.0, -1, -1},
      {Int32(kMax32, VT_INT), 2147483648.0f, 2147483647.0, kMax32, kMax32},
      {Uint32(0), 0.0f, 0.0, 0, 0},
      {Uint32(0, VT_UINT), 0.0f, 0.0, 0, 0},
      {Uint32(kMaxU32, VT_UINT), 4294967296.0f, 4294967295.0, -1, 4294967295},
      {Uint32(kMaxU32), 4294967296.0f, 4294967295.0, -1, 4294967295},
      {Uint32(0x80000000u, VT_UINT), 2147483648.0f, 2147483648.0, kMin32, 2147483648},
      {Uint32(1, VT_UINT), 1.0f, 1.0, 1, 1},
      {Int64(kMin64), -9223372036854775808.0f, -kTwo63, 0, kMin64},
      {Int64(kMax64), 9223372036854775808.0f, kTwo63, -1, kMax64},
      {Int64(0x100000000), 4294967296.0f, 4294967296.0, 0, 0x100000000},
      {Int64(0x180000000), 6442450944.0f, 6442450944.0, kMin32, 0x180000000},
      {Byte(VT_BOOL, 0), 0.0f, 0.0, 0, 0},
      {Byte(VT_BOOL, 1), 1.0f, 1.0, 1, 1},
      {Byte(VT_BOOL, 5), 1.0f, 1.0, 5, 5},
      {Byte(VT_BOOL, 0xff), 1.0f, 1.0, 255, 255},
      {Byte(VT_I1, 0), 0.0f, 0.0, 0, 0},
      {Byte(VT_I1, 0x7f), 127.0f, 127.0, 127, 127},
      {Byte(VT_I1, 0x80), 128.0f, 128.0, 128, 128},
      {Byte(VT_I1, 0xff), 255.0f, 255.0, 255, 255},
      {Byte(VT_UI1, 0xff), 255.0f, 255.0, 255, 255},
      {Byte(VT_UI1, 0), 0.0f, 0.0, 0, 0},
  };
  for (const NumberRow& row : rows) ExpectNumbers(row);
}

TEST_F(XVariantConvertTest, A64BitIntegerBecomesAFloatByOneRounding) {
  // By way of double this would round to 2^62 first and then stay there.
  const int64_t value = (int64_t{1} << 62) + (int64_t{1} << 38) + 1;
  EXPECT_EQ(4611686568183201792.0f, Int64(value).ToFloat());
}

TEST_F(XVariantConvertTest, FloatsTruncateTowardZero) {
  const NumberRow rows[] = {
      {Float(2.75f), 2.75f, 2.75, 2, 2},
      {Float(-2.75f), -2.75f, -2.75, -2, -2},
      {Float(0.5f), 0.5f, 0.5, 0, 0},
      {Double(2.75), 2.75f, 2.75, 2, 2},
      {Double(-2.75), -2.75f, -2.75, -2, -2},
      {Double(0.5), 0.5f, 0.5, 0, 0},
      {Double(-0.999), -0.999f, -0.999, 0, 0},
      {Date(45325.75), 45325.75f, 45325.75, 45325, 45325},
      {Double(2147483647.9), 2147483648.0f, 2147483647.9, kMax32, kMax32},
      {Double(-2147483648.9), -2147483648.0f, -2147483648.9, kMin32, kMin32},
      {Double(1e300), std::numeric_limits<float>::infinity(), 1e300, 0, 0},
      {Double(-1e300), -std::numeric_limits<float>::infinity(), -1e300, 0, 0},
  };
  for (const NumberRow& row : rows) ExpectNumbers(row);
}

TEST_F(XVariantConvertTest, FloatsConvertAtBothEndsOfTheirTypes) {
  constexpr double kDoubleMax = std::numeric_limits<double>::max();
  constexpr float kFloatInfinity = std::numeric_limits<float>::infinity();
  const NumberRow rows[] = {
      {Float(kFloatMax), kFloatMax, static_cast<double>(kFloatMax), 0, 0},
      {Float(-kFloatMax), -kFloatMax, -static_cast<double>(kFloatMax), 0, 0},
      {Float(kFloatInfinity), kFloatInfinity, kInfinity, 0, 0},
      {Float(-kFloatInfinity), -kFloatInfinity, -kInfinity, 0, 0},
      {Float(0.1f), 0.1f, static_cast<double>(0.1f), 0, 0},
      {Float(-2147483904.0f), -2147483904.0f, -2147483904.0, 2147483392, -2147483904},
      {Float(-9223372036854775808.0f), -9223372036854775808.0f, -kTwo63, 0, kMin64},
      {Float(-9223373136366403584.0f), -9223373136366403584.0f, -9223373136366403584.0, 0, 0},
      {Double(kDoubleMax), kFloatInfinity, kDoubleMax, 0, 0},
      {Double(-kDoubleMax), -kFloatInfinity, -kDoubleMax, 0, 0},
      {Double(kInfinity), kFloatInfinity, kInfinity, 0, 0},
      {Double(-kInfinity), -kFloatInfinity, -kInfinity, 0, 0},
      {Date(kDoubleMax), kFloatInfinity, kDoubleMax, 0, 0},
      {Date(kInfinity), kFloatInfinity, kInfinity, 0, 0},
      {Date(-kInfinity), -kFloatInfinity, -kInfinity, 0, 0},
      {Date(-0.75), -0.75f, -0.75, 0, 0},
      {Date(-109570.75), -109570.75f, -109570.75, -109570, -109570},
      {Double(4294967296.0), 4294967296.0f, 4294967296.0, 0, 4294967296},
  };
  for (const NumberRow& row : rows) ExpectNumbers(row);
  for (const XVariant& v : {Float(std::nanf("")), Double(kNan), Date(kNan)}) {
    EXPECT_TRUE(std::isnan(v.ToFloat()) && std::isnan(v.ToDouble()) && std::isnan(v.ToDate())) << v.vt;
    EXPECT_EQ(0, v.ToInt()) << v.vt;
    EXPECT_EQ(0, v.ToInt64()) << v.vt;
    EXPECT_FALSE(v.ToBool()) << v.vt;
  }
}

TEST_F(XVariantConvertTest, FloatsOutOfRangeAreCutFrom64BitsAndNothingFrom64BitsOn) {
  const struct {
    double value;
    int32_t asInt;
    int64_t asInt64;
  } rows[] = {
      {2147483648.0, kMin32, 2147483648},
      {-2147483649.0, kMax32, -2147483649},
      {4294967295.0, -1, 4294967295},
      {4294967296.0, 0, 4294967296},
      {4294967301.5, 5, 4294967301},
      {9223372036854774784.0, -1024, 9223372036854774784},  // the largest double below 2^63
      {-kTwo63, 0, kMin64},
      {kTwo63, 0, 0},
      {-9223372036854777856.0, 0, 0},  // the largest double below -2^63
      {1e300, 0, 0},
      {kInfinity, 0, 0},
      {-kInfinity, 0, 0},
      {kNan, 0, 0},
      {-kNan, 0, 0},
      {std::numeric_limits<double>::denorm_min(), 0, 0},
  };
  for (const auto& row : rows) {
    for (uint16_t type : {VT_R8, VT_DATE}) {
      EXPECT_EQ(row.asInt, Double(row.value, type).ToInt()) << row.value;
      EXPECT_EQ(row.asInt64, Double(row.value, type).ToInt64()) << row.value;
    }
  }
  EXPECT_EQ(kMin32, Float(2147483648.0f).ToInt());
  EXPECT_EQ(2147483648, Float(2147483648.0f).ToInt64());
  EXPECT_EQ(kMin64, Float(-9223372036854775808.0f).ToInt64());
  EXPECT_EQ(0, Float(9223372036854775808.0f).ToInt64());
  EXPECT_EQ(0, Float(std::numeric_limits<float>::infinity()).ToInt64());
  EXPECT_EQ(0, Float(std::numeric_limits<float>::quiet_NaN()).ToInt());
}

TEST_F(XVariantConvertTest, NanAndInfinityStayThemselvesAsFloats) {
  EXPECT_TRUE(std::isnan(Double(kNan).ToFloat()));
  EXPECT_TRUE(std::isnan(Double(kNan).ToDouble()));
  EXPECT_TRUE(std::isnan(Float(std::nanf("")).ToDouble()));
  EXPECT_EQ(kInfinity, Double(kInfinity).ToDouble());
  EXPECT_EQ(-kInfinity, Float(-std::numeric_limits<float>::infinity()).ToDouble());
  EXPECT_EQ(kFloatMax, Double(kFloatMax).ToFloat());
}

TEST_F(XVariantConvertTest, TypesWithoutAValueConvertToZero) {
  for (uint16_t type : kValueless) {
    ExpectNumbers({Bare(type), 0.0f, 0.0, 0, 0});
    ExpectNumbers({Bare(type, 0x1122334455667788), 0.0f, 0.0, 0, 0});
  }
}

struct TextNumberRow {
  const char* text;
  int32_t asInt;
  int64_t asInt64;
};

TEST_F(XVariantConvertTest, TextIsReadAsAnInteger) {
  const TextNumberRow rows[] = {
      {"12", 12, 12},
      {"12abc", 12, 12},
      {"abc", 0, 0},
      {"", 0, 0},
      {"-", 0, 0},
      {"0.5", 0, 0},
      {"1e3", 1, 1},
      {" \t\n7", 7, 7},
      {"+7", 7, 7},
      {"0x10", 0, 0},
      {"010", 10, 10},
      {"-5", -5, -5},
      {"2147483647", kMax32, 2147483647},
      {"2147483648", kMin32, 2147483648},
      {"-2147483648", kMin32, kMin32},
      {"4294967295", -1, 4294967295},
      {"4294967296", 0, 4294967296},
      {"4294967301", 5, 4294967301},
      {"9223372036854775807", -1, kMax64},
      {"9223372036854775808", 0, kMin64},
      {"18446744073709551615", -1, -1},
      {"18446744073709551616", -1, -1},  // beyond 64 bits: all ones
      {"-18446744073709551616", -1, -1},
      {"99999999999999999999999", -1, -1},
  };
  for (const TextNumberRow& row : rows) {
    EXPECT_EQ(row.asInt, Text(row.text).ToInt()) << row.text;
    EXPECT_EQ(row.asInt64, Text(row.text).ToInt64()) << row.text;
    EXPECT_EQ(row.asInt != 0, Text(row.text).ToBool()) << row.text;
  }
}

TEST_F(XVariantConvertTest, AColourTextExchangesRedAndBlue) {
  const TextNumberRow rows[] = {
      {"#FF0000", 255, 255},
      {"#112233", 0x332211, 0x332211},
      {"#0000ff", 0xff0000, 0xff0000},
      {"#AA112233", 0x332211, 0x332211},           // the highest byte is dropped
      {"#99AA112233", 0x332211, 0x332211},         // and what is above 32 bits
      {"#11223344556677889", 0xffffff, 0xffffff},  // beyond 64 bits: all ones
      {"#0x112233", 0x332211, 0x332211},
      {"#-1", 0xffffff, 0xffffff},
      {"#1", 0x10000, 0x10000},
      {"#1G", 0x10000, 0x10000},
      {"# 112233", 0x332211, 0x332211},
      {"#112233 and more", 0x332211, 0x332211},
      {"#", 0, 0},
      {"#xyz", 0, 0},
      {"##11", 0, 0},
      {" #FF0000", 0, 0},  // "#" counts as the first character only
  };
  for (const TextNumberRow& row : rows) {
    EXPECT_EQ(row.asInt, Text(row.text).ToInt()) << row.text;
    EXPECT_EQ(row.asInt64, Text(row.text).ToInt64()) << row.text;
  }
}

TEST_F(XVariantConvertTest, TextIsReadAsAFloat) {
  const std::pair<const char*, double> rows[] = {
      {"1.5", 1.5}, {"-1.5e3xyz", -1500.0}, {"abc", 0.0},     {"", 0.0},          {".5", 0.5},
      {"  2", 2.0}, {"0x10", 16.0},         {"#FF0000", 0.0}, {"inf", kInfinity}, {"-infinity", -kInfinity},
      {"1,5", 1.0}, {"1e999", kInfinity},
  };
  for (const auto& [text, value] : rows) {
    EXPECT_EQ(value, Text(text).ToDouble()) << text;
    EXPECT_EQ(static_cast<float>(value), Text(text).ToFloat()) << text;
  }
  EXPECT_TRUE(std::isnan(Text("nan").ToDouble()));
  EXPECT_EQ(std::numeric_limits<float>::infinity(), Text("1e300").ToFloat());
  EXPECT_EQ(0.1f, Text("0.1").ToFloat());
}

TEST_F(XVariantConvertTest, AStringVariantWithoutAStringConvertsToZero) {
  const XVariant v = Bare(VT_BSTR);
  ExpectNumbers({v, 0.0f, 0.0, 0, 0});
}

TEST_F(XVariantConvertTest, ToBoolTruncatesFirst) {
  EXPECT_FALSE(Text("0.5").ToBool());
  EXPECT_FALSE(Double(0.5).ToBool());
  EXPECT_FALSE(Double(-0.9).ToBool());
  EXPECT_TRUE(Double(-1.0).ToBool());
  EXPECT_TRUE(Byte(VT_BOOL, 2).ToBool());
  EXPECT_FALSE(Text("true").ToBool());
}

// Dates. 25569 is 1970-01-01; 45325 is 2024-02-03; 36526 is 2000-01-01.

constexpr const char* kZones[] = {"UTC0", "CST-8", "EST5", "IST-5:30", "<-12>12", "<+12>-12"};

TEST_F(XVariantConvertTest, ADatePrintsTheSameInAnyZoneWithoutDaylightSaving) {
  const std::pair<double, const char*> rows[] = {
      {25569.5, "1970-01-01 12:00:00"},
      {45325.0, "2024-02-03 00:00:00"},
      {45351.0 + 86399.0 / 86400.0, "2024-02-29 23:59:59"},
      {45325.0 + 0.4 / 86400.0, "2024-02-03 00:00:00"},
      {45325.0 + 0.6 / 86400.0, "2024-02-03 00:00:01"},
      {50406.0, "2038-01-01 00:00:00"},
      {65746.0, "2080-01-01 00:00:00"},
      {2958465.0, "9999-12-31 00:00:00"},
  };
  for (const char* zone : kZones) {
    SetZone(zone);
    for (const auto& [days, text] : rows) {
      for (int precision = -1; precision <= 11; ++precision) {
        EXPECT_EQ(text, Str(Date(days), precision)) << zone << " " << days;
      }
    }
  }
}

TEST_F(XVariantConvertTest, TheFirstDayOf1970BeginsAtItsDayCountInUtcAndWestOfIt) {
  for (const char* zone : {"UTC0", "EST5", "<-12>12"}) {
    SetZone(zone);
    EXPECT_EQ("1970-01-01 00:00:00", Str(Date(25569.0), -1)) << zone;
  }
}

TEST_F(XVariantConvertTest, ADateBefore1970PrintsOneSecondLate) {
  // The half second is added and then truncated toward zero, which is upwards there.
  EXPECT_EQ("1969-12-31 12:00:01", Str(Date(25568.5), -1));
  EXPECT_EQ("1899-12-30 00:00:01", Str(Date(0.0), -1));
  EXPECT_EQ("1600-01-01 06:00:01", Str(Date(-109571.0 + 0.25), -1));
  SetZone("CST-8");  // 1970-01-01 07:00 there is still 1969 in UTC
  EXPECT_EQ("1970-01-01 07:00:01", Str(Date(25569.0 + 7.0 / 24.0), -1));
  EXPECT_EQ("1970-01-01 09:00:00", Str(Date(25569.0 + 9.0 / 24.0), -1));
  SetZone("<+14>-14");  // and here the whole morning and noon
  EXPECT_EQ("1970-01-01 12:00:01", Str(Date(25569.5), -1));
  SetZone("EST5");
  EXPECT_EQ("1969-12-31 20:00:00", Str(Date(25568.0 + 20.0 / 24.0), -1));
  EXPECT_EQ("1969-12-31 18:00:01", Str(Date(25568.0 + 18.0 / 24.0), -1));
}

TEST_F(XVariantConvertTest, DaylightSavingMovesTheTextOfADate) {
  SetZone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_EQ("2024-01-15 12:00:00", Str(Date(45306.5), -1));
  EXPECT_EQ("2024-07-15 13:00:00", Str(Date(45488.5), -1));
  SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ("2024-01-15 12:00:00", Str(Date(45306.5), -1));
  EXPECT_EQ("2024-07-15 13:00:00", Str(Date(45488.5), -1));
  SetZone("AEST-10AEDT,M10.1.0,M4.1.0/3");  // summer is in January there
  EXPECT_EQ("2024-01-15 13:00:00", Str(Date(45306.5), -1));
  EXPECT_EQ("2024-07-15 12:00:00", Str(Date(45488.5), -1));
}

TEST_F(XVariantConvertTest, ADateFollowsAChangeOfTheZoneInTheEnvironment) {
  setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);  // no tzset here: the conversion looks
  EXPECT_EQ("2024-07-15 13:00:00", Str(Date(45488.5), -1));
  setenv("TZ", "CST-8", 1);
  EXPECT_EQ("2024-07-15 12:00:00", Str(Date(45488.5), -1));
}

TEST_F(XVariantConvertTest, ADateThatHasNoCalendarYearPrintsAsEmptyText) {
  EXPECT_EQ("", Str(Date(1e12), -1));
  EXPECT_EQ("", Str(Date(-1e12), -1));
  // Both ends of the years that a calendar time can hold: 1900 more than an int.
  EXPECT_EQ("2147485547-12-31 00:00:00", Str(Date(784352296305.0), -1));
  EXPECT_EQ("", Str(Date(784352296306.0), -1));
  EXPECT_EQ("-2147481748-01-01 00:00:00", Str(Date(-784352296303.0), -1));
  EXPECT_EQ("", Str(Date(-784352296304.0), -1));
}

TEST_F(XVariantConvertTest, ADateOfNoNumberOrBeyond64BitsPrintsAsSecondZero) {
  for (double days : {kNan, kInfinity, -kInfinity, 1e20, -1e20}) EXPECT_EQ("1970-01-01 00:00:00", Str(Date(days), -1));
}

TEST_F(XVariantConvertTest, TextIsReadAsADateInAnyZone) {
  constexpr double kSecond = 1.0 / 86400.0;
  const std::pair<const char*, double> rows[] = {
      {"2024-02-03", 45325.0},
      {"2024-02-03 12:00:00", 45325.5},
      {"2024-02-03 18", 45325.75},
      {"2024-02-03 06:30", 45325.0 + 6.5 / 24.0},
      {"2024-02-03 00:00:01", 45325.0 + kSecond},
      {"2024-02-03 23:59:59xyz", 45325.0 + 86399.0 * kSecond},
      {"2024-02", 45323.0},
      {"2024", 45292.0},
      {"2000", 36526.0},
      {"2024-", 45292.0},
      {"2024-02-", 45323.0},
      {"2024-02-xx", 45323.0},
      {"2024-02-03 12:", 45325.5},
      {"2024-02-03 12:xx", 45325.5},
      {"2024-02-03 12:00:", 45325.5},
      {"2024-02-03 :30", 45325.0},
      {"2024-02-03 12::30", 45325.5},  // nothing is read behind the first field that is missing
      {"2024-- 5", 45292.0},
      {"2024-02-03 1:2:3", 45325.0 + 3723.0 * kSecond},
      {" 2024-02-03", 45325.0},
      {"+2024- 2- 3\t 12: 0: 0", 45325.5},
      {"2024-2-3-6", 45324.75},  // no blank is needed; the minus is the hour's own: -6
      {"2024 -02-03", 45292.0},  // but none may precede a separator
      {"2024/02/03", 45292.0},
      {"2024--2", 45292.0 - 31.0 - 30.0 - 31.0},  // month -2: October of the year before
      {"2024-02-03T12:00", 45325.0},
      {"2024-02-03 12.5", 45325.5},
      {"2024-13-32", 45689.0},  // 2025-02-01: fields carry over
      {"1970-01-01", 25569.0},
      {"1969-12-31 12:00:00", 25568.5},
      {"1899-12-30", 0.0},
      {"1600-01-01", -109571.0},
      {"2040-01-01", 51136.0},
      {"2110-01-01", 76703.0},
      {"abc", 0.0},
      {"", 0.0},
      {"-", 0.0},
      {"- 5", 0.0},
      {"#112233", 0.0},
  };
  for (const char* zone : kZones) {
    SetZone(zone);
    for (const auto& [text, days] : rows) EXPECT_DOUBLE_EQ(days, Text(text).ToDate()) << zone << " " << text;
  }
}

TEST_F(XVariantConvertTest, ATextIsReadAsTheSameDateAllTheYearWhereverDaylightSavingIs) {
  for (const char* zone : {"EST5EDT,M3.2.0,M11.1.0", "CET-1CEST,M3.5.0,M10.5.0/3", "AEST-10AEDT,M10.1.0,M4.1.0/3"}) {
    SetZone(zone);
    for (int month = 1; month <= 12; ++month) {
      const std::string day = "2024-" + std::to_string(month) + "-15";
      EXPECT_DOUBLE_EQ(Text(day).ToDate() + 0.5, Text(day + " 12").ToDate()) << zone << day;
      EXPECT_EQ(0.0, std::fmod(Text(day).ToDate(), 1.0)) << zone << day;
    }
  }
}

TEST_F(XVariantConvertTest, DaylightSavingIsNotAppliedToATextThatIsReadAsADate) {
  SetZone("EST5EDT,M3.2.0,M11.1.0");
  EXPECT_DOUBLE_EQ(45306.5, Text("2024-01-15 12:00:00").ToDate());
  EXPECT_DOUBLE_EQ(45488.5, Text("2024-07-15 12:00:00").ToDate());
  EXPECT_DOUBLE_EQ(45361.0 + 2.5 / 24.0, Text("2024-03-10 02:30").ToDate()) << "the hour that the clocks leave out";
}

TEST_F(XVariantConvertTest, ATextThatIsReadAsADateFollowsAChangeOfTheZoneInTheEnvironment) {
  for (const char* zone : {"CST-8", "EST5", "UTC0"}) {
    setenv("TZ", zone, 1);  // no tzset here: the conversion looks
    EXPECT_DOUBLE_EQ(45325.5, Text("2024-02-03 12:00:00").ToDate()) << zone;
  }
}

TEST_F(XVariantConvertTest, NumbersBeyondIntInADateCountWithTheirLow32Bits) {
  EXPECT_DOUBLE_EQ(45325.0, Text("4294969320-02-03").ToDate());  // 2^32 + 2024
  EXPECT_DOUBLE_EQ(45325.0, Text("2024-4294967298-03").ToDate());
  EXPECT_DOUBLE_EQ(Text("-1-02-03").ToDate(), Text("99999999999999999999-02-03").ToDate());
  EXPECT_DOUBLE_EQ(Text("0-02-03").ToDate(), Text("-99999999999999999999-02-03").ToDate());
}

TEST_F(XVariantConvertTest, ADateThatHasNoTimeCountsAsTheSecondBeforeTheEpoch) {
  SetZone("CST-8");
  const double days = Text("2147483647-2147483647-01").ToDate();
  EXPECT_DOUBLE_EQ(25569.0 + (8 * 3600 - 1) / 86400.0, days);
}

TEST_F(XVariantConvertTest, ExtremeDateFieldsAreDefined) {
  for (const char* text : {"-2147483648--2147483648--2147483648 -2147483648:-2147483648:-2147483648",
                           "2147483647-2147483647-2147483647 2147483647:2147483647:2147483647"}) {
    EXPECT_TRUE(std::isfinite(Text(text).ToDate())) << text;
  }
}

TEST_F(XVariantConvertTest, ToDateOfANumberIsTheNumber) {
  EXPECT_EQ(45325.25, Double(45325.25).ToDate());
  EXPECT_EQ(45325.25, Date(45325.25).ToDate());
  EXPECT_EQ(45325.0, Int32(45325).ToDate());
}

TEST_F(XVariantConvertTest, TheTextConstructorGivesAStringsTextAndElseTheShortForm) {
  EXPECT_EQ("a b", CString(Text("a b")));
  EXPECT_EQ("", CString(Bare(VT_BSTR)));
  EXPECT_EQ("1e+10", CString(Double(1e10)));
  EXPECT_EQ("7", CString(Int16(7)));
  EXPECT_EQ("2024-02-03 00:00:00", CString(Date(45325.0)));
  EXPECT_EQ("", CString(XVariant()));
}

// ChangeType

// Each target's value from a source of 3.75, and its eight bytes.
struct ChangeRow {
  uint16_t target;
  int64_t bytes;
};

const ChangeRow kChanges[] = {
    {2, 3},
    {18, 3},
    {3, 3},
    {19, 3},
    {22, 3},
    {23, 3},
    {16, 3},
    {17, 3},
    {11, 1},
    {20, 3},
    {4, 0x40700000},
    {5, 0x400e000000000000},
    {7, 0x400e000000000000},
};

TEST_F(XVariantConvertTest, ChangeTypeConvertsInPlace) {
  for (const ChangeRow& row : kChanges) {
    if (row.target == VT_R8) continue;
    XVariant v = Double(3.75);
    EXPECT_EQ(0, v.ChangeType(row.target));
    EXPECT_EQ(row.target, v.vt);
    EXPECT_EQ(row.bytes, v.i64) << row.target;
  }
}

TEST_F(XVariantConvertTest, ChangeTypeTakesTheValueOfASource) {
  const XVariant source = Double(3.75);
  for (const ChangeRow& row : kChanges) {
    XVariant v = Text("99");
    EXPECT_EQ(0, v.ChangeType(row.target, &source));
    EXPECT_EQ(row.target, v.vt);
    EXPECT_EQ(row.bytes, v.i64) << row.target;
  }
  EXPECT_EQ(3.75, source.f64);
}

TEST_F(XVariantConvertTest, ChangeTypeCutsIntegersToTheTargetsWidth) {
  const std::pair<uint16_t, int64_t> rows[] = {{2, 0xfffe},      {18, 0xfffe},     {3, 0xfffffffe},
                                               {19, 0xfffffffe}, {22, 0xfffffffe}, {23, 0xfffffffe},
                                               {16, 0xfe},       {17, 0xfe},       {11, 1}};
  for (const auto& [target, bytes] : rows) {
    XVariant v = Int64(-2);
    EXPECT_EQ(0, v.ChangeType(target));
    EXPECT_EQ(bytes, v.i64) << target;
  }
  XVariant large = Int32(0x12345678), none = Int32(0x100), zero = Double(0.5);
  large.ChangeType(VT_I2);
  EXPECT_EQ(0x5678, large.i64);
  none.ChangeType(VT_BOOL);
  EXPECT_EQ(1, none.i64) << "tested before it is cut";
  zero.ChangeType(VT_BOOL);
  EXPECT_EQ(0, zero.i64);
}

TEST_F(XVariantConvertTest, ChangeTypeToAStringPrintsTheShortForm) {
  const std::pair<XVariant, const char*> rows[] = {
      {Float(1.5f), "1.5"},    {Double(1e10), "1e+10"}, {Int16(-7), "-7"},
      {Byte(VT_BOOL, 1), "1"}, {XVariant(), ""},        {Date(45325.0), "2024-02-03 00:00:00"},
      {Bare(VT_CY, 5), ""},
  };
  for (const auto& [source, text] : rows) {
    XVariant v(source);
    EXPECT_EQ(0, v.ChangeType(VT_BSTR));
    ASSERT_EQ(VT_BSTR, v.vt);
    EXPECT_EQ(text, *v.str);
  }
}

TEST_F(XVariantConvertTest, ChangeTypeToAStringTakesTheTextOfASourceAsACopy) {
  XVariant source = Text("a b"), v = Int32(5), unowned = Int32(5), none = Int32(5), number = Int32(5);
  const XVariant noString = Bare(VT_BSTR), empty{}, seven = Float(7.25f);
  EXPECT_EQ(0, v.ChangeType(VT_BSTR, &source));
  ASSERT_EQ(VT_BSTR, v.vt);
  EXPECT_NE(source.str, v.str);
  source.str->assign("changed");
  EXPECT_EQ("a b", *v.str);
  EXPECT_EQ(0, unowned.ChangeType(VT_BSTR, &noString));
  ASSERT_NE(nullptr, unowned.str);
  EXPECT_EQ("", *unowned.str);
  EXPECT_EQ(0, none.ChangeType(VT_BSTR, &empty));
  EXPECT_EQ("", *none.str);
  EXPECT_EQ(0, number.ChangeType(VT_BSTR, &seven));
  EXPECT_EQ("7.25", *number.str);
}

// The eight bytes that a value of the given type holds when it is converted from v.
int64_t ConvertedBytes(const XVariant& v, uint16_t type) {
  XVariant out = Bare(type);
  switch (type) {
    case VT_R4:
      out.f32 = v.ToFloat();
      break;
    case VT_R8:
      out.f64 = v.ToDouble();
      break;
    case VT_DATE:
      out.f64 = v.ToDate();
      break;
    case VT_I8:
      out.i64 = v.ToInt64();
      break;
    case VT_BOOL:
      out.byte = v.ToBool();
      break;
    default:
      out.u32 = static_cast<uint32_t>(v.ToInt());
      if (XVariant::GetVTSize(type) == 2) out.u32 &= 0xffff;
      if (XVariant::GetVTSize(type) == 1) out.u32 &= 0xff;
      break;
  }
  return out.i64;
}

TEST_F(XVariantConvertTest, ChangeTypeGivesWhatTheConversionsGiveFromEveryTypeToEveryType) {
  const XVariant sources[] = {
      Int16(kMin16),
      Uint16(65535),
      Int32(kMin32),
      Int32(kMax32, VT_INT),
      Uint32(kMaxU32),
      Uint32(0x80000000u, VT_UINT),
      Int64(kMin64),
      Int64(0x1122334455667788),
      Float(-2.75f),
      Float(3e9f),
      Float(kFloatMax),
      Double(4294967301.5),
      Double(1e300),
      Double(-kInfinity),
      Double(0.5),
      Date(45325.75),
      Date(-1.5),
      Byte(VT_BOOL, 5),
      Byte(VT_I1, 0x80),
      Byte(VT_UI1, 255),
      Text("2024-02-03 12"),
      Text("-1.5e3"),
      Text("#112233"),
      Text("4294967301"),
      Text("nonsense"),
      Text(""),
      Bare(VT_BSTR),
      XVariant(),
      Bare(VT_NULL),
      Bare(VT_UI8, 5),
      Bare(0x200C, 5),
  };
  for (const XVariant& source : sources) {
    for (const ChangeRow& row : kChanges) {
      if (source.vt == row.target) continue;
      SCOPED_TRACE(testing::Message() << source.vt << " to " << row.target << ", bytes " << source.i64);
      const int64_t expected = ConvertedBytes(source, row.target);
      XVariant inPlace(source), sourced = Bare(VT_CY, 99);
      EXPECT_EQ(0, inPlace.ChangeType(row.target));
      EXPECT_EQ(row.target, inPlace.vt);
      EXPECT_EQ(expected, inPlace.i64);
      EXPECT_EQ(0, sourced.ChangeType(row.target, &source));
      EXPECT_EQ(row.target, sourced.vt);
      EXPECT_EQ(expected, sourced.i64);
    }
  }
}

TEST_F(XVariantConvertTest, ChangeTypeReadsAStringByTheTargetsRule) {
  XVariant number = Text("12abc"), date = Text("2024-02-03"), colour = Text("#FF0000"), real = Text("1.5");
  EXPECT_EQ(0, number.ChangeType(VT_I4));
  EXPECT_EQ(12, number.i64);
  EXPECT_EQ(0, date.ChangeType(VT_DATE));
  EXPECT_EQ(45325.0, date.f64);
  EXPECT_EQ(0, colour.ChangeType(VT_I8));
  EXPECT_EQ(255, colour.i64);
  EXPECT_EQ(0, real.ChangeType(VT_R4));
  EXPECT_EQ(1.5f, real.f32);
}

TEST_F(XVariantConvertTest, ChangeTypeToTheSameTypeChangesNothingAndIgnoresTheSource) {
  const XVariant source = Text("source");
  XVariant text = Text("own"), odd = Bare(VT_CY, 5);
  EXPECT_EQ(0, text.ChangeType(VT_BSTR, &source));
  EXPECT_EQ("own", *text.str);
  EXPECT_EQ(0, odd.ChangeType(VT_CY, &source));
  EXPECT_EQ(5, odd.i64);
}

TEST_F(XVariantConvertTest, ChangeTypeToATypeWithoutConversionGivesOneAndAZeroValue) {
  const XVariant source = Int32(5);
  for (uint16_t type : kValueless) {
    XVariant v = Double(1.5), sourced = Text("text");
    EXPECT_EQ(1, v.ChangeType(type)) << type;
    EXPECT_EQ(type, v.vt);
    EXPECT_EQ(0, v.i64);
    EXPECT_EQ(1, sourced.ChangeType(type, &source)) << type;
    EXPECT_EQ(type, sourced.vt);
    EXPECT_EQ(0, sourced.i64);
  }
}

TEST_F(XVariantConvertTest, AVariantThatIsItsOwnSourceCountsAsZero) {
  XVariant number = Int32(5), text = Int32(5);
  EXPECT_EQ(0, number.ChangeType(VT_R8, &number));
  EXPECT_EQ(0.0, number.f64);
  EXPECT_EQ(0, text.ChangeType(VT_BSTR, &text));
  EXPECT_EQ("", *text.str);
}

}  // namespace
