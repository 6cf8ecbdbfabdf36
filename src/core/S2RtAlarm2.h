// S2RtAlarm2: one real-time alarm.
#pragma once

#include <cstdint>

#include "base/Wire.h"

// On the wire 32 bytes, little-endian, in the reply to 'n' and in the notification records 1 and 3:
//
//   off  size  field
//   0    4     beginTime: when the alarm arose, seconds since 1970-01-01 UTC
//   4    4     endTime: when it ended, same unit; 0 while active
//   8    2     tagIndex: line of the tag list
//   10   2     textIndex1: line of the text list
//   12   2     textIndex2: line of the text list
//   14   1     attr1
//   15   1     attr2
//   16   8     value1, IEEE double
//   24   8     value2, IEEE double
struct S2RtAlarm2 {
  static constexpr int kWireSize = 32;

  uint32_t beginTime;
  uint32_t endTime;
  uint16_t tagIndex;
  uint16_t textIndex1;
  uint16_t textIndex2;
  uint8_t attr1;
  uint8_t attr2;
  double value1;
  double value2;

  // REQUIRES: kWireSize readable bytes.
  static S2RtAlarm2 FromBytes(const uint8_t* p) {
    // clang-format off
    return {wire::LoadU32(p),      wire::LoadU32(p + 4), wire::LoadU16(p + 8), wire::LoadU16(p + 10),
            wire::LoadU16(p + 12), p[14],                p[15],                wire::LoadF64(p + 16),
            wire::LoadF64(p + 24)};
    // clang-format on
  }
};
