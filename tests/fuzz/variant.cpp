// Decodes a value from bytes, and puts it through copies, comparison, encoding and every conversion.
#include <cmath>

#include "support/Input.h"
#include "value/XVariant.h"

namespace {

bool IsNumberlessNaN(const XVariant& v) {
  return (v.vt == VT_R4 && std::isnan(v.f32)) || ((v.vt == VT_R8 || v.vt == VT_DATE) && std::isnan(v.f64));
}

bool HasComparison(const XVariant& v) {
  return v.vt < VT_I2 || v.vt == VT_BSTR || (v.vt <= VT_UINT && XVariant::GetVTSize(v.vt) != 0);
}

void CheckCopies(const XVariant& v) {
  const XVariant copied(v);
  XVariant assigned;
  assigned = v;
  const bool equal = HasComparison(v) && !IsNumberlessNaN(v);
  FUZZ_CHECK((v == copied) == equal);
  FUZZ_CHECK((v == assigned) == equal);
  const XVariant moved(std::move(assigned));
  FUZZ_CHECK((v == moved) == equal && assigned.vt == VT_EMPTY);
}

// What was decoded encodes to the bytes that it came from.
void CheckEncoding(const XVariant& v, const uint8_t* bytes, size_t consumed) {
  const std::unique_ptr<uint8_t[]> again(new uint8_t[v.BufferSize(true)]);
  FUZZ_CHECK(v.ToBuffer(again.get(), 0, true) == v.BufferSize(true));
  FUZZ_CHECK(v.BufferSize(true) == consumed);
  if (v.vt == VT_BOOL || v.vt == (VT_ARRAY | VT_VARIANT)) return;  // normalised on the way in
  FUZZ_CHECK(std::memcmp(again.get(), bytes, consumed) == 0);
}

// The form without a type word, of every type; no bytes at all may come as a null pointer.
void DecodeUntyped(const std::string& rest) {
  const auto bytes = ExactCopy(rest.data(), rest.size());
  for (uint16_t type = 0; type < 26; ++type) {
    XVariant v;
    v.vt = type;
    size_t consumed = 0;
    const bool decoded = v.FromBuffer(rest.empty() ? nullptr : bytes.get(), rest.size(), false, consumed);
    FUZZ_CHECK(v.vt == type && consumed <= rest.size() && (decoded || consumed == 0));
  }
}

void Convert(const XVariant& v, int precision) {
  CString text;
  v.ToStringA(text, precision);
  v.ToFloat();
  v.ToDouble();
  v.ToDate();
  v.ToInt();
  v.ToInt64();
  v.ToBool();
  for (uint16_t type = 0; type < 26; ++type) {
    XVariant changed(v);
    changed.ChangeType(type);
    FUZZ_CHECK(changed.vt == type);
    XVariant taken;
    taken.ChangeType(type, &v);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int precision = static_cast<int>(input.Byte() % 14) - 2;
  const std::string rest = input.Rest();
  DecodeUntyped(rest);
  const auto bytes = ExactCopy(rest.data(), rest.size());
  XVariant v;
  size_t offset = 0;
  size_t consumed = 0;
  while (v.FromBuffer(bytes.get() + offset, rest.size() - offset, true, consumed)) {
    FUZZ_CHECK(consumed >= 2 && consumed <= rest.size() - offset);
    CheckCopies(v);
    CheckEncoding(v, bytes.get() + offset, consumed);
    Convert(v, precision);
    XVariant cut;
    size_t none = 0;
    FUZZ_CHECK(!cut.FromBuffer(bytes.get() + offset, consumed - 1, true, none) && cut.vt == VT_EMPTY && none == 0);
    offset += consumed;
  }
  FUZZ_CHECK(v.vt == VT_EMPTY && consumed == 0);
  return 0;
}
