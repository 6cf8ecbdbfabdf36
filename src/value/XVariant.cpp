#include "value/XVariant.h"

#include <cstring>

namespace {

constexpr uint16_t kFirstSized = VT_I2;
constexpr uint16_t kLastSized = VT_UINT;

// Bytes of one value, by type code less 2.
constexpr uint8_t kSizes[kLastSized - kFirstSized + 1] = {2, 4, 4, 8, 0, 8, 0, 0, 0, 1, 0,
                                                          0, 0, 0, 1, 1, 2, 4, 8, 0, 4, 4};

const char* TextOf(const std::string* text) { return text != nullptr ? text->c_str() : ""; }

}  // namespace

// Deliberate: a type without a value of its own (6, 21, 0x200C...) has all eight bytes copied here, while operator=
// copies none of them.
XVariant::XVariant(const XVariant& other) : vt(other.vt) {
  switch (vt) {
    case VT_I2:
    case VT_UI2:
      u16 = other.u16;
      break;
    case VT_I4:
    case VT_R4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
      u32 = other.u32;
      break;
    case VT_BOOL:
    case VT_I1:
    case VT_UI1:
      byte = other.byte;
      break;
    case VT_BSTR:
      if (other.str != nullptr) str = new std::string(*other.str);
      break;
    default:
      i64 = other.i64;
      break;
  }
}

XVariant::XVariant(XVariant&& other) noexcept : vt(other.vt), i64(other.i64) {
  other.vt = VT_EMPTY;
  other.i64 = 0;
}

// NOLINTNEXTLINE(cert-oop54-cpp): a value that is assigned to itself ends empty, as the header says
XVariant& XVariant::operator=(const XVariant& other) {
  Clear();
  vt = other.vt;
  switch (vt) {
    case VT_I2:
    case VT_UI2:
      u16 = other.u16;
      break;
    case VT_I4:
    case VT_R4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
      u32 = other.u32;
      break;
    case VT_R8:
    case VT_DATE:
    case VT_I8:
      i64 = other.i64;
      break;
    case VT_BOOL:
    case VT_I1:
    case VT_UI1:
      byte = other.byte;
      break;
    case VT_BSTR:
      if (other.str != nullptr) str = new std::string(*other.str);
      break;
    default:
      break;  // no value
  }
  return *this;
}

XVariant& XVariant::operator=(XVariant&& other) noexcept {
  if (other.vt != VT_BSTR) {
    *this = static_cast<const XVariant&>(other);
    other.Clear();
    return *this;
  }
  Clear();  // moved to itself: takes over nothing below and ends empty, as when copied to itself
  vt = VT_BSTR;
  str = other.str;
  other.vt = VT_EMPTY;
  other.i64 = 0;
  return *this;
}

bool XVariant::operator==(const XVariant& other) const {
  if (vt != other.vt) return false;
  switch (vt) {
    case VT_EMPTY:
    case VT_NULL:
      return true;
    case VT_I2:
    case VT_UI2:
      return u16 == other.u16;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
      return u32 == other.u32;
    case VT_R4:
      return f32 == other.f32;
    case VT_R8:
    case VT_DATE:
      return f64 == other.f64;
    case VT_BSTR:
      return std::strcmp(TextOf(str), TextOf(other.str)) == 0;
    case VT_BOOL:
    case VT_I1:
    case VT_UI1:
      return byte == other.byte;
    case VT_I8:
      return i64 == other.i64;
    default:
      return false;  // deliberate: a code without a comparison is unequal even to itself
  }
}

void XVariant::Clear() {
  if (vt == VT_EMPTY) return;
  if (vt == VT_BSTR) delete str;
  vt = VT_EMPTY;
  i64 = 0;
}

void XVariant::SetString(const char* text, size_t len) {
  // Copied before the old value goes: text may be this variant's own.
  std::string* copy = text != nullptr ? new std::string(text, strnlen(text, len)) : new std::string();
  Clear();
  vt = VT_BSTR;
  str = copy;
}

unsigned int XVariant::GetVTSize(uint16_t type) {
  return type >= kFirstSized && type <= kLastSized ? kSizes[type - kFirstSized] : 0;
}

unsigned int XVariant::GetVTSize(uint16_t type, unsigned int count) {
  switch (type) {
    case VT_DATE:
      return 0;  // deliberate: arrays of dates have no size
    case VT_BOOL:
      return count / 8 + (count % 8 != 0 ? 1 : 0);  // bit-packed; (count + 7) / 8 without its overflow
    default:
      return GetVTSize(type) * count;
  }
}

unsigned int XVariant::GetVTSizeW(uint16_t type) {
  if (type == VT_DATE) return 1;  // deliberate
  const unsigned int words = GetVTSize(type) / 2;
  return words != 0 ? words : 1;
}
