#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <memory>

#include "VariantTools.h"
#include "value/XVariant.h"

namespace {

using namespace std::string_literals;

// A variant and its value bytes on the wire, without the type word.
struct Encoding {
  XVariant value;
  std::string bytes;
};

std::string TypeWord(uint16_t type) { return {static_cast<char>(type & 0xff), static_cast<char>(type >> 8)}; }

std::vector<Encoding> Encodings() {
  std::vector<Encoding> rows = {
      {Int16(-32768), "\x00\x80"s},
      {Int16(0x1234), "\x34\x12"s},
      {Uint16(65535), "\xff\xff"s},
      {Int32(std::numeric_limits<int32_t>::min()), "\x00\x00\x00\x80"s},
      {Int32(0x12345678, VT_INT), "\x78\x56\x34\x12"s},
      {Uint32(0xffffffff), "\xff\xff\xff\xff"s},
      {Uint32(0x80000001, VT_UINT), "\x01\x00\x00\x80"s},
      {Float(1.5f), "\x00\x00\xc0\x3f"s},
      {Float(-std::numeric_limits<float>::infinity()), "\x00\x00\x80\xff"s},
      {Float(std::bit_cast<float>(0x7fc01234u)), "\x34\x12\xc0\x7f"s},
      {Double(1.5), "\x00\x00\x00\x00\x00\x00\xf8\x3f"s},
      {Double(std::numeric_limits<double>::infinity()), "\x00\x00\x00\x00\x00\x00\xf0\x7f"s},
      {Double(std::bit_cast<double>(0x7ff8000000001234u)), "\x34\x12\x00\x00\x00\x00\xf8\x7f"s},
      {Double(-0.0), "\x00\x00\x00\x00\x00\x00\x00\x80"s},
      {Date(25569.5), "\x00\x00\x00\x00\x60\xf8\xd8\x40"s},
      {Int64(std::numeric_limits<int64_t>::min()), "\x00\x00\x00\x00\x00\x00\x00\x80"s},
      {Int64(0x1122334455667788), "\x88\x77\x66\x55\x44\x33\x22\x11"s},
      {Text("AB"), "AB\0"s},
      {Text(""), "\0"s},
      {Text("\xd6\xd0"), "\xd6\xd0\0"s},
      {Byte(VT_BOOL, 0), "\x00"s},
      {Byte(VT_BOOL, 1), "\x01"s},
      {Byte(VT_I1, 0x80), "\x80"s},
      {Byte(VT_UI1, 0xff), "\xff"s},
  };
  for (uint16_t type : kValueless) {
    if (type != VT_ARRAY) rows.push_back({Bare(type), ""s});
  }
  return rows;
}

// The bytes that ToBuffer writes into exactly as much room as BufferSize asks for.
std::string Encode(const XVariant& v, bool withType) {
  const unsigned int size = v.BufferSize(withType);
  const std::unique_ptr<char[]> room(new char[size]);
  EXPECT_EQ(size, v.ToBuffer(room.get(), 0, withType));
  return std::string(room.get(), size);
}

// A heap copy of exactly the given bytes, so that a read beyond them is seen.
std::unique_ptr<char[]> Exactly(const std::string& bytes) {
  std::unique_ptr<char[]> copy(new char[bytes.size()]);
  bytes.copy(copy.get(), bytes.size());
  return copy;
}

void ExpectSame(const XVariant& expected, const XVariant& got) {
  EXPECT_EQ(expected.vt, got.vt);
  if (expected.vt != VT_BSTR) {
    EXPECT_EQ(expected.i64, got.i64) << expected.vt;
  } else {
    ASSERT_NE(nullptr, got.str);
    EXPECT_EQ(*expected.str, *got.str);
  }
}

TEST(XVariantCodecTest, EveryTypeEncodesToItsBytes) {
  for (const Encoding& row : Encodings()) {
    EXPECT_EQ(TypeWord(row.value.vt) + row.bytes, Encode(row.value, true)) << row.value.vt;
    EXPECT_EQ(row.bytes, Encode(row.value, false)) << row.value.vt;
  }
}

TEST(XVariantCodecTest, EncodingWritesAtAnyAddressAndNothingAroundTheValue) {
  for (const Encoding& row : Encodings()) {
    for (bool withType : {true, false}) {
      for (unsigned int size : {0u, 1u, 1000u}) {  // not consulted
        const std::string bytes = (withType ? TypeWord(row.value.vt) : "") + row.bytes;
        std::string room(bytes.size() + 9, 'x');
        EXPECT_EQ(bytes.size(), row.value.ToBuffer(room.data() + 1, size, withType)) << row.value.vt;
        EXPECT_EQ("x" + bytes + "xxxxxxxx", room) << row.value.vt;
      }
    }
  }
}

TEST(XVariantCodecTest, AnEmptyVariantIsJustItsTypeWord) {
  EXPECT_EQ(2u, XVariant().BufferSize(true));
  EXPECT_EQ("\0\0"s, Encode(XVariant(), true));
  EXPECT_EQ("", Encode(XVariant(), false));
}

TEST(XVariantCodecTest, AStringIsItsBytesAndOneNul) { EXPECT_EQ("\x08\0AB\0"s, Encode(Text("AB"), true)); }

TEST(XVariantCodecTest, AStringVariantWithoutAStringIsJustTheNul) {
  EXPECT_EQ("\x08\0\0"s, Encode(Bare(VT_BSTR), true));
  EXPECT_EQ("\0"s, Encode(Bare(VT_BSTR), false));
}

TEST(XVariantCodecTest, AStringIsCopiedUpToItsFirstNul) {
  XVariant v = Text("AB");
  v.str->append("\0C", 2);
  EXPECT_EQ("\x08\0AB\0"s, Encode(v, true));
}

TEST(XVariantCodecTest, ABooleanIsWrittenAsItsStoredByte) { EXPECT_EQ("\x0b\0\x05"s, Encode(Byte(VT_BOOL, 5), true)); }

TEST(XVariantCodecTest, AnArrayCodeEncodesToItsTypeWordAlone) {
  EXPECT_EQ("\x00\x20"s, Encode(Bare(VT_ARRAY), true));
  EXPECT_EQ("\x0c\x20"s, Encode(Bare(0x200C), true));
  EXPECT_EQ("\x15\0"s, Encode(Bare(VT_UI8, -1), true));
}

TEST(XVariantCodecTest, EveryTypeDecodesFromItsBytesWithTheTypeWord) {
  for (const Encoding& row : Encodings()) {
    const std::string bytes = TypeWord(row.value.vt) + row.bytes;
    XVariant v = Text("old");
    EXPECT_EQ(bytes.size(), v.FromBuffer(Exactly(bytes).get(), true));
    ExpectSame(row.value, v);
  }
}

TEST(XVariantCodecTest, EveryTypeDecodesFromItsBytesWithoutTheTypeWord) {
  for (const Encoding& row : Encodings()) {
    XVariant v = row.value.vt == VT_BSTR ? Text("old") : Bare(row.value.vt);
    EXPECT_EQ(row.bytes.size(), v.FromBuffer(Exactly(row.bytes).get(), false));
    ExpectSame(row.value, v);
  }
}

TEST(XVariantCodecTest, DecodingClearsTheOldValueFirst) {
  XVariant v = Bare(VT_I2, 0x1122334455667788);
  v.FromBuffer("\x01\x02", false);
  EXPECT_EQ(0x0201, v.i64);
}

TEST(XVariantCodecTest, DecodingReadsNothingBehindTheValue) {
  XVariant v;
  EXPECT_EQ(4u, v.FromBuffer("\x02\0\x34\x12\xff\xff\xff\xff", true));
  EXPECT_EQ(0x1234, v.i64);
  EXPECT_EQ(5u, v.FromBuffer("\x08\0AB\0CD", true));
  EXPECT_EQ("AB", *v.str);
}

TEST(XVariantCodecTest, ABooleanIsDecodedToZeroOrOne) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string bytes = "\x0b\0"s + static_cast<char>(byte);
    XVariant v;
    EXPECT_EQ(3u, v.FromBuffer(bytes.data(), true));
    EXPECT_EQ(byte != 0, v.byte) << byte;
  }
  XVariant v;
  v.FromBuffer("\x0b\0\x05", true);
  EXPECT_EQ("\x0b\0\x01"s, Encode(v, true));
}

TEST(XVariantCodecTest, Type21ConsumesItsTypeWordAndKeepsNoValue) {
  XVariant v = Int64(-1);
  EXPECT_EQ(2u, v.FromBuffer("\x15\0\x01\x02\x03\x04\x05\x06\x07\x08", true));
  EXPECT_EQ(VT_UI8, v.vt);
  EXPECT_EQ(0, v.i64);
}

TEST(XVariantCodecTest, AnArrayConsumesItsTypeWordOnly) {
  const std::string array =
      "\x00\x20"
      "\x02\x00"
      "\x03\x00\x01\x00\x00\x00"
      "\x03\x00\x02\x00\x00\x00"s;
  XVariant v = Text("old");
  EXPECT_EQ(2u, v.FromBuffer(array.data(), true));
  EXPECT_EQ(0x200C, v.vt);
  EXPECT_EQ(0, v.i64);
}

TEST(XVariantCodecTest, AnArrayWithoutTheTypeWordConsumesNothing) {
  XVariant v = Bare(VT_ARRAY, -1);
  EXPECT_EQ(0u, v.FromBuffer("\x02\x00\x03\x00", false));
  EXPECT_EQ(0x200C, v.vt);
  EXPECT_EQ(0, v.i64);
}

TEST(XVariantCodecTest, AnArrayIsNotLookedAtBehindItsTypeWord) {
  size_t consumed = 0;
  XVariant v;
  EXPECT_TRUE(v.FromBuffer(Exactly("\x00\x20"s).get(), 2, true, consumed));
  EXPECT_EQ(2u, consumed);
  EXPECT_EQ(0x200C, v.vt);
}

TEST(XVariantCodecTest, TheBoundedDecodeAcceptsExactlyTheWholeEncoding) {
  for (const Encoding& row : Encodings()) {
    const std::string bytes = TypeWord(row.value.vt) + row.bytes;
    size_t consumed = 99;
    XVariant v = Text("old");
    EXPECT_TRUE(v.FromBuffer(Exactly(bytes).get(), bytes.size(), true, consumed)) << row.value.vt;
    EXPECT_EQ(bytes.size(), consumed);
    ExpectSame(row.value, v);
    XVariant untyped = Bare(row.value.vt);
    EXPECT_TRUE(untyped.FromBuffer(Exactly(row.bytes).get(), row.bytes.size(), false, consumed)) << row.value.vt;
    EXPECT_EQ(row.bytes.size(), consumed);
    ExpectSame(row.value, untyped);
  }
}

TEST(XVariantCodecTest, TheBoundedDecodeLeavesWhatFollowsAlone) {
  size_t consumed = 0;
  XVariant v;
  EXPECT_TRUE(v.FromBuffer("\x08\0AB\0CD", 7, true, consumed));
  EXPECT_EQ(5u, consumed);
  EXPECT_EQ("AB", *v.str);
}

TEST(XVariantCodecTest, EveryTruncationIsRefusedWithAnEmptyVariant) {
  for (const Encoding& row : Encodings()) {
    const std::string bytes = TypeWord(row.value.vt) + row.bytes;
    for (size_t size = 0; size < bytes.size(); ++size) {
      size_t consumed = 99;
      XVariant v = Text("old");
      EXPECT_FALSE(v.FromBuffer(Exactly(bytes.substr(0, size)).get(), size, true, consumed)) << row.value.vt;
      EXPECT_EQ(0u, consumed);
      EXPECT_EQ(VT_EMPTY, v.vt);
      EXPECT_EQ(0, v.i64);
    }
  }
}

TEST(XVariantCodecTest, EveryTruncationWithoutTheTypeWordKeepsTheTypeAndNoValue) {
  for (const Encoding& row : Encodings()) {
    for (size_t size = 0; size < row.bytes.size(); ++size) {
      size_t consumed = 99;
      XVariant v = row.value.vt == VT_BSTR ? Text("old") : Bare(row.value.vt, -1);
      EXPECT_FALSE(v.FromBuffer(Exactly(row.bytes.substr(0, size)).get(), size, false, consumed)) << row.value.vt;
      EXPECT_EQ(0u, consumed);
      EXPECT_EQ(row.value.vt, v.vt);
      EXPECT_EQ(0, v.i64);
    }
  }
}

TEST(XVariantCodecTest, BytesBehindACodeWithoutAValueAreNotKept) {
  for (uint16_t type : kValueless) {
    const std::string bytes = TypeWord(type) + "\xff\xff\xff\xff\xff\xff\xff\xff";
    XVariant v;
    EXPECT_EQ(2u, v.FromBuffer(bytes.data(), true)) << type;
    EXPECT_EQ(type == VT_ARRAY ? 0x200C : type, v.vt);
    EXPECT_EQ(0, v.i64) << type;
  }
}

}  // namespace
