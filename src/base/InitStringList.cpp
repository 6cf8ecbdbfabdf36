#include "base/InitStringList.h"

#include <fcntl.h>

#include "base/Encoding.h"
#include "base/XFile.h"

namespace {

constexpr size_t kLineBuffer = 256;  // with the terminator
constexpr size_t kMaxLine = kLineBuffer - 1;

// The line being read: its first 255 bytes, and whether there were more.
class Line {
 public:
  void Add(char c) {
    if (len_ < kMaxLine) {
      bytes_[len_++] = c;
    } else {
      overlong_ = true;
    }
  }

  // Appends the line to list unless it is empty, and starts a new one.
  void Finish(std::vector<CString>& list) {
    if (overlong_) {
      len_ = WholeCharacters();  // a CR before the line end is among the bytes dropped
    } else if (len_ > 0 && bytes_[len_ - 1] == '\r') {
      --len_;
    }
    bytes_[len_] = '\0';
    if (bytes_[0] != '\0') {
      CString entry;
      ToUtf8(bytes_, entry, 0);
      list.push_back(std::move(entry));
    }
    len_ = 0;
    overlong_ = false;
  }

 private:
  // The length without the first half of a character whose second half was dropped.
  size_t WholeCharacters() const {
    size_t pos = 0;
    while (pos < len_) {
      const size_t width = (static_cast<unsigned char>(bytes_[pos]) & 0x80) != 0 ? 2 : 1;
      if (pos + width > len_) break;
      pos += width;
    }
    return pos;
  }

  char bytes_[kLineBuffer];
  size_t len_ = 0;
  bool overlong_ = false;
};

}  // namespace

void InitStringList(const char* path, std::vector<CString>& list) {
  if (!list.empty()) return;
  XFile file;
  if (!file.OpenT(path, O_RDONLY, false)) return;
  Line line;
  char c = 0;
  while (list.size() < kMaxListEntries && file.Read(&c, 1) > 0) {
    if (c == '\n') {
      line.Finish(list);
    } else {
      line.Add(c);
    }
  }
  line.Finish(list);
}
