// The conversions between GB2312, UTF-8 and UCS-2LE. What a conversion kept must convert back to where it came from.
#include <vector>

#include "base/CString.h"
#include "base/Encoding.h"
#include "support/Input.h"

namespace {

void CheckGb2312(const char* bytes, unsigned int len) {
  CString utf8;
  ToUtf8(bytes, utf8, len);
  FUZZ_CHECK(utf8.size() <= size_t{len} * 2);
  CString back;
  back.FromUtf8(utf8.data(), static_cast<unsigned int>(utf8.size()));
  FUZZ_CHECK(back.size() <= len && std::memcmp(back.data(), bytes, back.size()) == 0);
  CString again;
  back.ToUtf8(again);
  FUZZ_CHECK(again == utf8);
}

void CheckUtf16(const char* bytes, unsigned int len) {
  unsigned int units = 0;
  const std::unique_ptr<unsigned short[]> utf16(ToUtf16(bytes, units, len));
  if (utf16 == nullptr) {
    FUZZ_CHECK(units == 0);
    return;
  }
  FUZZ_CHECK(units <= len);
  const CString back(utf16.get(), units);
  FUZZ_CHECK(back.size() == len && std::memcmp(back.data(), bytes, len) == 0);
}

void CheckForeign(const std::string& bytes) {
  CString fromUtf8;
  fromUtf8.FromUtf8(bytes.data(), static_cast<unsigned int>(bytes.size()));
  FUZZ_CHECK(fromUtf8.size() <= bytes.size());
  std::vector<unsigned short> units(bytes.size() / 2);
  if (!units.empty()) std::memcpy(units.data(), bytes.data(), units.size() * 2);
  CString fromUtf16(units.data(), static_cast<unsigned int>(units.size()));
  FUZZ_CHECK(fromUtf16.size() <= units.size() * 2);
  CString inPlace(bytes);
  inPlace.ToUtf8(inPlace);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string rest(reinterpret_cast<const char*>(data), size);
  const auto bytes = ExactCopy(data, size);
  const char* const text = reinterpret_cast<const char*>(bytes.get());
  if (size != 0) {  // a length of 0 asks for the terminator
    CheckGb2312(text, static_cast<unsigned int>(size));
    CheckUtf16(text, static_cast<unsigned int>(size));
  }
  unsigned int units = 0;
  delete[] CString(rest).ToUtf16(units);
  CheckForeign(rest);
  return 0;
}
