// How a client names itself to the server in the handshake: an identifier made from the clock and the random
// generator, and a gateway hardware address that this system always leaves zero.
// Threads: CoCreateGuid reseeds the process-wide rand().
#pragma once

#include <cstdint>

// An identifier of 16 bytes. On the wire:
//
//   offset  size  field
//   0       4     Data1, little-endian
//   4       2     Data2, little-endian
//   6       2     Data3, little-endian
//   8       8     Data4, as stored
struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};

constexpr int kGuidBytes = 16;
constexpr int kMacBytes = 6;

// Fills *g: Data1 the time in seconds, which also seeds rand(); Data2 and Data3 the low halves of the next two random
// numbers; Data4 seconds and microseconds of the clock as two little-endian 32-bit values.
void CoCreateGuid(_GUID* g);

// Writes the 16 bytes that stand for g on the wire.
void GuidToBytes(const _GUID& g, uint8_t* out);

// Writes 6 zero bytes. addr (IPv4, network order) is not used: the hardware address is never looked up.
void GetGatewayMac(unsigned int addr, unsigned char* mac);
