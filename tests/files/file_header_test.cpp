#include "files/FileHeader.h"

#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"

namespace {

// One line read from text, from position pos on, with buffers of exactly the promised room.
struct Line {
  Line(const std::string& text, int from = 0, int nameMax = kHeaderNameMax, int valueMax = kHeaderValueMax)
      : pos(from), nameRoom(static_cast<size_t>(nameMax) + 1, 'N'), valueRoom(static_cast<size_t>(valueMax) + 1, 'V') {
    const std::vector<char> bytes(text.begin(), text.end());
    result = ReadHttpCont(bytes.data(), pos, static_cast<int>(bytes.size()), nameRoom.data(), nameMax, valueRoom.data(),
                          valueMax);
  }
  std::string Name() const { return nameRoom.data(); }
  std::string Value() const { return valueRoom.data(); }

  int result;
  int pos;
  std::vector<char> nameRoom;
  std::vector<char> valueRoom;
};

struct Header {
  explicit Header(const std::string& text) {
    const std::vector<char> bytes(text.begin(), text.end());
    consumed = GetFileInfoByBuf(bytes.data(), static_cast<int>(bytes.size()), info);
  }
  SCFileInfo info;
  int consumed;
};

}  // namespace

TEST(ReadHttpCont, GivesNameAndValueAndMovesBehindTheLineEnd) {
  const Line line("Size: 1A\r\nExist:Yes\r\n");
  EXPECT_EQ(1, line.result);
  EXPECT_EQ("Size", line.Name());
  EXPECT_EQ("1A", line.Value());
  EXPECT_EQ(10, line.pos);
}

TEST(ReadHttpCont, ReadsOnFromAPosition) {
  const Line line("Size:1A\nExist:Yes\n", 8);
  EXPECT_EQ(1, line.result);
  EXPECT_EQ("Exist", line.Name());
  EXPECT_EQ(18, line.pos);
}

TEST(ReadHttpCont, DropsBlanksTabsAndReturnsEverywhere) {
  const Line line(" S\ti\rze : 1 \t\rA\r\n");
  EXPECT_EQ("Size", line.Name());
  EXPECT_EQ("1A", line.Value());
}

TEST(ReadHttpCont, DropsEveryLaterColon) {
  EXPECT_EQ("ab", Line("n:a:b\n").Value());
  EXPECT_EQ("ab", Line("n::a:b:\n").Value());
}

TEST(ReadHttpCont, ALineWithoutAColonIsANameAlone) {
  const Line line("name\n");
  EXPECT_EQ(1, line.result);
  EXPECT_EQ("name", line.Name());
  EXPECT_EQ("", line.Value());
}

TEST(ReadHttpCont, TheEmptyLineAndALineWithoutANameEndTheBlock) {
  EXPECT_EQ(0, Line("\r\nbody").result);
  EXPECT_EQ(2, Line("\r\nbody").pos);
  EXPECT_EQ(0, Line(": value\nbody").result);
  EXPECT_EQ(8, Line(": value\nbody").pos);
}

TEST(ReadHttpCont, EveryCutOfALineEndsAtTheLastByte) {
  const std::string whole = "Size: 1A\r";
  for (size_t len = 0; len <= whole.size(); ++len) {
    const Line line(whole.substr(0, len));
    EXPECT_EQ(0, line.result) << len;
    EXPECT_EQ(static_cast<int>(len), line.pos);
  }
}

TEST(ReadHttpCont, ANameMayHave63BytesAndNoMore) {
  const Line longest(std::string(63, 'n') + ":v\n");
  EXPECT_EQ(1, longest.result);
  EXPECT_EQ(std::string(63, 'n'), longest.Name());
  const Line longer(std::string(64, 'n') + ":v\n");
  EXPECT_EQ(0, longer.result);
  EXPECT_EQ(64, longer.pos) << "behind the byte that was too much";
}

TEST(ReadHttpCont, AValueMayHave255BytesAndNoMore) {
  const Line longest("n:" + std::string(255, 'v') + "\n");
  EXPECT_EQ(1, longest.result);
  EXPECT_EQ(std::string(255, 'v'), longest.Value());
  const Line longer("n:" + std::string(256, 'v') + "\n");
  EXPECT_EQ(0, longer.result);
  EXPECT_EQ(258, longer.pos);
}

TEST(ReadHttpCont, KeepsToOtherLimitsToo) {
  EXPECT_EQ(1, Line("ab:cde\n", 0, 2, 3).result);
  EXPECT_EQ(0, Line("abc:d\n", 0, 2, 3).result);
  EXPECT_EQ(0, Line("ab:cdef\n", 0, 2, 3).result);
  EXPECT_EQ(0, Line("a\n", 0, 0, 0).result);
}

TEST(ReadHttpCont, APositionOutsideTheBytesReadsNothing) {
  const Line behind("n:v\n", 4);
  EXPECT_EQ(0, behind.result);
  EXPECT_EQ(4, behind.pos);
  EXPECT_EQ("", behind.Name());
  const Line before("n:v\n", -1);
  EXPECT_EQ(0, before.result);
  EXPECT_EQ(-1, before.pos);
}

TEST(SCFileInfo, HasItsFieldsInTheOrderOfTheProtocol) {
  const SCFileInfo info{true, false, true, false, true, 0xFFFFFFFEu, 0xFFFFFFFFu, "name"};
  EXPECT_TRUE(info.useLast);
  EXPECT_FALSE(info.exist);
  EXPECT_TRUE(info.gz);
  EXPECT_FALSE(info.append);
  EXPECT_TRUE(info.hello);
  EXPECT_EQ(0xFFFFFFFEu, info.fileTime);
  EXPECT_EQ(0xFFFFFFFFu, info.size);
  EXPECT_EQ("name", info.fileName);
}

TEST(GetFileInfoByBuf, AHeaderThatSaysNothingHasTheDefaults) {
  const Header header("\r\nbody");
  EXPECT_EQ(2, header.consumed);
  EXPECT_FALSE(header.info.useLast);
  EXPECT_TRUE(header.info.exist);
  EXPECT_FALSE(header.info.gz);
  EXPECT_FALSE(header.info.append);
  EXPECT_FALSE(header.info.hello);
  EXPECT_EQ(0u, header.info.fileTime);
  EXPECT_EQ(0u, header.info.size);
  EXPECT_EQ("", header.info.fileName);
}

TEST(GetFileInfoByBuf, ReadsEveryHeaderAndStopsBehindTheEmptyLine) {
  const std::string text =
      "UseLast:Yes\r\nExist:No\r\nGZ:Yes\r\nAppend:Yes\r\nHello:Yes\r\nFileTime:65A0B1C2\r\nSize:1f\r\n"
      "FileName: my file.txt\r\n\r\n";
  const Header header(text + "body:Yes\r\n\r\n");
  EXPECT_EQ(static_cast<int>(text.size()), header.consumed);
  EXPECT_TRUE(header.info.useLast);
  EXPECT_FALSE(header.info.exist);
  EXPECT_TRUE(header.info.gz);
  EXPECT_TRUE(header.info.append);
  EXPECT_TRUE(header.info.hello);
  EXPECT_EQ(0x65A0B1C2u, header.info.fileTime);
  EXPECT_EQ(31u, header.info.size);
  EXPECT_EQ("myfile.txt", header.info.fileName);
}

TEST(GetFileInfoByBuf, NamesMatchInAnyCase) {
  EXPECT_EQ(26u, Header("size:1A\n\n").info.size);
  EXPECT_EQ(26u, Header("SIZE:1a\n\n").info.size);
  EXPECT_TRUE(Header("uSELAST:Yes\n\n").info.useLast);
}

TEST(GetFileInfoByBuf, AFlagIsTrueWhenItsValueBeginsWithYesInAnyCase) {
  for (const char* yes : {"Yes", "yes", "YES", "yEs", "Yesterday"}) {
    EXPECT_TRUE(Header(std::string("GZ:") + yes + "\n\n").info.gz) << yes;
  }
  for (const char* other : {"No", "Ye", "", "1", "true", "xYes"}) {
    EXPECT_FALSE(Header(std::string("GZ:") + other + "\n\n").info.gz) << other;
    EXPECT_FALSE(Header(std::string("Exist:") + other + "\n\n").info.exist) << other;
  }
}

TEST(GetFileInfoByBuf, EachFlagIsSetByItsOwnNameAloneAndClearedByAnyOtherValue) {
  const std::vector<std::pair<std::string, bool SCFileInfo::*>> flags = {{"UseLast", &SCFileInfo::useLast},
                                                                         {"Exist", &SCFileInfo::exist},
                                                                         {"GZ", &SCFileInfo::gz},
                                                                         {"Append", &SCFileInfo::append},
                                                                         {"Hello", &SCFileInfo::hello}};
  for (const auto& [name, field] : flags) {
    const Header set("Exist:No\n" + name + ":Yes\n\n");
    for (const auto& [other, otherField] : flags) EXPECT_EQ(other == name, set.info.*otherField) << name << other;
    EXPECT_FALSE(Header(name + ":Yes\n" + name + ":No\n\n").info.*field) << name;
  }
}

TEST(GetFileInfoByBuf, NamesMatchWhole) {
  const Header header("Siz:1\nSizes:2\nGZip:Yes\nGZ.:Yes\nTime:3\nFileTimes:4\n\n");
  EXPECT_EQ(0u, header.info.size);
  EXPECT_EQ(0u, header.info.fileTime);
  EXPECT_FALSE(header.info.gz);
}

TEST(GetFileInfoByBuf, FieldsThatNoLineNamesStayAsTheyWere) {
  SCFileInfo info;
  info.exist = false;
  info.size = 7;
  info.fileName = "kept";
  const std::string text = "GZ:Yes\n\n";
  EXPECT_EQ(8, GetFileInfoByBuf(text.data(), 8, info));
  EXPECT_FALSE(info.exist);
  EXPECT_TRUE(info.gz);
  EXPECT_EQ(7u, info.size);
  EXPECT_EQ("kept", info.fileName);
}

TEST(GetFileInfoByBuf, ARepeatedNameOverwritesAndUnknownOnesAreSkipped) {
  const Header header("Size:1\nColour:red\nSize:2\nHello:Yes\nHello:No\n\n");
  EXPECT_EQ(2u, header.info.size);
  EXPECT_FALSE(header.info.hello);
}

TEST(GetFileInfoByBuf, AValueWithAColonLosesIt) { EXPECT_EQ("ab", Header("FileName:a:b\n\n").info.fileName); }

TEST(GetFileInfoByBuf, NumbersAreHexadecimalOf32Bits) {
  EXPECT_EQ(0xFFFFFFFFu, Header("Size:FFFFFFFF\n\n").info.size);
  EXPECT_EQ(0xFFFFFFFFu, Header("Size:100000000\n\n").info.size);
  EXPECT_EQ(0xFFFFFFFFu, Header("Size:FFFFFFFFFFFFFFFFFFFF\n\n").info.size);
  EXPECT_EQ(0x10u, Header("FileTime:0x10\n\n").info.fileTime);
  EXPECT_EQ(0u, Header("Size:\n\n").info.size);
  EXPECT_EQ(0u, Header("Size:none\n\n").info.size);
  EXPECT_EQ(0xAu, Header("Size:Axyz\n\n").info.size);
}

TEST(GetFileInfoByBuf, NegativeNumbersAreTakenModulo32Bits) {
  EXPECT_EQ(0xFFFFFFFFu, Header("Size:-1\n\n").info.size);
  EXPECT_EQ(0xFFFFFFFEu, Header("Size: \v-2\n\n").info.size);
  EXPECT_EQ(1u, Header("Size:-FFFFFFFF\n\n").info.size);
  EXPECT_EQ(0xFFFFFFFFu, Header("Size:-100000000\n\n").info.size);
  EXPECT_EQ(0xFFFFFFFFu, Header("Size:-FFFFFFFFFFFFFFFFFFFF\n\n").info.size);
  EXPECT_EQ(0u, Header("Size:-0\n\n").info.size);
  EXPECT_EQ(0u, Header("Size:-+5\n\n").info.size);
  EXPECT_EQ(5u, Header("Size:+5\n\n").info.size);
}

TEST(GetFileInfoByBuf, ACutHeaderIsConsumedWholeAndItsWholeLinesCount) {
  const std::string text = "Size:10\r\nFileTime:20\r\n\r\n";
  for (size_t len = 0; len < text.size(); ++len) {
    const Header header(text.substr(0, len));
    EXPECT_EQ(static_cast<int>(len), header.consumed);
    EXPECT_EQ(len >= 9 ? 0x10u : 0u, header.info.size) << len;
    EXPECT_EQ(len >= 22 ? 0x20u : 0u, header.info.fileTime) << len;
  }
}

TEST(GetFileInfoByBuf, ALineTooLongEndsTheHeaderInsideIt) {
  const Header header("Size:10\n" + std::string(80, 'n') + ":v\nGZ:Yes\n\n");
  EXPECT_EQ(8 + 64, header.consumed);
  EXPECT_EQ(0x10u, header.info.size);
  EXPECT_FALSE(header.info.gz);
}

TEST(GetFileInfoByBuf, AnyBytesAreReadWithinTheirEnd) {
  for (int value = 0; value < 256; ++value) {
    const Header header(std::string(2048, static_cast<char>(value)));
    EXPECT_LE(header.consumed, 2048);
    EXPECT_GE(header.consumed, 1);
  }
}
