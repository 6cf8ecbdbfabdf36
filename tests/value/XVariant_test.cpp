#include "value/XVariant.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <limits>
#include <utility>

#include "VariantTools.h"

namespace {

constexpr int64_t kAllBytes = 0x1122334455667788;

void ExpectEmpty(const XVariant& v) {
  EXPECT_EQ(VT_EMPTY, v.vt);
  EXPECT_EQ(0, v.i64);
}

struct SizeRow {
  uint16_t type;
  unsigned int size, nineElements, words;
};

TEST(XVariantSizeTest, EveryCodeHasItsSizes) {
  const SizeRow rows[] = {
      {0, 0, 0, 1},   {1, 0, 0, 1},   {2, 2, 18, 1},  {3, 4, 36, 2},     {4, 4, 36, 2},     {5, 8, 72, 4},
      {6, 0, 0, 1},   {7, 8, 0, 1},   {8, 0, 0, 1},   {9, 0, 0, 1},      {10, 0, 0, 1},     {11, 1, 2, 1},
      {12, 0, 0, 1},  {13, 0, 0, 1},  {14, 0, 0, 1},  {15, 0, 0, 1},     {16, 1, 9, 1},     {17, 1, 9, 1},
      {18, 2, 18, 1}, {19, 4, 36, 2}, {20, 8, 72, 4}, {21, 0, 0, 1},     {22, 4, 36, 2},    {23, 4, 36, 2},
      {24, 0, 0, 1},  {25, 0, 0, 1},  {64, 0, 0, 1},  {0x2000, 0, 0, 1}, {0x200C, 0, 0, 1}, {0xffff, 0, 0, 1},
  };
  for (const SizeRow& row : rows) {
    EXPECT_EQ(row.size, XVariant::GetVTSize(row.type)) << row.type;
    EXPECT_EQ(row.nineElements, XVariant::GetVTSize(row.type, 9)) << row.type;
    EXPECT_EQ(row.words, XVariant::GetVTSizeW(row.type)) << row.type;
    EXPECT_EQ(0u, XVariant::GetVTSize(row.type, 0)) << row.type;
  }
}

TEST(XVariantSizeTest, BooleansOfAnArrayArePackedInBits) {
  const std::pair<unsigned int, unsigned int> rows[] = {{0, 0}, {1, 1}, {7, 1}, {8, 1}, {9, 2}, {16, 2}, {17, 3}};
  for (const auto& [count, bytes] : rows) EXPECT_EQ(bytes, XVariant::GetVTSize(VT_BOOL, count)) << count;
  EXPECT_EQ(0x20000000u, XVariant::GetVTSize(VT_BOOL, 0xffffffffu));
}

TEST(XVariantSizeTest, AnArrayOfDatesHasNoSizeAndADateCountsAsOneWord) {
  EXPECT_EQ(0u, XVariant::GetVTSize(VT_DATE, 3));
  EXPECT_EQ(8u, XVariant::GetVTSize(VT_DATE));
  EXPECT_EQ(1u, XVariant::GetVTSizeW(VT_DATE));
}

TEST(XVariantSizeTest, TheTypeCodesAreNumberedAsOnTheWire) {
  const uint16_t inOrder[] = {VT_EMPTY, VT_NULL,     VT_I2,    VT_I4,   VT_R4,      VT_R8,      VT_CY,     VT_DATE,
                              VT_BSTR,  VT_DISPATCH, VT_ERROR, VT_BOOL, VT_VARIANT, VT_UNKNOWN, VT_DECIMAL};
  for (uint16_t code = 0; code < 15; ++code) EXPECT_EQ(code, inOrder[code]);
  const uint16_t from16[] = {VT_I1, VT_UI1, VT_UI2, VT_UI4, VT_I8, VT_UI8, VT_INT, VT_UINT};
  for (uint16_t i = 0; i < 8; ++i) EXPECT_EQ(16 + i, from16[i]);
  EXPECT_EQ(0x2000, VT_ARRAY);
  EXPECT_EQ(0x200C, VT_ARRAY | VT_VARIANT);
}

TEST(XVariantTest, ANewVariantIsAllZero) { ExpectEmpty(XVariant()); }

TEST(XVariantTest, ClearZeroesTypeAndAllValueBytes) {
  for (uint16_t type = 1; type < 30; ++type) {
    XVariant v = type == VT_BSTR ? Text("text") : Bare(type, kAllBytes);
    v.Clear();
    ExpectEmpty(v);
  }
  for (const int type : {0x2000, 0x200C, 0xffff}) {
    XVariant v = Bare(static_cast<uint16_t>(type), kAllBytes);
    v.Clear();
    ExpectEmpty(v);
  }
  XVariant unowned = Bare(VT_BSTR);
  unowned.Clear();
  ExpectEmpty(unowned);
}

TEST(XVariantTest, ClearOfAnEmptyVariantTouchesNothing) {
  XVariant v = Bare(VT_EMPTY, kAllBytes);
  v.Clear();
  EXPECT_EQ(kAllBytes, v.i64);
}

TEST(XVariantTest, SetStringOwnsACopyCutAtTheFirstZeroByte) {
  const char source[] = "ab\0cd";
  XVariant v = Int64(kAllBytes);
  v.SetString(source, 5);
  ASSERT_EQ(VT_BSTR, v.vt);
  EXPECT_EQ("ab", *v.str);
  v.SetString("abcd", 3);
  EXPECT_EQ("abc", *v.str);
  v.SetString("", 0);
  EXPECT_EQ("", *v.str);
  v.SetString(nullptr, 4);
  EXPECT_EQ("", *v.str);
}

TEST(XVariantTest, SetStringTakesItsOwnText) {
  XVariant v = Text("a text that is longer than what a string keeps in place");
  v.SetString(v.str->c_str() + 2, 4);
  EXPECT_EQ("text", *v.str);
}

// What the copy of a variant of each type holds, when all eight bytes of the source are set.
struct CopyRow {
  uint16_t type;
  int64_t constructed, assigned;
};

const CopyRow kCopies[] = {
    {2, 0x7788, 0x7788},
    {18, 0x7788, 0x7788},
    {3, 0x55667788, 0x55667788},
    {4, 0x55667788, 0x55667788},
    {19, 0x55667788, 0x55667788},
    {22, 0x55667788, 0x55667788},
    {23, 0x55667788, 0x55667788},
    {11, 0x88, 0x88},
    {16, 0x88, 0x88},
    {17, 0x88, 0x88},
    {5, kAllBytes, kAllBytes},
    {7, kAllBytes, kAllBytes},
    {20, kAllBytes, kAllBytes},
    {0, kAllBytes, 0},
    {1, kAllBytes, 0},
    {6, kAllBytes, 0},
    {9, kAllBytes, 0},
    {10, kAllBytes, 0},
    {12, kAllBytes, 0},
    {13, kAllBytes, 0},
    {14, kAllBytes, 0},
    {15, kAllBytes, 0},
    {21, kAllBytes, 0},
    {24, kAllBytes, 0},
    {0x2000, kAllBytes, 0},
    {0x200C, kAllBytes, 0},
    {0xffff, kAllBytes, 0},
};

TEST(XVariantCopyTest, TheCopyConstructorTakesTheLiveMemberOrAllBytesOfAValuelessCode) {
  for (const CopyRow& row : kCopies) {
    const XVariant source = Bare(row.type, kAllBytes);
    const XVariant copy(source);
    EXPECT_EQ(row.type, copy.vt);
    EXPECT_EQ(row.constructed, copy.i64) << row.type;
    EXPECT_EQ(kAllBytes, source.i64);
  }
}

TEST(XVariantCopyTest, AssignmentTakesTheLiveMemberAndNothingOfAValuelessCode) {
  for (const CopyRow& row : kCopies) {
    const XVariant source = Bare(row.type, kAllBytes);
    XVariant target = Text("old");
    target = source;
    EXPECT_EQ(row.type, target.vt);
    EXPECT_EQ(row.assigned, target.i64) << row.type;
    EXPECT_EQ(kAllBytes, source.i64);
  }
}

TEST(XVariantCopyTest, MoveAssignmentKeepsWhatCopyingWouldAndEmptiesItsSource) {
  for (const CopyRow& row : kCopies) {
    if (row.type == 0) continue;  // clearing an empty variant leaves its bytes
    XVariant source = Bare(row.type, kAllBytes), target = Text("old");
    target = std::move(source);
    EXPECT_EQ(row.type, target.vt);
    EXPECT_EQ(row.assigned, target.i64) << row.type;
    ExpectEmpty(source);
  }
}

TEST(XVariantCopyTest, EveryCopyOfAStringOwnsItsOwn) {
  XVariant source = Text("AB");
  XVariant constructed(source), assigned = Text("old");
  assigned = source;
  for (const XVariant* copy : {&constructed, &assigned}) {
    EXPECT_EQ(VT_BSTR, copy->vt);
    EXPECT_NE(source.str, copy->str);
    EXPECT_EQ("AB", *copy->str);
  }
  source.str->assign("changed");
  EXPECT_EQ("AB", *constructed.str);
  EXPECT_EQ("AB", *assigned.str);
}

TEST(XVariantCopyTest, AStringVariantWithoutAStringCopiesAsSuch) {
  const XVariant source = Bare(VT_BSTR);
  XVariant copy(source), assigned = Text("old");
  assigned = source;
  EXPECT_EQ(VT_BSTR, copy.vt);
  EXPECT_EQ(nullptr, copy.str);
  EXPECT_EQ(VT_BSTR, assigned.vt);
  EXPECT_EQ(nullptr, assigned.str);
}

// Every way by which a string variant can lose its string. Under a sanitizer the heap cannot be asked; there the leak
// checker answers.
TEST(XVariantCopyTest, EveryLostStringIsFreed) {
  const XVariant large = Text(std::string(1 << 20, 'x')), number = Int16(1);
  const auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const auto lose = [&] {
    XVariant destroyed(large), cleared(large), assigned(large), moved(large), set(large), decoded(large),
        changed(large);
    cleared.Clear();
    assigned = number;
    moved = XVariant(large);
    set.SetString("", 0);
    decoded.FromBuffer("\x01\0", true);
    changed.ChangeType(VT_I4);
  };
  lose();
  const size_t before = inUse();
  for (int i = 0; i < 10; ++i) lose();
  EXPECT_LT(inUse(), before + (1 << 19));
}

TEST(XVariantCopyTest, AMovedStringChangesItsOwner) {
  XVariant source = Text("AB");
  const std::string* text = source.str;
  XVariant moved(std::move(source));
  EXPECT_EQ(text, moved.str);
  ExpectEmpty(source);
  XVariant assigned = Text("old");
  assigned = std::move(moved);
  EXPECT_EQ(VT_BSTR, assigned.vt);
  EXPECT_EQ(text, assigned.str);
  ExpectEmpty(moved);
}

TEST(XVariantCopyTest, AssigningAVariantToItselfLeavesItEmpty) {
  XVariant text = Text("AB"), number = Int64(5), moved = Text("AB");
  XVariant &sameText = text, &sameNumber = number, &sameMoved = moved;
  text = sameText;
  number = sameNumber;
  moved = std::move(sameMoved);
  ExpectEmpty(text);
  ExpectEmpty(number);
  ExpectEmpty(moved);
}

TEST(XVariantEqualTest, TypesThatDifferAreUnequalWhateverTheirValue) {
  EXPECT_FALSE(Int16(5) == Int32(5));
  EXPECT_FALSE(Int32(5) == Int32(5, VT_INT));
  EXPECT_FALSE(XVariant() == Bare(VT_NULL));
}

TEST(XVariantEqualTest, OnlyTheLiveMemberCounts) {
  struct Row {
    uint16_t type;
    int64_t same, other;
  };
  const Row rows[] = {
      {2, 0x7fff7788, 0x7789},
      {18, 0x7fff7788, 0x6788},
      {3, 0x7fffffff55667788, 0x55667789},
      {19, 0x7fffffff55667788, 0x45667788},
      {22, 0x7fffffff55667788, 0x55667789},
      {23, 0x7fffffff55667788, 0x45667788},
      {11, 0x7f88, 0x89},
      {16, 0x7f88, 0x08},
      {17, 0x7f88, 0x89},
      {20, kAllBytes, kAllBytes ^ (1LL << 62)},
  };
  for (const Row& row : rows) {
    const XVariant v = Bare(row.type, kAllBytes);
    EXPECT_TRUE(v == Bare(row.type, row.same)) << row.type;
    EXPECT_FALSE(v == Bare(row.type, row.other)) << row.type;
  }
}

TEST(XVariantEqualTest, EmptyAndNullAreEqualWithAnyBytes) {
  EXPECT_TRUE(XVariant() == XVariant());
  EXPECT_TRUE(Bare(VT_EMPTY, 1) == Bare(VT_EMPTY, 2));
  EXPECT_TRUE(Bare(VT_NULL, 1) == Bare(VT_NULL, 2));
}

TEST(XVariantEqualTest, FloatsCompareAsFloats) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(Float(0.0f) == Float(-0.0f));
  EXPECT_FALSE(Float(std::nanf("")) == Float(std::nanf("")));
  EXPECT_TRUE(Float(1.5f) == Float(1.5f));
  EXPECT_FALSE(Float(1.5f) == Float(std::nextafter(1.5f, 2.0f)));
  for (uint16_t type : {VT_R8, VT_DATE}) {
    EXPECT_TRUE(Double(0.0, type) == Double(-0.0, type));
    EXPECT_FALSE(Double(nan, type) == Double(nan, type));
    EXPECT_TRUE(Double(1.5, type) == Double(1.5, type));
    EXPECT_FALSE(Double(1.5, type) == Double(std::nextafter(1.5, 2.0), type));
  }
}

TEST(XVariantEqualTest, StringsCompareByteByByteUpToTheNul) {
  EXPECT_TRUE(Text("AB") == Text("AB"));
  EXPECT_FALSE(Text("AB") == Text("ABC"));
  EXPECT_FALSE(Text("AB") == Text("Ab"));
  EXPECT_TRUE(Text("") == Bare(VT_BSTR));
  EXPECT_TRUE(Bare(VT_BSTR) == Bare(VT_BSTR));
  EXPECT_FALSE(Text("A") == Bare(VT_BSTR));
  XVariant longer = Text("AB");
  longer.str->append("\0C", 2);
  EXPECT_TRUE(longer == Text("AB"));
}

TEST(XVariantEqualTest, CodesWithoutAComparisonAreUnequalEvenToThemselves) {
  for (uint16_t type : kValueless) {
    if (type <= VT_NULL) continue;
    const XVariant v = Bare(type, kAllBytes);
    EXPECT_FALSE(v == Bare(type, kAllBytes)) << type;
    EXPECT_FALSE(v == v) << type;
  }
}

}  // namespace
