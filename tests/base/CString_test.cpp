#include "base/CString.h"

#include <gtest/gtest.h>

#include <vector>

#include "base/Encoding.h"

namespace {

using namespace std::string_literals;

CString Text(const std::string& bytes) { return CString(bytes); }

TEST(CStringTest, AllConstructorsGiveTheBytesTheyWereGiven) {
  EXPECT_EQ("", CString());
  EXPECT_EQ("abc", CString("abc"));
  EXPECT_EQ("", CString(static_cast<const char*>(nullptr)));
  EXPECT_EQ("a\0b"s, CString("a\0bc", 3));
  EXPECT_EQ("moved", CString(std::string("moved")));
  const unsigned short units[] = {'a', 'b'};
  EXPECT_EQ("ab", CString(units, 2));
}

struct TrimCase {
  std::string text, left, right, both;
};

TEST(CStringTest, TrimByOneByteErasesTheRunAtThatEndOnly) {
  const TrimCase cases[] = {
      {"xxab", "ab", "xxab", "ab"},
      {"xxx", "", "", ""},
      {"abxx", "abxx", "ab", "ab"},
      {"xaxbx", "axbx", "xaxb", "axb"},
      {"", "", "", ""},
      {"ab", "ab", "ab", "ab"},
      {"x", "", "", ""},
      {"\0x"s, "\0x"s, "\0"s, "\0"s},
  };
  for (const TrimCase& c : cases) {
    CString left = Text(c.text), right = Text(c.text), both = Text(c.text);
    left.TrimLeft('x');
    right.TrimRight('x');
    both.Trim('x');
    EXPECT_EQ(c.left, left) << c.text;
    EXPECT_EQ(c.right, right) << c.text;
    EXPECT_EQ(c.both, both) << c.text;
  }
}

TEST(CStringTest, TrimByASetErasesEveryMemberAtThatEnd) {
  const TrimCase cases[] = {
      {" \t a b \t", "a b \t", " \t a b", "a b"},
      {" \t ", "", "", ""},
      {"", "", "", ""},
      {"ab", "ab", "ab", "ab"},
  };
  for (const TrimCase& c : cases) {
    CString left = Text(c.text), right = Text(c.text), both = Text(c.text);
    left.TrimLeft(" \t");
    right.TrimRight(" \t");
    both.Trim(" \t");
    EXPECT_EQ(c.left, left) << c.text;
    EXPECT_EQ(c.right, right) << c.text;
    EXPECT_EQ(c.both, both) << c.text;
  }
}

TEST(CStringTest, AZeroByteInTheTextIsAMemberOfEverySet) {
  CString left = Text("\0 \0ab"s), right = Text("ab\0 \0"s), both = Text("\0ab\0"s);
  left.TrimLeft(" ");
  right.TrimRight(" ");
  both.Trim("");
  EXPECT_EQ("ab", left);
  EXPECT_EQ("ab", right);
  EXPECT_EQ("ab", both);
}

TEST(CStringTest, BytesAbove127TrimLikeAnyOther) {
  CString byByte(
      "\xb0\xb0"
      "ab"),
      bySet(
          "\xff"
          "ab\xb0");
  byByte.TrimLeft('\xb0');
  bySet.Trim("\xb0\xff");
  EXPECT_EQ("ab", byByte);
  EXPECT_EQ("ab", bySet);
}

TEST(CStringTest, ANullSetTrimsNothing) {
  CString text = Text("\0a\0"s);
  text.Trim(static_cast<const char*>(nullptr));
  EXPECT_EQ("\0a\0"s, text);
}

struct ReplaceCase {
  std::string text;
  const char *oldText, *newText;
  std::string result;
  int count;
};

TEST(CStringTest, ReplaceGoesFromLeftToRightAndNeverSearchesInsertedText) {
  const ReplaceCase cases[] = {
      {"aaa", "a", "aa", "aaaaaa", 3},
      {"aaa", "aa", "a", "aa", 1},
      {"aaaa", "aa", "b", "bb", 2},
      {"abab", "b", "", "aa", 2},
      {"xaby", "ab", "b", "xby", 1},
      {"aab", "ab", "b", "ab", 1},  // the "ab" that the insertion completes is not found again
      {"abc", "d", "x", "abc", 0},
      {"abc", "abcd", "x", "abc", 0},
      {"", "a", "b", "", 0},
      {"a\0a"s, "a", "b", "b\0b"s, 2},
  };
  for (const ReplaceCase& c : cases) {
    CString text = Text(c.text);
    EXPECT_EQ(c.count, text.Replace(c.oldText, c.newText)) << c.text;
    EXPECT_EQ(c.result, text) << c.text;
  }
}

TEST(CStringTest, ReplaceOfAnEmptyOrNullTextReplacesNothing) {
  CString text("abc");
  EXPECT_EQ(0, text.Replace("", "x"));
  EXPECT_EQ(0, text.Replace(nullptr, "x"));
  EXPECT_EQ("abc", text);
}

TEST(CStringTest, ReplaceByNullErases) {
  CString text("abcb");
  EXPECT_EQ(2, text.Replace("b", nullptr));
  EXPECT_EQ("ac", text);
}

TEST(CStringTest, ReplaceTakesItsArgumentsFromTheTextItself) {
  CString text("ab-b");
  EXPECT_EQ(1, text.Replace(text.c_str(), text.c_str() + 3));
  EXPECT_EQ("b", text);
  CString grown("a-b");
  EXPECT_EQ(1, grown.Replace("-", grown.c_str()));
  EXPECT_EQ("aa-bb", grown);
}

TEST(CStringTest, RemoveErasesEveryOccurrenceAndCountsThem) {
  CString text("a-b--c"), empty, none("abc"), all("---"), zeros = Text("a\0b\0"s);
  EXPECT_EQ(3, text.Remove('-'));
  EXPECT_EQ("abc", text);
  EXPECT_EQ(0, empty.Remove('-'));
  EXPECT_EQ(0, none.Remove('-'));
  EXPECT_EQ("abc", none);
  EXPECT_EQ(3, all.Remove('-'));
  EXPECT_EQ("", all);
  EXPECT_EQ(2, zeros.Remove('\0'));
  EXPECT_EQ("ab", zeros);
}

struct Step {
  std::string token;
  int pos;
};

void ExpectTokens(const std::string& text, const char* delims, const std::vector<Step>& steps) {
  const CString source = Text(text);
  int pos = 0;
  for (const Step& step : steps) {
    EXPECT_EQ(step.token, source.Tokenize(delims, pos)) << text;
    EXPECT_EQ(step.pos, pos) << text;
  }
}

TEST(CStringTest, TokenizeSkipsRunsOfDelimiters) {
  ExpectTokens(",,a,,b,", ",", {{"a", 4}, {"b", 7}, {"", -1}, {"", -1}});
}

TEST(CStringTest, TokenizeLeavesPosOnePastTheEndBehindALastToken) { ExpectTokens("ab", ",", {{"ab", 3}, {"", -1}}); }

TEST(CStringTest, TokenizeWithSeveralDelimiters) {
  ExpectTokens("a, b;c", ",; ", {{"a", 2}, {"b", 5}, {"c", 7}, {"", -1}});
}

TEST(CStringTest, TokenizeEndsWhereOnlyDelimitersRemain) {
  ExpectTokens(",,,", ",", {{"", -1}});
  ExpectTokens("a,,", ",", {{"a", 2}, {"", -1}});
  ExpectTokens("", ",", {{"", -1}});
}

TEST(CStringTest, TokenizeWithoutDelimitersNeverYieldsTextAndStays) {
  const CString text("abc");
  for (const char* delims : {"", static_cast<const char*>(nullptr)}) {
    for (int start : {0, 2}) {
      int pos = start;
      EXPECT_EQ("", text.Tokenize(delims, pos));
      EXPECT_EQ(start, pos);
    }
    int end = 3;
    EXPECT_EQ("", text.Tokenize(delims, end));
    EXPECT_EQ(-1, end);
  }
}

TEST(CStringTest, TokenizeLeavesANegativePositionAsItIs) {
  for (const char* delims : {",", ""}) {
    int pos = -7;
    EXPECT_EQ("", CString("abc").Tokenize(delims, pos));
    EXPECT_EQ(-7, pos);
  }
}

TEST(CStringTest, TokenizeFromBehindTheEndGivesMinusOne) {
  int pos = 4;
  EXPECT_EQ("", CString("abc").Tokenize(",", pos));
  EXPECT_EQ(-1, pos);
}

TEST(CStringTest, TokenizeEndsATokenAtAZeroByteWithoutSkippingIt) {
  ExpectTokens("a\0b"s, ",", {{"a", 2}, {"b", 4}, {"", -1}});
  ExpectTokens("\0b"s, ",", {{"", 1}, {"b", 3}, {"", -1}});
}

TEST(StrlwrTest, LowersOnlyAsciiCapitals) {
  char text[] = "ABC-Zz@[`{09";
  _strlwr(text);
  EXPECT_STREQ("abc-zz@[`{09", text);
}

TEST(StrlwrTest, LeavesEveryByteOfDoubleByteCharacters) {
  for (int lead = 0x80; lead <= 0xff; ++lead) {
    const char byte = static_cast<char>(lead);
    char text[] = {byte, byte, 'A', '\0'};
    _strlwr(text);
    EXPECT_EQ(std::string({byte, byte, 'a'}), text);
  }
}

TEST(StrlwrTest, StopsAtTheFirstZeroByteAndTakesNull) {
  char text[] = {'A', '\0', 'B', '\0'};
  _strlwr(text);
  EXPECT_EQ("a\0B"s, std::string(text, 3));
  _strlwr(nullptr);
}

}  // namespace
