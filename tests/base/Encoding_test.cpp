#include "base/Encoding.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/resource.h>

#include <cerrno>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "BaseTools.h"

namespace {

int openError = 0;  // not 0: iconv_open fails with it
std::vector<std::string> opened;
bool recordOpened = false;
int openConverters = 0;
std::vector<std::pair<size_t, size_t>> conversions;  // while recordOpened: bytes of input and of room, call by call

}  // namespace

// The program's own iconv functions stand before the C library's: so a missing conversion can be shown, and what is
// opened, converted and closed be counted.
extern "C" iconv_t iconv_open(const char* to, const char* from) {
  using Open = iconv_t (*)(const char*, const char*);
  static const Open real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "iconv_open"));
  if (openError != 0) {
    errno = openError;
    return reinterpret_cast<iconv_t>(-1);
  }
  if (recordOpened) {
    opened.push_back(std::string(from) + ">" + to);
    ++openConverters;
  }
  return real(to, from);
}

extern "C" size_t iconv(iconv_t cd, char** in, size_t* inLeft, char** out, size_t* outLeft) {
  using Convert = size_t (*)(iconv_t, char**, size_t*, char**, size_t*);
  static const Convert real = reinterpret_cast<Convert>(dlsym(RTLD_NEXT, "iconv"));
  if (recordOpened) conversions.emplace_back(*inLeft, *outLeft);
  return real(cd, in, inLeft, out, outLeft);
}

extern "C" int iconv_close(iconv_t cd) {
  using Close = int (*)(iconv_t);
  static const Close real = reinterpret_cast<Close>(dlsym(RTLD_NEXT, "iconv_close"));
  if (recordOpened) --openConverters;
  return real(cd);
}

namespace {

using namespace std::string_literals;

constexpr char kCharacter[] = "\xd6\xd0";  // U+4E2D in GB2312
constexpr char kCharacterUtf8[] = "\xe4\xb8\xad";
constexpr char kIllegal[] = "Invalid or incomplete multibyte or wide character\n";  // EILSEQ
constexpr char kIncomplete[] = "Invalid argument\n";                                // EINVAL

unsigned int Length(const std::string& text) { return static_cast<unsigned int>(text.size()); }

CString FromUtf8(const std::string& utf8) {
  CString text("old");
  text.FromUtf8(utf8.data(), Length(utf8));
  return text;
}

CString FromUtf16(const std::vector<unsigned short>& units) {
  CString text("old");
  text.FromUtf16(units.data(), static_cast<unsigned int>(units.size()));
  return text;
}

CString Utf8Of(const std::string& gb) {
  CString out("old");
  ToUtf8(gb.data(), out, Length(gb));
  return out;
}

using Units = std::unique_ptr<unsigned short[]>;

std::vector<unsigned short> Utf16Of(const std::string& gb, unsigned int len) {
  unsigned int count = 99;
  const Units units(ToUtf16(gb.c_str(), count, len));
  if (units == nullptr) return {0xdead, static_cast<unsigned short>(count)};
  return std::vector<unsigned short>(units.get(), units.get() + count);
}

TEST(EncodingTest, AsciiStaysTheSameInEveryConversion) {
  std::string ascii;
  std::vector<unsigned short> units;
  for (char c = 1; c < 127; ++c) {
    ascii += c;
    units.push_back(static_cast<unsigned short>(c));
  }
  EXPECT_EQ(ascii, Utf8Of(ascii));
  EXPECT_EQ(ascii, FromUtf8(ascii));
  EXPECT_EQ(ascii, FromUtf16(units));
  EXPECT_EQ(units, Utf16Of(ascii, 0));
}

TEST(EncodingTest, ATwoByteCharacterBecomesItsThreeByteUtf8Form) { EXPECT_EQ(kCharacterUtf8, Utf8Of(kCharacter)); }

TEST(EncodingTest, ToUtf16GivesTheUnitsAndTheirNumber) {
  unsigned int count = 0;
  const Units units(ToUtf16("ab", count, 0));
  ASSERT_NE(nullptr, units);
  ASSERT_EQ(2u, count);
  EXPECT_EQ(0x0061, units[0]);
  EXPECT_EQ(0x0062, units[1]);
}

TEST(EncodingTest, ToUtf16TakesAsManyBytesAsAskedAndAllForZero) {
  using Expected = std::vector<unsigned short>;
  EXPECT_EQ((Expected{'a'}), Utf16Of("ab", 1));
  EXPECT_EQ((Expected{'a', 'b'}), Utf16Of("ab", 2));
  EXPECT_EQ((Expected{'a', 0, 'b'}), Utf16Of("a\0b"s, 3));
  EXPECT_EQ((Expected{'a'}), Utf16Of("a\0b"s, 0));
  EXPECT_EQ((Expected{0x4e2d, 'x'}), Utf16Of(kCharacter + "x"s, 0));
  EXPECT_EQ((Expected{}), Utf16Of("", 0));
}

TEST(EncodingTest, MemberToUtf16StopsAtTheFirstZeroByte) {
  unsigned int count = 0;
  const Units units(CString("a\0b", 3).ToUtf16(count));
  ASSERT_NE(nullptr, units);
  EXPECT_EQ(1u, count);
}

TEST(EncodingTest, FreeToUtf8TakesAsManyBytesAsAskedAndAllForZero) {
  CString out;
  ToUtf8("abc", out, 2);
  EXPECT_EQ("ab", out);
  ToUtf8("abc", out, 0);
  EXPECT_EQ("abc", out);
  ToUtf8("a\0b", out, 3);
  EXPECT_EQ("a\0b"s, out);
  ToUtf8("", out, 0);
  EXPECT_EQ("", out);
}

TEST(EncodingTest, MemberToUtf8ConvertsTheWholeStringZeroBytesToo) {
  CString out("old");
  CString("a\0\xd6\xd0", 4).ToUtf8(out);
  EXPECT_EQ("a\0\xe4\xb8\xad"s, out);
  CString().ToUtf8(out);
  EXPECT_EQ("", out);
  CString own(kCharacter);
  own.ToUtf8(own);
  EXPECT_EQ(kCharacterUtf8, own);
}

TEST(EncodingTest, AnEmptyInputIsNoInputForTheConversionsFromUnicode) {
  CaughtStderr caught;
  CString fromUtf8("old"), fromUtf16("old");
  const unsigned short units[] = {'a', 0};
  fromUtf8.FromUtf8("abc", 0);
  fromUtf16.FromUtf16(units, 0);
  EXPECT_EQ("", fromUtf8);
  EXPECT_EQ("", fromUtf16);
  EXPECT_EQ("", caught.Text());
}

TEST(EncodingTest, ANullInputIsAnEmptyOne) {
  CaughtStderr caught;
  CString out("old");
  ToUtf8(nullptr, out, 5);
  EXPECT_EQ("", out);
  out = "old";
  out.FromUtf8(nullptr, 5);
  EXPECT_EQ("", out);
  out = "old";
  out.FromUtf16(nullptr, 5);
  EXPECT_EQ("", out);
  unsigned int count = 9;
  const Units units(ToUtf16(nullptr, count, 5));
  EXPECT_NE(nullptr, units);
  EXPECT_EQ(0u, count);
  EXPECT_EQ("", caught.Text());
}

TEST(EncodingTest, FromUtf8TakesItsInputFromTheStringItself) {
  CString text(kCharacterUtf8);
  text.FromUtf8(text.data(), 3);
  EXPECT_EQ(kCharacter, text);
}

TEST(EncodingTest, OutputSpaceSufficesForTheWidestText) {
  std::string gb, utf8;
  std::vector<unsigned short> units;
  for (int i = 0; i < 5000; ++i) {
    gb += kCharacter;
    utf8 += kCharacterUtf8;
    units.push_back(0x4e2d);
  }
  EXPECT_EQ(utf8, Utf8Of(gb));
  EXPECT_EQ(gb, FromUtf8(utf8));
  EXPECT_EQ(gb, FromUtf16(units));
  EXPECT_EQ(units, Utf16Of(gb, 0));
}

TEST(EncodingTest, EachConversionIsOneCallWithTheRoomOfItsKind) {
  conversions.clear();
  recordOpened = true;
  {
    CaughtStderr caught;
    FromUtf16({'a', 0x4e2d, 'b'});
    Utf8Of(
        "ab\xd6\xd0"
        "c");
    FromUtf8("ab\xe4\xb8\xad");
    Utf16Of("ab\xd6\xd0", 0);
    FromUtf16({});
    FromUtf16({'a', 0x20ac, 'b'});
    Utf8Of(
        "a\xff"
        "b");
    FromUtf8(
        "a\xff"
        "b");
    Utf16Of(
        "a\xff"
        "b",
        3);
  }
  recordOpened = false;
  const std::vector<std::pair<size_t, size_t>> expected = {{6, 12}, {5, 10}, {5, 10}, {4, 10}, {0, 3},
                                                           {6, 12}, {3, 6},  {3, 6},  {3, 8}};
  EXPECT_EQ(expected, conversions);
}

TEST(EncodingTest, AZeroByteAmongTheInputIsConvertedLikeAnyOther) {
  EXPECT_EQ("a\0\xd6\xd0"s, FromUtf8("a\0\xe4\xb8\xad"s));
  EXPECT_EQ("a\0\xd6\xd0"s, FromUtf16({'a', 0, 0x4e2d}));
}

// What precedes the bad place is kept, and one line says what happened: byte by byte.

TEST(EncodingTest, FromUtf8KeepsWhatPrecedesACharacterThatGb2312Lacks) {
  CaughtStderr caught;
  const CString text = FromUtf8(
      "ab\xe4\xb8\xad\xf0\x9f\x98\x80"
      "cd");
  EXPECT_EQ("FromUtf8:iconv:: "s + kIllegal, caught.Text());
  EXPECT_EQ("ab\xd6\xd0", text);
}

TEST(EncodingTest, FromUtf8KeepsWhatPrecedesAnIncompleteCharacter) {
  CaughtStderr caught;
  const CString text = FromUtf8("ab\xe4\xb8");
  EXPECT_EQ("FromUtf8:iconv:: "s + kIncomplete, caught.Text());
  EXPECT_EQ("ab", text);
}

TEST(EncodingTest, FromUtf16KeepsWhatPrecedesAUnitThatGb2312Lacks) {
  CaughtStderr caught;
  const CString text = FromUtf16({'a', 0x4e2d, 0x20ac, 'b'});
  EXPECT_EQ("FromUtf16:iconv: "s + kIllegal, caught.Text());
  EXPECT_EQ("a\xd6\xd0", text);
}

TEST(EncodingTest, ToUtf8KeepsWhatPrecedesABadByte) {
  for (const char* bad : {"ab\xff"
                          "cd",
                          "ab\x80"
                          "cd",
                          "ab\xd6"
                          "cd"}) {
    CaughtStderr caught;
    const CString text = Utf8Of(bad);
    EXPECT_EQ("ToUtf8:iconv:: "s + kIllegal, caught.Text());
    EXPECT_EQ("ab", text);
  }
}

TEST(EncodingTest, ToUtf8KeepsWhatPrecedesHalfACharacter) {
  CaughtStderr caught;
  const CString text = Utf8Of("ab\xd6");
  EXPECT_EQ("ToUtf8:iconv:: "s + kIncomplete, caught.Text());
  EXPECT_EQ("ab", text);
}

TEST(EncodingTest, ToUtf16ThrowsAPartialResultAway) {
  unsigned int count = 9;
  CaughtStderr caught;
  EXPECT_EQ(nullptr, ToUtf16("ab\xff", count, 0));
  EXPECT_EQ("ToUtf16:iconv: "s + kIllegal, caught.Text());
  EXPECT_EQ(0u, count);
}

TEST(EncodingTest, ToUtf16GivesNothingOfATextThatEndsInHalfACharacter) {
  unsigned int count = 9;
  CaughtStderr caught;
  EXPECT_EQ(nullptr, ToUtf16("ab\xd6", count, 0));
  EXPECT_EQ("ToUtf16:iconv: "s + kIncomplete, caught.Text());
  EXPECT_EQ(0u, count);
}

TEST(EncodingTest, TheConstructorFromUtf16FailsAsFromUtf16Does) {
  const unsigned short units[] = {'a', 0x20ac, 'b'};
  CaughtStderr caught;
  EXPECT_EQ("a", CString(units, 3));
  EXPECT_EQ("FromUtf16:iconv: "s + kIllegal, caught.Text());
}

class NoConversionTest : public testing::Test {
 protected:
  NoConversionTest() { openError = EINVAL; }
  ~NoConversionTest() override { openError = 0; }
  CaughtStderr caught_;
};

TEST_F(NoConversionTest, FromUtf8LeavesTheStringEmpty) {
  EXPECT_EQ("", FromUtf8("ab"));
  EXPECT_EQ("FromUtf8:iconv_open:: Invalid argument\n", caught_.Text());
}

TEST_F(NoConversionTest, FromUtf16LeavesTheStringEmpty) {
  EXPECT_EQ("", FromUtf16({'a'}));
  EXPECT_EQ("FromUtf16:iconv_open: Invalid argument\n", caught_.Text());
}

TEST_F(NoConversionTest, ToUtf8LeavesTheOutputEmpty) {
  EXPECT_EQ("", Utf8Of("ab"));
  EXPECT_EQ("ToUtf8:iconv_open:: Invalid argument\n", caught_.Text());
}

TEST_F(NoConversionTest, ToUtf16GivesNull) {
  unsigned int count = 9;
  EXPECT_EQ(nullptr, ToUtf16("ab", count, 0));
  EXPECT_EQ(0u, count);
  EXPECT_EQ("ToUtf16:iconv_open:: Invalid argument\n", caught_.Text());
}

TEST_F(NoConversionTest, NothingIsConvertedOrClosed) {
  conversions.clear();
  openConverters = 0;
  recordOpened = true;
  FromUtf8("a");
  FromUtf16({'a'});
  Utf8Of("a");
  Utf16Of("a", 0);
  recordOpened = false;
  EXPECT_TRUE(conversions.empty());
  EXPECT_EQ(0, openConverters);
}

TEST(EncodingTest, EachCallOpensItsOwnConverterByTheExactNamesAndClosesIt) {
  opened.clear();
  openConverters = 0;
  recordOpened = true;
  {
    CaughtStderr caught;
    FromUtf8("a");
    FromUtf16({'a'});
    Utf8Of("a");
    Utf16Of("a", 0);
    Utf16Of("\xff", 0);
    FromUtf8("\xff");
  }
  recordOpened = false;
  const std::vector<std::string> expected = {"UTF-8>GB2312",   "UCS-2LE>GB2312", "GB2312>UTF-8",
                                             "GB2312>UCS-2LE", "GB2312>UCS-2LE", "UTF-8>GB2312"};
  EXPECT_EQ(expected, opened);
  EXPECT_EQ(0, openConverters);
}

TEST(EncodingTest, AFailureLeavesNoTraceInTheNextCall) {
  CaughtStderr caught;
  FromUtf8("ab\xe4\xb8");
  EXPECT_EQ(kCharacter, FromUtf8(kCharacterUtf8));
  Utf8Of("\xd6");
  EXPECT_EQ(kCharacterUtf8, Utf8Of(kCharacter));
}

TEST(EncodingTest, SeveralThreadsConvertAtTheSameTime) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (int& count : wrong) {
    threads.emplace_back([&count] {
      for (int i = 0; i < 2000; ++i) count += FromUtf8(Utf8Of(kCharacter)) != kCharacter;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::vector<int>(4, 0), wrong);
}

// Every character of GB2312, against an independent codec's table.

struct Character {
  std::string gb, utf8;
};

std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return bytes;
}

// The table is that of code page 936, which differs from GB2312 in two characters: it has U+00B7 (middle dot) and
// U+2014 (em dash) where the C library's GB2312 has U+30FB (katakana middle dot) and U+2015 (horizontal bar).
std::string AsGb2312(const std::string& gb, const std::string& utf8) {
  if (gb == "\xa1\xa4" && utf8 == "\xc2\xb7") return "\xe3\x83\xbb";
  if (gb == "\xa1\xaa" && utf8 == "\xe2\x80\x94") return "\xe2\x80\x95";
  return utf8;
}

std::vector<Character> LoadGolden(std::vector<std::string>& unassigned) {
  std::vector<Character> characters;
  std::istringstream file(ReadFile(VQDB_GOLDEN_DIR "/gb2312.txt"));
  for (std::string line; std::getline(file, line);) {
    if (line[0] == '#') continue;
    std::istringstream cells(line);
    std::string lead, cell;
    cells >> lead;
    for (int trail = 0xa1; cells >> cell; ++trail) {
      const std::string gb = FromHex(lead) + static_cast<char>(trail);
      if (cell == "-") {
        unassigned.push_back(gb);
      } else {
        characters.push_back({gb, AsGb2312(gb, FromHex(cell))});
      }
    }
  }
  return characters;
}

// UTF-8 of two or three bytes, as all of GB2312 has it.
unsigned short UnitOf(const std::string& utf8) {
  const auto bits = [&](size_t i, int mask) { return static_cast<unsigned char>(utf8[i]) & mask; };
  const int code =
      utf8.size() == 2 ? bits(0, 0x1f) << 6 | bits(1, 0x3f) : bits(0, 0x0f) << 12 | bits(1, 0x3f) << 6 | bits(2, 0x3f);
  return static_cast<unsigned short>(code);
}

class Gb2312Test : public testing::Test {
 protected:
  Gb2312Test() : characters_(LoadGolden(unassigned_)) {}
  std::vector<std::string> unassigned_;
  std::vector<Character> characters_;
};

TEST_F(Gb2312Test, TheTableHoldsAllOfGb2312) { EXPECT_EQ(7445u, characters_.size()); }

TEST_F(Gb2312Test, EveryCharacterConvertsBothWaysAlone) {
  for (const Character& c : characters_) {
    EXPECT_EQ(c.utf8, Utf8Of(c.gb));
    EXPECT_EQ(c.gb, FromUtf8(c.utf8));
    const std::vector<unsigned short> unit{UnitOf(c.utf8)};
    EXPECT_EQ(unit, Utf16Of(c.gb, 2));
    EXPECT_EQ(c.gb, FromUtf16(unit));
  }
}

TEST_F(Gb2312Test, AllCharactersConvertBothWaysInOneText) {
  std::string gb, utf8;
  std::vector<unsigned short> units;
  for (const Character& c : characters_) {
    gb += c.gb;
    utf8 += c.utf8;
    units.push_back(UnitOf(c.utf8));
  }
  EXPECT_EQ(utf8, Utf8Of(gb));
  EXPECT_EQ(gb, FromUtf8(utf8));
  EXPECT_EQ(units, Utf16Of(gb, 0));
  EXPECT_EQ(gb, FromUtf16(units));
}

TEST_F(Gb2312Test, TheDotAndDashOfCodePage936DoNotConvert) {
  for (const char* utf8 : {"a\xc2\xb7", "a\xe2\x80\x94"}) {
    CaughtStderr caught;
    EXPECT_EQ("a", FromUtf8(utf8));
    EXPECT_EQ("FromUtf8:iconv:: "s + kIllegal, caught.Text());
  }
}

TEST_F(Gb2312Test, UnassignedPlacesDoNotConvert) {
  ASSERT_FALSE(unassigned_.empty());
  CaughtStderr caught;
  for (const std::string& gb : unassigned_) EXPECT_EQ("a", Utf8Of("a" + gb));
}

// While nothing else of this program has converted anything: in a process that has, the converters may be loaded.
TEST(EncodingDescriptors, ConvertersThatAreKeptNeedNoDescriptor) {
  KeepConvertersLoaded();
  rlimit old{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
  const rlimit none{0, old.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
  EXPECT_EQ(kCharacterUtf8, Utf8Of(kCharacter));
  EXPECT_EQ(kCharacter, FromUtf8(kCharacterUtf8));
  EXPECT_EQ(kCharacter, FromUtf16({0x4E2D}));
  EXPECT_EQ((std::vector<unsigned short>{0x4E2D}), Utf16Of(kCharacter, 0));
  setrlimit(RLIMIT_NOFILE, &old);
}

}  // namespace
