#include "net/CReqTimeSock.h"

CReqTimeSock::CReqTimeSock() : lastSend_(time(nullptr)) {}

CReqTimeSock::~CReqTimeSock() = default;

int CReqTimeSock::_Send(const void* buf, int len, int flags) {
  lastSend_ = time(nullptr);
  return CSyncSocket::_Send(buf, len, flags);
}
