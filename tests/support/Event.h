// Something that happens once, for a thread to wait for under a bound.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

class Event {
 public:
  void Set() {
    const std::lock_guard<std::mutex> lock(mutex_);
    set_ = true;
    changed_.notify_all();  // under the lock: whoever waits may destroy the event as soon as it is free
  }

  // True when it has happened within the time.
  bool Wait(std::chrono::milliseconds bound = std::chrono::seconds(10)) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, bound, [this] { return set_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};
