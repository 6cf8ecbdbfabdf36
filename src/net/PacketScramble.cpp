#include "net/PacketScramble.h"

#include <cstdint>
#include <cstdlib>

namespace {

uint8_t RandomByte() { return static_cast<uint8_t>(rand() & 0xFF); }

uint8_t Low8(int value) { return static_cast<uint8_t>(value & 0xFF); }

}  // namespace

unsigned int EncryptPacket(unsigned int len, const unsigned char* in, unsigned int cap, unsigned char* out) {
  const unsigned int blocks = len / 3;
  const unsigned int tail = len % 3;
  if ((uint64_t{blocks} + 1) * 4 > cap) return 0;
  for (unsigned int i = 0; i < blocks; ++i, in += 3, out += 4) {
    const uint8_t r = RandomByte();
    out[0] = r;
    out[1] = Low8(in[0] + r);
    out[2] = Low8(in[1] - r);
    out[3] = Low8(in[2] ^ r);
  }
  if (tail == 0) return blocks * 4;
  const uint8_t r = RandomByte();
  out[0] = r;
  out[1] = Low8(in[0] + r);
  if (tail == 2) out[2] = Low8(in[1] - r);
  return blocks * 4 + tail + 1;
}

unsigned int DecryptPacket(unsigned int len, const unsigned char* in, unsigned int cap, unsigned char* out) {
  const unsigned int blocks = len / 4;
  const unsigned int tail = len % 4;
  const unsigned int plain = blocks * 3;  // at most three quarters of len: never wraps
  if (plain > cap) return 0;
  for (unsigned int i = 0; i < blocks; ++i, in += 4, out += 3) {
    const uint8_t r = in[0];
    out[0] = Low8(in[1] - r);
    out[1] = Low8(in[2] + r);
    out[2] = Low8(in[3] ^ r);
  }
  if (tail == 0) return plain;
  if (tail == 1 || cap < plain + tail - 1) return 0;
  const uint8_t r = in[0];
  out[0] = Low8(in[1] - r);
  if (tail == 3) out[1] = Low8(in[2] + r);
  return plain + tail - 1;
}

unsigned int MaxEncryptLen(unsigned int cap) { return (cap / 4) * 3 - 1; }
