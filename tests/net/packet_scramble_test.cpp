#include "net/PacketScramble.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/HandshakeScript.h"
#include "support/HexBytes.h"

namespace {

const unsigned char* Bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

// The output room is exactly cap bytes, so that a write behind it shows.
std::string Encrypt(const std::string& plain, unsigned int cap) {
  std::vector<unsigned char> out(cap, 0xEE);
  const unsigned int n = EncryptPacket(static_cast<unsigned int>(plain.size()), Bytes(plain), cap, out.data());
  EXPECT_LE(n, cap);
  for (size_t i = n; i < out.size(); ++i) EXPECT_EQ(0xEE, out[i]) << "written behind the result, at " << i;
  return std::string(out.begin(), out.begin() + n);
}

std::string Decrypt(const std::string& wire, unsigned int cap) {
  std::vector<unsigned char> out(cap, 0xEE);
  const unsigned int n = DecryptPacket(static_cast<unsigned int>(wire.size()), Bytes(wire), cap, out.data());
  EXPECT_LE(n, cap);
  return std::string(out.begin(), out.begin() + n);
}

std::string Ascending(size_t len) {
  std::string text;
  for (size_t i = 0; i < len; ++i) text += static_cast<char>(i * 37 + 200);
  return text;
}

}  // namespace

TEST(EncryptPacket, ZeroBytesNeedRoomForABlockAndGiveNothing) {
  unsigned char out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
  srand(1);
  const int first = rand();
  srand(1);
  EXPECT_EQ(0u, EncryptPacket(0, nullptr, 4, out));
  EXPECT_EQ(0u, EncryptPacket(0, nullptr, 3, out));
  EXPECT_EQ(0xEE, out[0]);
  EXPECT_EQ(first, rand()) << "a random byte was drawn for nothing";
}

TEST(EncryptPacket, ThreeBytesNeedEightBytesOfRoomAndGiveFour) {
  EXPECT_EQ(0u, Encrypt("abc", 7).size());
  EXPECT_EQ(4u, Encrypt("abc", 8).size());
}

TEST(EncryptPacket, FourBytesGiveSixAndFiveGiveSeven) {
  EXPECT_EQ(6u, Encrypt("abcd", 8).size());
  EXPECT_EQ(7u, Encrypt("abcde", 8).size());
  EXPECT_EQ(0u, Encrypt("abcd", 7).size());
}

TEST(EncryptPacket, SixteenBytesGive22) { EXPECT_EQ(22u, Encrypt(Ascending(16), 511).size()); }

TEST(EncryptPacket, MasksEachBlockWithOneRandomByte) {
  srand(7);
  const int r0 = rand() & 0xFF;
  const int r1 = rand() & 0xFF;
  srand(7);
  std::string expected;
  for (const int value : {r0, 0x61 + r0, 0x62 - r0, 0x63 ^ r0, r1, 0xFF + r1, 0x00 - r1}) {
    expected += static_cast<char>(value & 0xFF);
  }
  EXPECT_EQ(ToHex(expected), ToHex(Encrypt(FromHex("61 62 63 FF 00"), 8)));
}

TEST(EncryptPacket, AgreesWithASecondReadingOfTheFormat) {
  for (size_t len = 1; len < 40; ++len) {
    const std::string plain = Ascending(len);
    EXPECT_EQ(ToHex(plain), ToHex(Unscrambled(Encrypt(plain, 512)))) << len;
    EXPECT_EQ(ToHex(plain), ToHex(Decrypt(Scrambled(plain, 0xC3), 512))) << len;
  }
}

TEST(EncryptPacket, TakesUpToMaxEncryptLenAndNoMore) {
  EXPECT_EQ(383u, MaxEncryptLen(512));
  EXPECT_EQ(511u, Encrypt(Ascending(383), 512).size());
  EXPECT_EQ(0u, Encrypt(Ascending(384), 512).size());
  for (unsigned int cap = 4; cap < 64; ++cap) {
    EXPECT_NE(0u, Encrypt(Ascending(MaxEncryptLen(cap)), cap).size()) << cap;
    EXPECT_EQ(0u, Encrypt(Ascending(MaxEncryptLen(cap) + 1), cap).size()) << cap;
  }
}

TEST(EncryptPacket, AHugeLengthIsRefusedAndNothingIsRead) {
  unsigned char out[512];
  EXPECT_EQ(0u, EncryptPacket(0xFFFFFFFFu, nullptr, 512, out));
  EXPECT_EQ(0u, EncryptPacket(0xFFFFFFFDu, nullptr, 512, out));
  EXPECT_EQ(0u, EncryptPacket(0xBFFFFFFFu, nullptr, 512, out));
}

TEST(DecryptPacket, GivesBackWhatWasEncryptedForEveryLengthAndMask) {
  for (int mask = 0; mask < 256; ++mask) {
    for (size_t len = 0; len < 20; ++len) {
      const std::string plain = Ascending(len);
      ASSERT_EQ(plain, Decrypt(Scrambled(plain, mask), 20)) << "mask " << mask << ", length " << len;
    }
  }
  for (unsigned int seed = 0; seed < 20; ++seed) {
    srand(seed);
    for (size_t len = 1; len <= 383; ++len) {
      const std::string plain = Ascending(len);
      ASSERT_EQ(plain, Decrypt(Encrypt(plain, 512), 383)) << "seed " << seed << ", length " << len;
    }
  }
}

TEST(DecryptPacket, ALoneRandomByteAtTheEndGivesZero) {
  EXPECT_EQ("", Decrypt("x", 512));
  EXPECT_EQ("", Decrypt(Scrambled("abc") + "x", 512));
  EXPECT_EQ("", Decrypt(Scrambled("abcdef") + "x", 512));
}

TEST(DecryptPacket, FullBlocksAreWrittenBeforeABadTailIsSeen) {
  const std::string wire = Scrambled("abc") + "x";
  unsigned char out[4] = {};
  EXPECT_EQ(0u, DecryptPacket(5, Bytes(wire), 4, out));
  EXPECT_STREQ("abc", reinterpret_cast<char*>(out));
}

TEST(DecryptPacket, NeedsRoomForTheBlocksAndForTheTail) {
  EXPECT_EQ("abcdef", Decrypt(Scrambled("abcdef"), 6));
  EXPECT_EQ("", Decrypt(Scrambled("abcdef"), 5));
  EXPECT_EQ("abcd", Decrypt(Scrambled("abcd"), 4));
  EXPECT_EQ("", Decrypt(Scrambled("abcd"), 3));
  EXPECT_EQ("abcde", Decrypt(Scrambled("abcde"), 5));
  EXPECT_EQ("", Decrypt(Scrambled("abcde"), 4));
}

TEST(DecryptPacket, WithoutRoomForTheBlocksWritesNothingAndWithoutRoomForTheTailTheBlocksOnly) {
  struct Case {
    const char* plain;
    unsigned int cap;
    const char* left;
  };
  for (const Case& c : {Case{"abcdef", 5, "......"}, Case{"abcd", 3, "abc..."}, Case{"abcde", 4, "abc..."},
                        Case{"abcde", 3, "abc..."}, Case{"ab", 1, "......"}}) {
    const std::string wire = Scrambled(c.plain);
    unsigned char out[] = "......";
    EXPECT_EQ(0u, DecryptPacket(static_cast<unsigned int>(wire.size()), Bytes(wire), c.cap, out)) << c.plain;
    EXPECT_STREQ(c.left, reinterpret_cast<char*>(out)) << c.plain << " in " << c.cap;
  }
}

TEST(DecryptPacket, TheLengthOfAFailedReceiveGivesZeroAndReadsNothing) {
  unsigned char out[512];
  EXPECT_EQ(0u, DecryptPacket(static_cast<unsigned int>(-1), nullptr, 512, out));
}

TEST(DecryptPacket, NothingGivesNothing) { EXPECT_EQ("", Decrypt("", 0)); }

TEST(MaxEncryptLen, UsesUnsignedArithmetic) {
  EXPECT_EQ(380u, MaxEncryptLen(511));
  EXPECT_EQ(2u, MaxEncryptLen(4));
  EXPECT_EQ(0xFFFFFFFFu, MaxEncryptLen(3));
  EXPECT_EQ(0xFFFFFFFFu, MaxEncryptLen(0));
}
