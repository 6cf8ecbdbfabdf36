#include "base/CString.h"

#include <cstring>

namespace {

// Membership as strchr has it: the set's own terminator makes a zero byte a member of every set.
bool IsMember(const char* set, char c) { return std::strchr(set, c) != nullptr; }

}  // namespace

CString::CString(const unsigned short* src, unsigned int len) { FromUtf16(src, len); }

void CString::TrimLeft(char c) {
  size_t run = 0;
  while (run < size() && (*this)[run] == c) ++run;
  erase(0, run);
}

void CString::TrimRight(char c) {
  size_t end = size();
  while (end > 0 && (*this)[end - 1] == c) --end;
  resize(end);
}

void CString::Trim(char c) {
  TrimRight(c);
  TrimLeft(c);
}

void CString::TrimLeft(const char* set) {
  if (set == nullptr) return;
  size_t run = 0;
  while (run < size() && IsMember(set, (*this)[run])) ++run;
  erase(0, run);
}

void CString::TrimRight(const char* set) {
  if (set == nullptr) return;
  size_t end = size();
  while (end > 0 && IsMember(set, (*this)[end - 1])) --end;
  resize(end);
}

void CString::Trim(const char* set) {
  TrimRight(set);
  TrimLeft(set);
}

int CString::Replace(const char* oldText, const char* newText) {
  if (oldText == nullptr || *oldText == '\0') return 0;
  const size_t lenOld = std::strlen(oldText);
  // The result is built beside the text: linear in its length, and either argument may point into this string.
  std::string result;
  int count = 0;
  size_t copied = 0;
  for (size_t found = find(oldText, 0, lenOld); found != npos; found = find(oldText, copied, lenOld)) {
    result.append(*this, copied, found - copied);
    if (newText != nullptr) result.append(newText);
    copied = found + lenOld;
    ++count;
  }
  if (count == 0) return 0;
  result.append(*this, copied, size() - copied);
  swap(result);
  return count;
}

int CString::Remove(char c) { return static_cast<int>(std::erase(static_cast<std::string&>(*this), c)); }

CString CString::Tokenize(const char* delims, int& pos) const {
  if (pos < 0) return CString();
  const bool inside = static_cast<size_t>(pos) < size();
  if (!inside) {
    pos = -1;
    return CString();
  }
  if (delims == nullptr || *delims == '\0') return CString();
  const size_t start = static_cast<size_t>(pos) + std::strspn(data() + pos, delims);
  if (start >= size()) {
    pos = -1;
    return CString();
  }
  // A zero byte inside the text ends a token as a delimiter does, since it ends the search; unlike one it is not
  // skipped in front of a token.
  const size_t n = std::strcspn(data() + start, delims);
  pos = static_cast<int>(start + n + 1);
  return CString(data() + start, n);
}
