// The tokenizer, the trims, replace, remove and lower-casing, each against what must hold of its result.
#include <string>

#include "base/CString.h"
#include "base/Encoding.h"
#include "support/Input.h"

namespace {

void CheckTokens(const CString& text, const std::string& delims) {
  int pos = 0;
  int last = -1;
  while (pos >= 0) {
    const CString token = text.Tokenize(delims.c_str(), pos);
    if (pos < 0 || delims.c_str()[0] == '\0') {
      FUZZ_CHECK(token.empty());
      return;
    }
    FUZZ_CHECK(pos > last && static_cast<size_t>(pos) <= text.size() + 1);
    FUZZ_CHECK(token.find_first_of(delims.c_str()) == CString::npos);
    const size_t end = static_cast<size_t>(pos) - 1;
    FUZZ_CHECK(!token.empty() || (end < text.size() && text[end] == '\0'));  // only a zero byte ends an empty token
    last = pos;
  }
}

void CheckTrims(const CString& text, const std::string& set) {
  CString left(text);
  CString right(text);
  CString both(text);
  left.TrimLeft(set.c_str());
  right.TrimRight(set.c_str());
  both.Trim(set.c_str());
  FUZZ_CHECK(text.ends_with(left) && text.starts_with(right) && text.find(both) != CString::npos);
  const std::string members = std::string(set.c_str()) + '\0';
  FUZZ_CHECK(left.empty() || members.find(left.front()) == CString::npos);
  FUZZ_CHECK(right.empty() || members.find(right.back()) == CString::npos);
  FUZZ_CHECK(both.size() <= left.size() && both.size() <= right.size());
}

void CheckTrimsOfOneByte(const CString& text, char c) {
  CString both(text);
  both.Trim(c);
  FUZZ_CHECK(both.empty() || (both.front() != c && both.back() != c));
  CString removed(text);
  const int count = removed.Remove(c);
  FUZZ_CHECK(removed.size() + static_cast<size_t>(count) == text.size() && removed.find(c) == CString::npos);
}

void CheckReplace(const CString& text, const std::string& from, const std::string& to) {
  CString replaced(text);
  const size_t count = static_cast<size_t>(replaced.Replace(from.c_str(), to.c_str()));
  const size_t lenFrom = std::strlen(from.c_str());
  FUZZ_CHECK(replaced.size() == text.size() - count * lenFrom + count * std::strlen(to.c_str()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const char c = static_cast<char>(input.Byte());
  const std::string set = input.Segment();
  const std::string to = input.Segment();
  const CString text(input.Rest());
  CheckTokens(text, set);
  CheckTrims(text, set);
  CheckTrimsOfOneByte(text, c);
  CheckReplace(text, set, to);
  CString lower(text);
  _strlwr(lower.data());
  FUZZ_CHECK(lower.size() == text.size());
  int anywhere = c * 5 - 3;
  text.Tokenize(set.c_str(), anywhere);
  return 0;
}
