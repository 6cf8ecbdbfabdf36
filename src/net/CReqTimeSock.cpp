#include "net/CReqTimeSock.h"

CReqTimeSock::CReqTimeSock() : lastSend_(time(nullptr)) {}

CReqTimeSock::~CReqTimeSock() = default;

int CReqTimeSock::_Send(const void* buf, int len, int flags) {
  lastSend_ = time(nullptr);
  return CSyncSocket::_Send(buf, len, flags);
}

void CReqTimeSock::BackInStep() {
  if (!outOfStep_) return;
  outOfStep_ = false;
  char stray[4096];
  for (int total = 0; total < kMaxStrayBytes;) {
    const int received = _Recv(stray, sizeof stray, MSG_DONTWAIT);
    if (received < 1) return;
    total += received;
  }
}
