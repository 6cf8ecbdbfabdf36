#include "base/Wire.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

namespace {

// One byte in front, so that no integer lies on an aligned address.
constexpr uint8_t kBytes[] = {0, 0x81, 0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf8};

// The bytes that store writes at an odd address, with what stands in front and behind.
template <size_t kSize, class Store>
std::string Stored(Store store) {
  std::array<uint8_t, kSize + 2> room;
  room.fill(0x11);
  store(room.data() + 1);
  return std::string(room.begin(), room.end());
}

TEST(WireTest, IntegersAreReadWithTheirLowestByteFirst) {
  EXPECT_EQ(0x9281u, wire::LoadU16(kBytes + 1));
  EXPECT_EQ(0xb4a39281u, wire::LoadU32(kBytes + 1));
  EXPECT_EQ(0xf8e7d6c5b4a39281u, wire::LoadU64(kBytes + 1));
}

TEST(WireTest, ABigEndianIntegerIsReadWithItsHighestByteFirst) { EXPECT_EQ(0x8192a3b4u, wire::LoadU32BE(kBytes + 1)); }

TEST(WireTest, IntegersAreWrittenWithTheirLowestByteFirst) {
  EXPECT_EQ("\x11\x81\x92\x11", Stored<2>([](uint8_t* p) { wire::StoreU16(p, 0x9281); }));
  EXPECT_EQ("\x11\x81\x92\xa3\xb4\x11", Stored<4>([](uint8_t* p) { wire::StoreU32(p, 0xb4a39281); }));
  EXPECT_EQ("\x11\x81\x92\xa3\xb4\xc5\xd6\xe7\xf8\x11",
            Stored<8>([](uint8_t* p) { wire::StoreU64(p, 0xf8e7d6c5b4a39281); }));
}

TEST(WireTest, ADoubleGoesAsThe64BitsOfItsIeeeForm) {
  const std::string bytes = Stored<8>([](uint8_t* p) { wire::StoreF64(p, -1.5); });
  EXPECT_EQ(std::string("\x11\0\0\0\0\0\0\xf8\xbf\x11", 10), bytes);
  EXPECT_EQ(-1.5, wire::LoadF64(reinterpret_cast<const uint8_t*>(bytes.data()) + 1));
  EXPECT_TRUE(std::isnan(wire::LoadF64(reinterpret_cast<const uint8_t*>("\0\0\0\0\0\0\xf8\x7f"))));
}

}  // namespace
