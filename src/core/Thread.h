// Starting the receive thread, and knowing when it has ended.
#pragma once

#include <semaphore.h>

// Starts a detached thread that runs start(argument), with all signals blocked: those are the host process's own. The
// handle is dropped. False when no thread could be started; the session's procedure goes on without notifications then.
bool vqthread_create(void* (*start)(void*), void* argument);

// Posted once by a detached thread as its very last act. Shared by the thread and those who wait for it, so that
// neither has to outlive the other.
class ThreadEnd {
 public:
  ThreadEnd() { sem_init(&ended_, 0, 0); }
  ~ThreadEnd() { sem_destroy(&ended_); }
  ThreadEnd(const ThreadEnd&) = delete;
  ThreadEnd& operator=(const ThreadEnd&) = delete;

  void Signal() { sem_post(&ended_); }

  // Returns when Signal was called; the wait is used up by one waiter.
  void Wait() {
    while (sem_wait(&ended_) != 0) {
    }
  }

 private:
  sem_t ended_;
};
