// Makers of variants for the tests in this folder, and the types without a value.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "value/XVariant.h"

inline XVariant Bare(uint16_t type, int64_t bytes = 0) {
  XVariant v;
  v.vt = type;
  v.i64 = bytes;
  return v;
}

inline XVariant Int16(int16_t value) {
  XVariant v = Bare(VT_I2);
  v.i16 = value;
  return v;
}

inline XVariant Uint16(uint16_t value) {
  XVariant v = Bare(VT_UI2);
  v.u16 = value;
  return v;
}

inline XVariant Int32(int32_t value, uint16_t type = VT_I4) {
  XVariant v = Bare(type);
  v.i32 = value;
  return v;
}

inline XVariant Uint32(uint32_t value, uint16_t type = VT_UI4) {
  XVariant v = Bare(type);
  v.u32 = value;
  return v;
}

inline XVariant Float(float value) {
  XVariant v = Bare(VT_R4);
  v.f32 = value;
  return v;
}

inline XVariant Double(double value, uint16_t type = VT_R8) {
  XVariant v = Bare(type);
  v.f64 = value;
  return v;
}

inline XVariant Date(double days) { return Double(days, VT_DATE); }

inline XVariant Int64(int64_t value) { return Bare(VT_I8, value); }

inline XVariant Byte(uint16_t type, uint8_t value) {
  XVariant v = Bare(type);
  v.byte = value;
  return v;
}

inline XVariant Text(const std::string& text) {
  XVariant v;
  v.SetString(text.data(), text.size());
  return v;
}

// Codes that carry no value, from within and beyond the table of sizes.
inline const std::vector<uint16_t> kValueless = {0, 1, 6, 9, 10, 12, 13, 14, 15, 21, 24, 64, 0x2000, 0x200C, 0xffff};
