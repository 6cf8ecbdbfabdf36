// The server's side of the registration, for scripts. It has its own reading of the scrambling, so that a mistake in
// the code under test cannot hide in both.
#pragma once

#include <cstdint>
#include <string>

#include "support/ScriptedPeer.h"

// Scrambles plain bytes, every mask byte being mask.
inline std::string Scrambled(const std::string& plain, int mask = 0x5A) {
  std::string wire;
  for (size_t i = 0; i < plain.size(); ++i) {
    const int p = static_cast<unsigned char>(plain[i]);
    if (i % 3 == 0) wire += static_cast<char>(mask);
    const int masked = i % 3 == 0 ? p + mask : i % 3 == 1 ? p - mask : p ^ mask;
    wire += static_cast<char>(masked & 0xFF);
  }
  return wire;
}

// The plain bytes behind scrambled ones.
inline std::string Unscrambled(const std::string& wire) {
  std::string plain;
  int mask = 0;
  for (size_t i = 0; i < wire.size(); ++i) {
    const int c = static_cast<unsigned char>(wire[i]);
    if (i % 4 == 0) {
      mask = c;
      continue;
    }
    const int value = i % 4 == 1 ? c - mask : i % 4 == 2 ? c + mask : c ^ mask;
    plain += static_cast<char>(value & 0xFF);
  }
  return plain;
}

// The acknowledgement's first 58 bytes: ascending values, with the driver file's time and size in their places.
inline std::string AckBytes(uint32_t drvInfoTime = 0, uint32_t drvInfoSize = 0) {
  std::string ack;
  for (int i = 0; i < 50; ++i) ack += static_cast<char>(i);
  for (const uint32_t value : {drvInfoTime, drvInfoSize}) {
    for (int shift = 24; shift >= 0; shift -= 8) ack += static_cast<char>((value >> shift) & 0xFF);
  }
  return ack;
}

// The second reply before its scrambling: type, acknowledgement, and the two texts, of which the first begins on the
// acknowledgement's last byte.
inline std::string PlainSecondReply(const std::string& project, const std::string& second = "second",
                                    const std::string& ack = AckBytes()) {
  return "8" + ack + project + '\0' + second + '\0';
}

// Adds the steps that register a direct client on two connections (0: requests, 1: notifications).
inline ScriptedPeer& AddHandshake(ScriptedPeer& peer, const std::string& project, uint32_t drvInfoTime = 0,
                                  uint32_t drvInfoSize = 0) {
  const std::string reply = PlainSecondReply(project, "second", AckBytes(drvInfoTime, drvInfoSize));
  return peer.Accept().ReceiveSome().Reply("37").Accept().ReceiveSome().ReplyBytes(Scrambled(reply));
}
