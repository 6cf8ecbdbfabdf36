// The header block of a file transfer: whole blocks, and single lines into texts of any size.
#include "files/FileHeader.h"
#include "support/Input.h"

namespace {

void CheckLines(const char* bytes, int len, int nameMax, int valueMax) {
  const std::unique_ptr<char[]> name(new char[static_cast<size_t>(nameMax) + 1]);
  const std::unique_ptr<char[]> value(new char[static_cast<size_t>(valueMax) + 1]);
  int pos = 0;
  int last = 0;
  while (ReadHttpCont(bytes, pos, len, name.get(), nameMax, value.get(), valueMax) == 1) {
    FUZZ_CHECK(pos > last && pos <= len && bytes[pos - 1] == '\n');
    FUZZ_CHECK(std::strlen(name.get()) <= static_cast<size_t>(nameMax));
    FUZZ_CHECK(std::strlen(value.get()) <= static_cast<size_t>(valueMax));
    last = pos;
  }
  FUZZ_CHECK(pos >= last && pos <= len);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int nameMax = input.Byte();
  const int valueMax = input.Byte();
  const std::string rest = input.Rest();
  const auto bytes = ExactCopy(rest.data(), rest.size());
  const char* const text = reinterpret_cast<const char*>(bytes.get());
  const int len = static_cast<int>(rest.size());
  CheckLines(text, len, nameMax, valueMax);
  SCFileInfo info;
  const int body = GetFileInfoByBuf(text, len, info);
  FUZZ_CHECK(body >= 0 && body <= len);
  FUZZ_CHECK(info.fileName.size() <= static_cast<size_t>(kHeaderValueMax));
  return 0;
}
