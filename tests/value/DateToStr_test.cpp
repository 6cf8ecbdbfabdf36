#include "value/DateToStr.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

struct Formatted {
  std::string text;
  int count;
  bool operator==(const Formatted&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Formatted& f) { return out << f.text << " / " << f.count; }

// 2024-03-05 07:08:09
Formatted Format(const char* pattern) {
  CString out("old");
  const int count = DateToStr(2024, 3, 5, 7, 8, 9, pattern, out);
  return {out, count};
}

TEST(DateToStrTest, PlainAndPaddedTokensMix) {
  EXPECT_EQ((Formatted{"2024-03-05 07:08:09", 1}), Format("$Y-$2M-$2D $2h:$2m:$2s"));
}

TEST(DateToStrTest, EveryPlainTokenPrintsThePlainNumber) {
  EXPECT_EQ((Formatted{"2024 3 5 7 8 9", 1}), Format("$Y $M $D $h $m $s"));
}

TEST(DateToStrTest, EveryPaddedTokenPrintsTwoDigits) {
  EXPECT_EQ((Formatted{"2024 03 05 07 08 09", 1}), Format("$2Y $2M $2D $2h $2m $2s"));
}

TEST(DateToStrTest, EveryOccurrenceIsReplaced) {
  EXPECT_EQ((Formatted{"99/5-5/07+07", 2}), Format("$s$s/$D-$D/$2h+$2h"));
}

TEST(DateToStrTest, APlainTokenLeavesThePaddedOneStanding) {
  const std::pair<const char*, const char*> rows[] = {
      {"$Y/$2Y", "2024/$2Y"}, {"$M/$2M", "3/$2M"}, {"$2D/$D", "$2D/5"},
      {"$h/$2h", "7/$2h"},    {"$m/$2m", "8/$2m"}, {"$s/$2s", "9/$2s"},
  };
  for (const auto& [pattern, text] : rows) EXPECT_EQ(text, Format(pattern).text);
}

TEST(DateToStrTest, TheResultCountsTheSecondsAlone) {
  EXPECT_EQ((Formatted{"2024", 0}), Format("$Y"));
  EXPECT_EQ((Formatted{"2024 2024 8", 0}), Format("$Y $Y $m"));
  EXPECT_EQ((Formatted{"9 9 9", 3}), Format("$s $s $s"));
  EXPECT_EQ((Formatted{"09 09", 2}), Format("$2s $2s"));
  EXPECT_EQ((Formatted{"", 0}), Format(""));
}

// A field's number may complete a padded token: "$$YM" with a year of 2 becomes "$2M". A later field takes that up.
TEST(DateToStrTest, TheFieldsAreReplacedFromTheYearToTheSecond) {
  const std::string letters = "YMDhms";
  for (size_t first = 0; first < letters.size(); ++first) {
    for (size_t second = first + 1; second < letters.size(); ++second) {
      int fields[] = {7, 7, 7, 7, 7, 7};
      const auto format = [&fields](const std::string& pattern) {
        CString out;
        DateToStr(fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], pattern, out);
        return std::string(out);
      };
      fields[first] = 2;
      EXPECT_EQ("07", format(std::string("$$") + letters[first] + letters[second]));
      fields[first] = 7;
      fields[second] = 2;
      EXPECT_EQ(std::string("$2") + letters[first], format(std::string("$$") + letters[second] + letters[first]));
    }
  }
}

TEST(DateToStrTest, MonthAndMinuteDifferInCaseOnly) { EXPECT_EQ((Formatted{"3 8", 0}), Format("$M $m")); }

TEST(DateToStrTest, UnknownTokensStay) { EXPECT_EQ((Formatted{"$X $3Y $", 0}), Format("$X $3Y $")); }

TEST(DateToStrTest, TheYearIsPaddedWithBlanksAndTheRestWithZeros) {
  CString out;
  EXPECT_EQ(1, DateToStr(5, 1, 2, 3, 4, 0, "$2Y|$2M|$2D|$2h|$2m|$2s", out));
  EXPECT_EQ(" 5|01|02|03|04|00", out);
  DateToStr(12345, 10, 11, 12, 13, 14, "$2Y|$2M|$2D|$2h|$2m|$2s", out);
  EXPECT_EQ("12345|10|11|12|13|14", out);
}

TEST(DateToStrTest, TheWidestNumbersFit) {
  CString out;
  DateToStr(INT_MIN, INT_MAX, -1, 0, 0, 0, "$Y $M $2D", out);
  EXPECT_EQ("-2147483648 2147483647 -1", out);
}

TEST(DateToStrTest, ThePatternMayBeTheOutput) {
  CString text("$Y$2s");
  EXPECT_EQ(1, DateToStr(2024, 3, 5, 7, 8, 9, text, text));
  EXPECT_EQ("202409", text);
}

}  // namespace
