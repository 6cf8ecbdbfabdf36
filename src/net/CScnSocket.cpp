#include "net/CScnSocket.h"

CScnSocket::~CScnSocket() = default;

int CScnSocket::_Connect(const char* host, unsigned int port) {
  if (fixedPeer_ != 0) return CSyncSocket::_Connect(static_cast<unsigned long>(fixedPeer_), port);
  return CSyncSocket::_Connect(host, port);
}
