#include "base/InitStringList.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "BaseTools.h"

namespace {

int readsBeforeError = -1;  // not -1: so many reads of the code under test work, the next ones fail with EIO

}  // namespace

// The program is linked with --wrap=read.
extern "C" ssize_t __real_read(int fd, void* buf, size_t n);
extern "C" ssize_t __wrap_read(int fd, void* buf, size_t n) {
  if (readsBeforeError == 0) {
    errno = EIO;
    return -1;
  }
  if (readsBeforeError > 0) --readsBeforeError;
  return __real_read(fd, buf, n);
}

namespace {

using namespace std::string_literals;
using Lines = std::vector<CString>;

class InitStringListTest : public testing::Test {
 protected:
  Lines Load(const std::string& bytes) {
    Lines lines;
    InitStringList(dir_.Write("list", bytes).c_str(), lines);
    return lines;
  }
  TempDir dir_;
};

const std::string kGb = "\xd6\xd0";        // one character in GB2312
const std::string kUtf8 = "\xe4\xb8\xad";  // and in UTF-8
std::string Repeat(const std::string& text, int count) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

TEST_F(InitStringListTest, EmptyLinesTakeNoPlaceAndTheLastLineNeedsNoEnd) {
  EXPECT_EQ((Lines{"a", "b", "c"}), Load("a\r\n\r\nb\nc"));
  EXPECT_EQ((Lines{"a", "b", "c"}), Load("a\nb\r\nc\n"));
}

TEST_F(InitStringListTest, AFinalCrIsDroppedWithoutALineFeedToo) { EXPECT_EQ((Lines{"x"}), Load("x\r")); }

TEST_F(InitStringListTest, OneCrIsDroppedAndOnlyAtTheEnd) { EXPECT_EQ((Lines{"a\r", "b\rc"}), Load("a\r\r\nb\rc\n")); }

TEST_F(InitStringListTest, AFileWithoutEntriesAddsNothing) {
  for (const char* bytes : {"", "\n", "\r", "\r\n\r\n", "\n\n\r"}) EXPECT_EQ(Lines{}, Load(bytes));
}

TEST_F(InitStringListTest, ALineCountsUpToItsFirstZeroByte) { EXPECT_EQ((Lines{"ab", "d"}), Load("ab\0c\n\0x\nd\n"s)); }

TEST_F(InitStringListTest, NothingIsTrimmedOrUnquoted) {
  EXPECT_EQ((Lines{" a\t", "#b", "\"c\""}), Load(" a\t\n#b\n\"c\"\n"));
}

TEST_F(InitStringListTest, LinesAreConvertedToUtf8) {
  EXPECT_EQ((Lines{kUtf8, "a" + kUtf8}), Load(kGb + "\r\na" + kGb + "\n"));
}

TEST_F(InitStringListTest, AnUnconvertibleLineKeepsItsPlaceWithWhatPrecedesTheBadByte) {
  CaughtStderr caught;
  EXPECT_EQ((Lines{"a", "", "c"}), Load("a\xff"
                                        "b\n\xff\nc\n"));
}

TEST_F(InitStringListTest, AListWithEntriesIsLeftAsItIs) {
  Lines lines;
  const std::string path = dir_.Write("list", "a\nb\n");
  InitStringList(path.c_str(), lines);
  dir_.Write("list", "c\n");
  InitStringList(path.c_str(), lines);
  EXPECT_EQ((Lines{"a", "b"}), lines);
}

TEST_F(InitStringListTest, AFullListsFileIsNotLookedAt) {
  CaughtStderr caught;
  Lines lines = {""};
  InitStringList((dir_ / "\xff").c_str(), lines);
  EXPECT_EQ(Lines{""}, lines);
  EXPECT_EQ("", caught.Text()) << "not even its path was converted";
}

TEST_F(InitStringListTest, AMissingFileLeavesTheListEmpty) {
  Lines lines;
  InitStringList((dir_ / "missing").c_str(), lines);
  InitStringList(nullptr, lines);
  EXPECT_EQ(Lines{}, lines);
}

TEST_F(InitStringListTest, AReadErrorEndsTheListAsTheEndDoes) {
  Lines lines;
  InitStringList((dir_ / "").c_str(), lines);  // a directory opens, and each read fails
  EXPECT_EQ(Lines{}, lines);
}

TEST_F(InitStringListTest, AReadErrorInsideALineKeepsWhatWasReadOfIt) {
  const std::string path = dir_.Write("list", "a\nbcd\ne\n");
  readsBeforeError = 4;
  Lines lines;
  InitStringList(path.c_str(), lines);
  readsBeforeError = -1;
  EXPECT_EQ((Lines{"a", "bc"}), lines);
}

TEST_F(InitStringListTest, ThePathIsGb2312) {
  Lines lines;
  dir_.Write(kUtf8, "a\n");
  InitStringList((dir_ / kGb).c_str(), lines);
  EXPECT_EQ((Lines{"a"}), lines);
}

TEST_F(InitStringListTest, ALineOf255BytesIsKeptWhole) {
  const std::string line = Repeat("x", 254) + "y";
  for (const char* end : {"", "\n", "\r\n", "\r"}) EXPECT_EQ(Lines{line}, Load(line + end));
  EXPECT_EQ((Lines{line, "b"}), Load(line + "\r\nb\n"));
}

TEST_F(InitStringListTest, ALongerLineKeepsItsFirst255BytesAndLaterLinesTheirPlaces) {
  const std::string kept = Repeat("x", 254) + "y";
  for (int more : {1, 2, 255, 256, 257, 5000}) {
    EXPECT_EQ((Lines{kept, "b"}), Load(kept + Repeat("z", more) + "\r\nb\r\n")) << more;
    EXPECT_EQ((Lines{"a", kept}), Load("a\n" + kept + Repeat("z", more))) << more;
  }
}

TEST_F(InitStringListTest, ACrInsideALongLineIsAByteLikeOthers) {
  const std::string kept = Repeat("x", 254) + "\r";
  EXPECT_EQ(Lines{kept}, Load(kept + "more\n"));
  EXPECT_EQ(Lines{kept}, Load(kept + "\r\n"));
}

TEST_F(InitStringListTest, ALongLineIsCutBackToAWholeCharacter) {
  CaughtStderr caught;
  EXPECT_EQ((Lines{Repeat(kUtf8, 127), "b"}), Load(Repeat(kGb, 128) + "\nb\n"));
  EXPECT_EQ((Lines{"x" + Repeat(kUtf8, 127)}), Load("x" + Repeat(kGb, 128) + "\n"));
  EXPECT_EQ((Lines{"xy" + Repeat(kUtf8, 126)}), Load("xy" + Repeat(kGb, 128) + "\n"));
  EXPECT_EQ("", caught.Text()) << "no half character is left to complain about";
}

TEST_F(InitStringListTest, AListEndsWithTheLastEntryThatAnIndexReaches) {
  const std::string full = Repeat("a\n", 65534) + "b\n";
  Lines list = Load(full + "c");
  ASSERT_EQ(65536u, list.size());
  EXPECT_EQ("b", list[65534]);
  EXPECT_EQ("c", list[65535]);
  list = Load(full + "c\nd\n");
  ASSERT_EQ(65536u, list.size());
  EXPECT_EQ("c", list[65535]);
}

TEST_F(InitStringListTest, ManyLinesLeaveNoDescriptorOpen) {
  const int before = open("/dev/null", 0);
  close(before);
  EXPECT_EQ(1000u, Load(Repeat("line\n", 1000)).size());
  const int after = open("/dev/null", 0);
  close(after);
  EXPECT_EQ(before, after);
}

}  // namespace
