#include "base/Encoding.h"

#include <iconv.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace {

// Code-set names as the C library's iconv knows them.
constexpr char kGb2312[] = "GB2312";
constexpr char kUtf8[] = "UTF-8";
constexpr char kUcs2[] = "UCS-2LE";

// One iconv descriptor, open for one conversion.
class Converter {
 public:
  Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
  ~Converter() {
    if (IsOpen()) iconv_close(cd_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // NOLINTNEXTLINE(performance-no-int-to-ptr): iconv_open's own mark of failure
  bool IsOpen() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

  // Converts in one call. Sets written to the bytes written, also when the input has an unconvertible or incomplete
  // sequence: then false, with errno set by iconv.
  bool Convert(const char* src, size_t srcBytes, char* dst, size_t dstBytes, size_t& written) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): iconv's interface; the input is not changed
    char* in = const_cast<char*>(src);
    char* out = dst;
    size_t outLeft = dstBytes;
    const size_t result = iconv(cd_, &in, &srcBytes, &out, &outLeft);
    written = dstBytes - outLeft;
    return result != static_cast<size_t>(-1);
  }

 private:
  iconv_t cd_;
};

// What one conversion into a CString is called with; the messages differ in their final colons on purpose.
struct TextConversion {
  const char* to;
  const char* from;
  const char* openMessage;
  const char* convertMessage;
};

constexpr TextConversion kFromUtf16 = {kGb2312, kUcs2, "FromUtf16:iconv_open", "FromUtf16:iconv"};
constexpr TextConversion kFromUtf8 = {kGb2312, kUtf8, "FromUtf8:iconv_open:", "FromUtf8:iconv:"};
constexpr TextConversion kToUtf8 = {kUtf8, kGb2312, "ToUtf8:iconv_open:", "ToUtf8:iconv:"};

// Open for one conversion of each pair; never closed, which is what keeps the converters loaded.
struct KeptConverters {
  Converter fromUtf16{kGb2312, kUcs2};
  Converter fromUtf8{kGb2312, kUtf8};
  Converter toUtf8{kUtf8, kGb2312};
  Converter toUtf16{kUcs2, kGb2312};
};

// Sets dst to the converted bytes of src. The output space is the caller's upper bound, so one call is enough.
// The text is made in a string of its own: src may point into dst.
void ConvertText(const TextConversion& conversion, const char* src, size_t srcBytes, size_t space, CString& dst) {
  std::string text;
  Converter converter(conversion.to, conversion.from);
  if (!converter.IsOpen()) {
    perror(conversion.openMessage);
  } else {
    text.resize(space);
    size_t written = 0;
    if (!converter.Convert(src, srcBytes, text.data(), space, written)) perror(conversion.convertMessage);
    text.resize(written);
  }
  dst.swap(text);
}

}  // namespace

void KeepConvertersLoaded() {
  alignas(KeptConverters) static unsigned char room[sizeof(KeptConverters)];  // no destructor runs at the end
  static const KeptConverters* const kept = new (room) KeptConverters;
  static_cast<void>(kept);
}

void _strlwr(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) {
    if (*s >= 'A' && *s <= 'Z') *s = static_cast<char>(*s + ('a' - 'A'));
  }
}

void ToUtf8(const char* src, CString& out, unsigned int len) {
  if (src == nullptr) {
    src = "";
    len = 0;
  }
  const size_t bytes = len != 0 ? len : std::strlen(src);
  // One byte stays one byte, two bytes become at most three.
  ConvertText(kToUtf8, src, bytes, bytes * 2, out);
}

unsigned short* ToUtf16(const char* src, unsigned int& outLen, unsigned int len) {
  outLen = 0;
  if (src == nullptr) {
    src = "";
    len = 0;
  }
  Converter converter(kUcs2, kGb2312);
  if (!converter.IsOpen()) {
    perror("ToUtf16:iconv_open:");
    return nullptr;
  }
  const size_t bytes = len != 0 ? len : std::strlen(src);
  const size_t units = bytes + 1;
  std::unique_ptr<unsigned short[]> buffer(new unsigned short[units]);
  size_t written = 0;
  if (!converter.Convert(src, bytes, reinterpret_cast<char*>(buffer.get()), units * 2, written)) {
    perror("ToUtf16:iconv");
    return nullptr;
  }
  outLen = static_cast<unsigned int>(written / 2);
  return buffer.release();
}

void CString::FromUtf16(const unsigned short* src, unsigned int len) {
  const size_t units = src != nullptr ? len : 0;
  ConvertText(kFromUtf16, reinterpret_cast<const char*>(src), units * 2, (units + 1) * 3, *this);
}

void CString::FromUtf8(const char* src, unsigned int len) {
  const size_t bytes = src != nullptr ? len : 0;
  ConvertText(kFromUtf8, src, bytes, bytes * 2, *this);
}

void CString::ToUtf8(CString& out) const { ::ToUtf8(data(), out, static_cast<unsigned int>(size())); }

unsigned short* CString::ToUtf16(unsigned int& outLen) const { return ::ToUtf16(data(), outLen, 0); }
