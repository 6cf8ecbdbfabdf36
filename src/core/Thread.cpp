#include "core/Thread.h"

#include <pthread.h>
#include <signal.h>

bool vqthread_create(void* (*start)(void*), void* argument) {
  // A new thread inherits the mask: a signal must not interrupt the receive thread, nor run a handler of the host
  // there.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t handle{};
  const bool started = pthread_create(&handle, &attributes, start, argument) == 0;
  pthread_attr_destroy(&attributes);

  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}
