// CReqTimeSock: a CScnSocket that remembers when it last sent. Threads: as CSyncSocket.
#pragma once

#include <ctime>

#include "net/CScnSocket.h"

class CReqTimeSock : public CScnSocket {
 public:
  CReqTimeSock();
  ~CReqTimeSock() override;

  // Stores the current time as the time of the last send, then sends as CSyncSocket does. SendAll does not pass here.
  int _Send(const void* buf, int len, int flags = 0) override;

  // Seconds since 1970 of the last _Send, or of the construction when there was none.
  time_t LastSend() const { return lastSend_; }

 private:
  time_t lastSend_;
};
