// CScnSocket: a CSyncSocket that can be told to reach every peer through one fixed address (a relay server).
// Threads: as CSyncSocket.
#pragma once

#include "net/CSyncSocket.h"

class CScnSocket : public CSyncSocket {
 public:
  CScnSocket() = default;
  ~CScnSocket() override;

  using CSyncSocket::_Connect;

  // Connects to the fixed peer when one is set, whatever the host; otherwise to the host. Results as CSyncSocket's.
  int _Connect(const char* host, unsigned int port);

  // The fixed peer: an IPv4 address in network order; 0 means connect by name.
  void SetFixedPeer(uint32_t addr) { fixedPeer_ = addr; }
  uint32_t FixedPeer() const { return fixedPeer_; }

 private:
  uint32_t fixedPeer_ = 0;  // network order
};
