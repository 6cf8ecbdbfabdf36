// Scrambling and unscrambling of any bytes into any room.
#include "net/PacketScramble.h"
#include "support/Input.h"

namespace {

void CheckRoundTrip(const std::string& plain, unsigned int cap) {
  const unsigned int len = static_cast<unsigned int>(plain.size());
  const auto in = ExactCopy(plain.data(), plain.size());
  const std::unique_ptr<uint8_t[]> wire(new uint8_t[cap]);
  const unsigned int wireLen = EncryptPacket(len, in.get(), cap, wire.get());
  FUZZ_CHECK(wireLen <= cap);
  FUZZ_CHECK(cap < 4 || (len <= MaxEncryptLen(cap)) == (wireLen != 0 || len == 0));
  if (wireLen == 0) return;
  const auto received = ExactCopy(wire.get(), wireLen);
  const std::unique_ptr<uint8_t[]> back(new uint8_t[len]);
  FUZZ_CHECK(DecryptPacket(wireLen, received.get(), len, back.get()) == len);
  FUZZ_CHECK(std::memcmp(back.get(), plain.data(), len) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const unsigned int cap = input.Word() % 1024;
  const std::string bytes = input.Rest();
  const unsigned int len = static_cast<unsigned int>(bytes.size());
  const auto wire = ExactCopy(bytes.data(), bytes.size());
  const std::unique_ptr<uint8_t[]> plain(new uint8_t[cap]);
  FUZZ_CHECK(DecryptPacket(len, wire.get(), cap, plain.get()) <= cap);
  FUZZ_CHECK(DecryptPacket(static_cast<unsigned int>(-1), wire.get(), cap, plain.get()) == 0);
  CheckRoundTrip(bytes, cap);
  CheckRoundTrip(bytes, len * 2 + 8);
  return 0;
}
