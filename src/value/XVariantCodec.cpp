// The binary form of a variant, the only one in which values cross the server connection. Little-endian, unaligned.
//
//   type word (u16, left out where both sides know the type)
//   value:  2, 18           u16            3, 19, 22, 23   u32
//           4               f32            5, 7            f64
//           20              u64            11, 16, 17      u8
//           8               the bytes of the text and one NUL
//           any other       nothing
//
//   example: 08 00 41 42 00   the text "AB"
#include <cstring>

#include "base/Wire.h"
#include "value/XVariant.h"

namespace {

constexpr unsigned int kTypeWord = 2;
constexpr uint16_t kDecodedArray = VT_ARRAY | VT_VARIANT;  // 0x200C
constexpr size_t kNoBound = static_cast<size_t>(PTRDIFF_MAX);

size_t TextLength(const std::string* text) { return text != nullptr ? std::strlen(text->c_str()) : 0; }

void StoreText(uint8_t* p, const std::string* text) {
  const size_t len = TextLength(text);
  if (len != 0) std::memcpy(p, text->data(), len);
  p[len] = 0;
}

// Reads the fixed-size value of v's type from p.
void LoadFixed(XVariant& v, const uint8_t* p) {
  switch (XVariant::GetVTSize(v.vt)) {
    case 1:
      v.byte = v.vt == VT_BOOL ? static_cast<uint8_t>(*p != 0) : *p;
      break;
    case 2:
      v.u16 = wire::LoadU16(p);
      break;
    case 4:
      v.u32 = wire::LoadU32(p);
      break;
    case 8:
      v.i64 = static_cast<int64_t>(wire::LoadU64(p));
      break;
    default:
      break;
  }
}

// Reads the value of v's type from the size bytes at p. False when it runs past them: v is unchanged then.
bool LoadValue(XVariant& v, const uint8_t* p, size_t size, size_t& used) {
  used = 0;
  if (v.vt == VT_BSTR) {
    if (size == 0) return false;  // p may be null then
    const char* text = reinterpret_cast<const char*>(p);
    const size_t len = strnlen(text, size);
    if (len == size) return false;
    v.SetString(text, len);
    used = len + 1;
    return true;
  }
  if (v.vt == VT_ARRAY) {
    // Deliberate: an array's count word and elements are neither kept nor counted, so they are not looked at; a caller
    // that goes on behind an array meets its count word.
    v.vt = kDecodedArray;
    return true;
  }
  const size_t bytes = XVariant::GetVTSize(v.vt);
  if (bytes > size) return false;
  LoadFixed(v, p);
  used = bytes;
  return true;
}

}  // namespace

unsigned int XVariant::BufferSize(bool withType) const {
  const unsigned int head = withType ? kTypeWord : 0;
  if (vt == VT_BSTR) return head + static_cast<unsigned int>(TextLength(str)) + 1;
  return head + GetVTSize(vt);
}

unsigned int XVariant::ToBuffer(void* buffer, unsigned int /*bufferSize*/, bool withType) const {
  uint8_t* p = static_cast<uint8_t*>(buffer);
  if (withType) {
    wire::StoreU16(p, vt);
    p += kTypeWord;
  }
  if (vt == VT_BSTR) {
    StoreText(p, str);
    return BufferSize(withType);
  }
  switch (GetVTSize(vt)) {
    case 1:
      *p = byte;
      break;
    case 2:
      wire::StoreU16(p, u16);
      break;
    case 4:
      wire::StoreU32(p, u32);
      break;
    case 8:
      wire::StoreU64(p, static_cast<uint64_t>(i64));
      break;
    default:
      break;
  }
  return BufferSize(withType);
}

unsigned int XVariant::FromBuffer(const void* bytes, bool withType) {
  size_t consumed = 0;
  FromBuffer(bytes, kNoBound, withType, consumed);
  return static_cast<unsigned int>(consumed);
}

bool XVariant::FromBuffer(const void* bytes, size_t size, bool withType, size_t& consumed) {
  const uint8_t* p = static_cast<const uint8_t*>(bytes);
  const size_t head = withType ? kTypeWord : 0;
  uint16_t type = vt;
  consumed = 0;
  Clear();
  if (size < head) return false;
  if (withType) type = wire::LoadU16(p);
  vt = type;
  size_t used = 0;
  if (!LoadValue(*this, p + head, size - head, used)) {
    if (withType) vt = VT_EMPTY;
    return false;
  }
  consumed = head + used;
  return true;
}
