#include "files/FileHeader.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

namespace {

bool IsDropped(char c) { return c == '\t' || c == '\r' || c == ' '; }

// A growing zero-terminated text in a caller's buffer of max + 1 bytes.
class BoundedText {
 public:
  BoundedText(char* room, int max) : room_(room), max_(max) { room_[0] = '\0'; }

  // False when the text is full.
  bool Append(char c) {
    if (size_ >= max_) return false;
    room_[size_++] = c;
    room_[size_] = '\0';
    return true;
  }

  bool Empty() const { return size_ == 0; }

 private:
  char* room_;
  int max_;
  int size_ = 0;
};

// As strtoul where an unsigned long has 32 bits: a minus sign negates within them, too large a number is the largest.
uint32_t HexValue(const char* text) {
  const unsigned long long value = std::strtoull(text, nullptr, 16);
  const bool negated = text[std::strspn(text, "\v\f")] == '-';  // no other white space is left in a value
  const unsigned long long magnitude = negated ? 0 - value : value;
  return magnitude > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

bool IsYes(const char* text) { return strncasecmp(text, "Yes", 3) == 0; }

void TakeHeader(const char* name, const char* value, SCFileInfo& info) {
  const auto is = [name](const char* known) { return strcasecmp(name, known) == 0; };
  if (is("Size")) {
    info.size = HexValue(value);
  } else if (is("UseLast")) {
    info.useLast = IsYes(value);
  } else if (is("Exist")) {
    info.exist = IsYes(value);
  } else if (is("GZ")) {
    info.gz = IsYes(value);
  } else if (is("FileTime")) {
    info.fileTime = HexValue(value);
  } else if (is("FileName")) {
    info.fileName = value;
  } else if (is("Append")) {
    info.append = IsYes(value);
  } else if (is("Hello")) {
    info.hello = IsYes(value);
  }
}

}  // namespace

int ReadHttpCont(const char* buf, int& pos, int len, char* name, int nameMax, char* value, int valueMax) {
  BoundedText nameText(name, nameMax);
  BoundedText valueText(value, valueMax);
  bool inValue = false;
  while (pos >= 0 && pos < len) {
    const char c = buf[pos++];
    if (IsDropped(c)) continue;
    if (c == ':') {  // later colons of the line are dropped too
      inValue = true;
      continue;
    }
    if (c == '\n') return nameText.Empty() ? 0 : 1;
    if (!(inValue ? valueText : nameText).Append(c)) return 0;
  }
  return 0;
}

int GetFileInfoByBuf(const char* buf, int len, SCFileInfo& info) {
  char name[kHeaderNameMax + 1];
  char value[kHeaderValueMax + 1];
  int pos = 0;
  while (ReadHttpCont(buf, pos, len, name, kHeaderNameMax, value, kHeaderValueMax) == 1) {
    TakeHeader(name, value, info);
  }
  return pos;
}
