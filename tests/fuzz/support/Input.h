// The bytes of one run, taken apart from the front. Nothing here fails: what is not there reads as zero or as empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

// Ends the run as a finding when something that must hold does not.
#define FUZZ_CHECK(condition) \
  if (!(condition)) std::abort()

class Input {
 public:
  Input(const uint8_t* bytes, size_t size) : at_(bytes), end_(bytes + size) {}

  bool Empty() const { return at_ == end_; }

  uint8_t Byte() { return Empty() ? 0 : *at_++; }

  uint16_t Word() {
    const uint8_t low = Byte();
    return static_cast<uint16_t>(low | (Byte() << 8));
  }

  // The bytes up to a backslash that is followed by another byte than a backslash; both are skipped. Two backslashes
  // stand for one. So a mutation that adds or removes bytes leaves the segments behind it as they are.
  std::string Segment() {
    std::string segment;
    while (!Empty()) {
      const uint8_t c = *at_++;
      if (c == '\\' && !Empty() && *at_++ != '\\') break;
      segment += static_cast<char>(c);
    }
    return segment;
  }

  std::string Rest() {
    std::string rest(reinterpret_cast<const char*>(at_), static_cast<size_t>(end_ - at_));
    at_ = end_;
    return rest;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// A copy in a block of exactly its size: AddressSanitizer sees the first byte that is read behind it.
inline std::unique_ptr<uint8_t[]> ExactCopy(const void* bytes, size_t size) {
  std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
  if (size != 0) std::memcpy(copy.get(), bytes, size);
  return copy;
}
