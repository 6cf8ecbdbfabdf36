// Integers on the wire, moved byte by byte: no alignment, no dependence on the machine's byte order.
// REQUIRES of each: as many readable (writable) bytes at p as the width says.
#pragma once

#include <bit>
#include <cstdint>

namespace wire {

inline uint16_t LoadU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t LoadU32(const uint8_t* p) {
  return static_cast<uint32_t>(LoadU16(p)) | (static_cast<uint32_t>(LoadU16(p + 2)) << 16);
}

inline uint64_t LoadU64(const uint8_t* p) {
  return static_cast<uint64_t>(LoadU32(p)) | (static_cast<uint64_t>(LoadU32(p + 4)) << 32);
}

inline uint32_t LoadU32BE(const uint8_t* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

inline double LoadF64(const uint8_t* p) { return std::bit_cast<double>(LoadU64(p)); }

inline void StoreU16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

inline void StoreU32(uint8_t* p, uint32_t v) {
  StoreU16(p, static_cast<uint16_t>(v));
  StoreU16(p + 2, static_cast<uint16_t>(v >> 16));
}

inline void StoreU64(uint8_t* p, uint64_t v) {
  StoreU32(p, static_cast<uint32_t>(v));
  StoreU32(p + 4, static_cast<uint32_t>(v >> 32));
}

inline void StoreF64(uint8_t* p, double v) { StoreU64(p, std::bit_cast<uint64_t>(v)); }

}  // namespace wire
