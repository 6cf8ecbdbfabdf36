// SystemHooks: some system calls of the code under test, noted and bent on demand. The test program has them led here
// with vqdb_wrap(PROGRAM recv usleep close shutdown time clock_gettime sem_timedwait pthread_create).
// Everything is back to normal when the object goes; there is one at a time. Threads: any.
#pragma once

#include <ctime>
#include <string>
#include <vector>

class SystemHooks {
 public:
  SystemHooks();
  ~SystemHooks();
  SystemHooks(const SystemHooks&) = delete;
  SystemHooks& operator=(const SystemHooks&) = delete;

  // A receive gives at most so many bytes at a time.
  void SliceReceives(size_t bytes);

  // time(nullptr) is this.
  void SetTime(time_t now);

  // The next wait for a semaphore is interrupted; waits run into their time-outs at once, the clocks jumping there
  // and standing meanwhile.
  void InterruptSemaphoreWait();
  void TimeOutSemaphoreWaits();

  // Every new thread is refused.
  void RefuseThreads();

  // Pauses (usleep) are noted and take no time.
  void SkipPauses();

  // Seconds that the last timed semaphore wait would have taken.
  long SemaphoreWaitSeconds() const;

  std::vector<unsigned int> Pauses() const;  // microseconds of each usleep so far
  std::vector<int> Closed() const;           // descriptors closed so far, in order
  std::vector<int> Ended() const;            // descriptors shut down or closed so far, in order
  int Receives() const;                      // receives so far
};
