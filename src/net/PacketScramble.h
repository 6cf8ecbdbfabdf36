// The keyless scrambling of handshake bodies: every 3 plain bytes become 4 on the wire, the first of which is a random
// byte that masks the other three. It hides nothing from anyone who knows it. All arithmetic is modulo 256.
//
//   block of 3   p0 p1 p2  ->  r  p0+r  p1-r  p2^r
//   tail of 2    p0 p1     ->  r  p0+r  p1-r
//   tail of 1    p0        ->  r  p0+r
//
// Threads: the functions keep nothing of their own; EncryptPacket draws its random bytes from rand().
#pragma once

// Scrambles len bytes of in into out; returns the number of bytes written. 0 with nothing written when cap is below
// (len / 3 + 1) * 4: room for one block more than a length that is a multiple of 3 needs is demanded on purpose.
unsigned int EncryptPacket(unsigned int len, const unsigned char* in, unsigned int cap, unsigned char* out);

// The reverse; returns the number of bytes written. 0 when cap has no room for the full blocks (nothing is written)
// or for the tail, or when the tail is a random byte alone (the full blocks are then written already). So the -1 of a
// failed receive, taken as unsigned, decodes to 0 bytes. REQUIRES: len readable bytes unless the room check fails.
unsigned int DecryptPacket(unsigned int len, const unsigned char* in, unsigned int cap, unsigned char* out);

// The longest plain input that EncryptPacket takes for an output room of cap; meaningless for cap below 4.
unsigned int MaxEncryptLen(unsigned int cap);
