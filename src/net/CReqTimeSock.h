// CReqTimeSock: a CScnSocket that remembers when it last sent, and whether its answers are in step with its requests.
// Threads: as CSyncSocket.
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

  // Tells that an answer was not taken whole: it timed out, was cut short, or was out of place. What is left of it, or
  // comes late, must not be taken for the answer of the next request.
  void MarkOutOfStep() override { outOfStep_ = true; }

  // To be called before a request: throws away what came in behind an answer that was not taken whole. Never waits,
  // and throws away at most kMaxStrayBytes. Without such an answer does nothing.
  void BackInStep();

  static constexpr int kMaxStrayBytes = 1 << 20;

 private:
  time_t lastSend_;
  bool outOfStep_ = false;
};
