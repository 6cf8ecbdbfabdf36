// XVariant: the tagged value that carries every tag value: a 16-bit type code, numbered as the OLE Automation VARTYPE
// enumeration, and an 8-byte value. A variant of type 8 owns its string; nothing is shared between two variants.
// Threads: one at a time per object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/CString.h"

enum : uint16_t {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_ARRAY = 0x2000,
};

class XVariant {
 public:
  uint16_t vt = VT_EMPTY;

  // The live member is chosen by vt; a cleared variant is all zero.
  union {
    int16_t i16;       // 2
    uint16_t u16;      // 18
    int32_t i32;       // 3, 22
    uint32_t u32;      // 19, 23
    float f32;         // 4
    double f64;        // 5, and 7: days since 1899-12-30, local time
    int64_t i64 = 0;   // 20; also all eight bytes
    uint8_t byte;      // 11 (0 or 1), 16, 17
    std::string* str;  // 8: owned, may be null
  };

  XVariant() = default;
  ~XVariant() { Clear(); }

  // A type without a value of its own (6, 9, 10, 12 to 15, 21, 24 and above) has all eight bytes copied; assignment
  // copies none of them. Deliberate.
  XVariant(const XVariant& other);
  XVariant(XVariant&& other) noexcept;  // other is empty afterwards

  // Clears this variant first, then copies. Deliberate: assigning a variant to itself leaves it empty.
  XVariant& operator=(const XVariant& other);
  XVariant& operator=(XVariant&& other) noexcept;  // keeps what copying would; other is empty afterwards

  // False when the types differ, and for every type without a comparison (6, 9, 10, 12 to 15, 21, 24 and above).
  bool operator==(const XVariant& other) const;

  // Frees an owned string and zeroes type and value.
  void Clear();

  // Makes this a string variant that owns a copy of the len bytes at text, up to their first zero byte; null gives an
  // empty text. text may be this variant's own.
  void SetString(const char* text, size_t len);

  // Size in bytes of one value of the type (0: no fixed size), and of count packed elements of it.
  static unsigned int GetVTSize(uint16_t type);
  static unsigned int GetVTSize(uint16_t type, unsigned int count);

  // Size in 16-bit words: 1, 2 or 4.
  static unsigned int GetVTSizeW(uint16_t type);

  // The number of bytes that ToBuffer writes.
  unsigned int BufferSize(bool withType) const;

  // Encodes into buffer and returns the bytes written. REQUIRES: BufferSize(withType) bytes of room; the size argument
  // is accepted and not consulted.
  unsigned int ToBuffer(void* buffer, unsigned int bufferSize, bool withType) const;

  // Decodes into this variant, whose old value is cleared first; returns the bytes consumed. Without the type word the
  // type that the variant has is decoded. Of an array (0x2000) only the type word is consumed, and the type becomes
  // 0x200C: its count and elements are neither read nor kept. REQUIRES: a whole encoding at bytes; use the bounded
  // form for foreign bytes.
  unsigned int FromBuffer(const void* bytes, bool withType);

  // As FromBuffer, but never reads past bytes + size. False, with the variant left empty (without the type word: with
  // its type and no value) and consumed 0, when the encoding runs past the end.
  bool FromBuffer(const void* bytes, size_t size, bool withType, size_t& consumed);

  // Conversions; no error is ever reported, what cannot be converted gives 0, 0.0, false or empty text. A number
  // outside the target's range is truncated to 64 bits first and then cut to the target's width; NaN and what does not
  // fit 64 bits give 0, on every platform. A number too large for a float gives an infinity.
  // Text as an integer is read as strtoull does (a minus sign negates, what passes 64 bits gives all ones) and then cut
  // in the same way; "#RRGGBB" is a colour and gives 0xBBGGRR. So "4294967296" is 0 as ToInt, on every platform.

  // Writes the text form into text; true when the type has one, else text is empty. precision: decimals of a float, 1
  // to 10; 0 rounds half away from zero; any other prints %g. Integers get as many zero decimals for 1 to 10, except
  // type 20, of which the low 32 bits are printed. A date prints as "2024-02-03 04:05:06", shifted where daylight
  // saving is in effect and, before 1970 in UTC, one second late; the text is empty when no calendar has its year.
  bool ToStringA(CString& text, int precision) const;
  float ToFloat() const;
  double ToDouble() const;

  // Days since 1899-12-30, local time without daylight saving. Text is read as "2024-02-03 04:05:06"; what is missing
  // from the end is taken from 2000-01-01 00:00:00.
  double ToDate() const;
  int32_t ToInt() const;
  int64_t ToInt64() const;
  bool ToBool() const;  // ToInt() != 0

  // Converts in place to newType, taking the value from source when one is given. 0 on success, also when the variant
  // has the type already (source is then ignored, and nothing changes); 1 when newType has no conversion: the variant
  // then keeps the new type with a zero value. A variant given as its own source counts as zero: it has been cleared
  // by then.
  int ChangeType(uint16_t newType, const XVariant* source = nullptr);
};
