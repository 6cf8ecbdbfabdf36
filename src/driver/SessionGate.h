// SessionGate: decides, without a lock, which thread ends the things that a session shares: its drivers and its
// request connection. The JavaScript thread passes the gate whenever it uses them; the receive thread closes the gate
// when the server goes away. Whoever comes second leaves the work to the other:
//
//   idle --Enter--> in use --Leave--> idle            the JavaScript thread works with the session
//   idle --CloseByReceiver--> closed                  nobody is inside: the receive thread ends the session's things
//   in use --CloseByReceiver--> abandoned             somebody is inside: the JavaScript thread ends them as it leaves
//   abandoned --Leave--> closed
//
// One gate belongs to one session and never opens again, so a closed gate also tells an object of an old session that
// what it points to is gone. The receive thread never waits here.
#pragma once

#include <atomic>
#include <cstdint>

class SessionGate {
 public:
  // JavaScript thread; calls nest. True: the session's drivers and its request connection stay until the matching
  // Leave. False: they are gone.
  bool Enter() {
    if (depth_ > 0) {
      ++depth_;
      return true;
    }
    uint8_t expected = kIdle;
    if (!state_.compare_exchange_strong(expected, kInUse, std::memory_order_acq_rel)) return false;
    depth_ = 1;
    return true;
  }

  // JavaScript thread. True: the server went away meanwhile, and the caller must end the session's things now.
  bool Leave() {
    if (--depth_ > 0) return false;
    uint8_t expected = kInUse;
    if (state_.compare_exchange_strong(expected, kIdle, std::memory_order_acq_rel)) return false;
    state_.store(kClosed, std::memory_order_release);
    return true;
  }

  // Receive thread. True: the caller ends the session's things. False: the JavaScript thread does when it leaves.
  bool CloseByReceiver() {
    for (;;) {
      uint8_t expected = kIdle;
      if (state_.compare_exchange_strong(expected, kClosed, std::memory_order_acq_rel)) return true;
      if (expected != kInUse) return false;
      if (state_.compare_exchange_strong(expected, kAbandoned, std::memory_order_acq_rel)) return false;
    }
  }

  // JavaScript thread: whether it is inside.
  bool InUse() const { return depth_ > 0; }

  // JavaScript thread, outside of any use: the session ends by a disconnect.
  void Close() { state_.store(kClosed, std::memory_order_release); }

 private:
  enum : uint8_t { kIdle, kInUse, kAbandoned, kClosed };

  std::atomic<uint8_t> state_{kIdle};
  int depth_ = 0;  // JavaScript thread only
};
