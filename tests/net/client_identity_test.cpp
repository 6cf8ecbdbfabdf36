#include "net/ClientIdentity.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "base/Wire.h"
#include "gtest/gtest.h"
#include "support/HexBytes.h"

TEST(CoCreateGuid, IsMadeOfTheClockAndTheRandomNumbersThatFollowFromIt) {
  _GUID guid{};
  const auto before = static_cast<uint32_t>(time(nullptr));
  CoCreateGuid(&guid);
  const auto after = static_cast<uint32_t>(time(nullptr));
  EXPECT_GE(guid.Data1, before);
  EXPECT_LE(guid.Data1, after);
  srand(guid.Data1);
  EXPECT_EQ(static_cast<uint16_t>(rand()), guid.Data2);
  EXPECT_EQ(static_cast<uint16_t>(rand()), guid.Data3);
  EXPECT_GE(wire::LoadU32(guid.Data4), guid.Data1);
  EXPECT_LE(wire::LoadU32(guid.Data4), after + 1);
  EXPECT_LT(wire::LoadU32(guid.Data4 + 4), 1000000u);
}

TEST(CoCreateGuid, SeedsTheRandomGeneratorForThePacketsThatFollow) {
  _GUID guid{};
  CoCreateGuid(&guid);
  const int third = rand();
  srand(guid.Data1);
  rand();
  rand();
  EXPECT_EQ(rand(), third);
}

TEST(CoCreateGuid, TwoWithinOneSecondDifferInTheMicrosecondsOnly) {
  _GUID one{};
  _GUID two{};
  do {  // once more when the second changed in between
    CoCreateGuid(&one);
    do CoCreateGuid(&two);
    while (std::memcmp(one.Data4, two.Data4, sizeof one.Data4) == 0);
  } while (one.Data1 != two.Data1);
  EXPECT_EQ(one.Data2, two.Data2);
  EXPECT_EQ(one.Data3, two.Data3);
  EXPECT_NE(0, std::memcmp(one.Data4, two.Data4, sizeof one.Data4));
}

TEST(Guid, HasTheUsualLayoutOf16Bytes) {
  EXPECT_EQ(16u, sizeof(_GUID));
  EXPECT_EQ(4u, offsetof(_GUID, Data2));
  EXPECT_EQ(6u, offsetof(_GUID, Data3));
  EXPECT_EQ(8u, offsetof(_GUID, Data4));
}

TEST(GuidToBytes, WritesTheFieldsLittleEndianAndData4AsStored) {
  const _GUID guid{0x11223344u, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
  uint8_t out[kGuidBytes + 1] = {};
  out[kGuidBytes] = 0xEE;
  GuidToBytes(guid, out);
  EXPECT_EQ("44 33 22 11 66 55 88 77 01 02 03 04 05 06 07 08",
            ToHex(std::string(reinterpret_cast<char*>(out), kGuidBytes)));
  EXPECT_EQ(0xEE, out[kGuidBytes]);
}

TEST(GetGatewayMac, WritesSixZeroBytesWhateverTheAddress) {
  unsigned char mac[kMacBytes + 1];
  std::memset(mac, 0xEE, sizeof mac);
  GetGatewayMac(0x0100007Fu, mac);
  for (int i = 0; i < kMacBytes; ++i) EXPECT_EQ(0, mac[i]);
  EXPECT_EQ(0xEE, mac[kMacBytes]);
}
