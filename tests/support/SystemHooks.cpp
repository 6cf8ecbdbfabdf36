#include "support/SystemHooks.h"

#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>

namespace {

constexpr time_t kStandingTime = 1000000000;

struct Settings {
  std::atomic<size_t> slice{SIZE_MAX};
  std::atomic<bool> fixedTime{false};
  std::atomic<time_t> time{0};
  std::atomic<bool> interruptSemaphore{false};
  std::atomic<bool> timeOutSemaphore{false};
  std::atomic<bool> refuseThreads{false};
  std::atomic<bool> skipPauses{false};
  std::atomic<long> clockJump{0};  // seconds added to both clocks
  std::atomic<long> semaphoreWait{0};
  std::atomic<int> receives{0};
  std::mutex mutex;
  std::vector<unsigned int> pauses;
  std::vector<int> closed;
  std::vector<int> ended;
};

Settings& Current() {
  static auto* settings = new Settings;  // threads that end late may still ask
  return *settings;
}

}  // namespace

extern "C" {

ssize_t __real_recv(int fd, void* buf, size_t len, int flags);
int __real_usleep(useconds_t us);
int __real_close(int fd);
int __real_shutdown(int fd, int how);
time_t __real_time(time_t* out);
int __real_clock_gettime(clockid_t clock, timespec* out);
int __real_sem_timedwait(sem_t* sem, const timespec* until);
int __real_pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);

ssize_t __wrap_recv(int fd, void* buf, size_t len, int flags) {
  Current().receives.fetch_add(1);
  return __real_recv(fd, buf, std::min(len, Current().slice.load()), flags);
}

int __wrap_usleep(useconds_t us) {
  {
    const std::lock_guard<std::mutex> lock(Current().mutex);
    Current().pauses.push_back(us);
  }
  return Current().skipPauses ? 0 : __real_usleep(us);
}

int __wrap_close(int fd) {
  {
    const std::lock_guard<std::mutex> lock(Current().mutex);
    Current().closed.push_back(fd);
    Current().ended.push_back(fd);
  }
  return __real_close(fd);
}

int __wrap_shutdown(int fd, int how) {
  {
    const std::lock_guard<std::mutex> lock(Current().mutex);
    Current().ended.push_back(fd);
  }
  return __real_shutdown(fd, how);
}

time_t __wrap_time(time_t* out) {
  if (!Current().fixedTime) return __real_time(out);
  if (out != nullptr) *out = Current().time;
  return Current().time;
}

int __wrap_clock_gettime(clockid_t clock, timespec* out) {
  const int result = __real_clock_gettime(clock, out);
  // Between two time-outs the clocks stand: waits are of whole seconds, and none is to end meanwhile.
  if (Current().timeOutSemaphore) *out = {kStandingTime, 0};
  out->tv_sec += Current().clockJump;
  return result;
}

int __wrap_sem_timedwait(sem_t* sem, const timespec* until) {
  timespec now;
  __wrap_clock_gettime(CLOCK_REALTIME, &now);
  Current().semaphoreWait = static_cast<long>(until->tv_sec - now.tv_sec);
  if (Current().interruptSemaphore.exchange(false)) {
    errno = EINTR;
    return -1;
  }
  if (!Current().timeOutSemaphore) return __real_sem_timedwait(sem, until);
  Current().clockJump += Current().semaphoreWait;
  errno = ETIMEDOUT;
  return -1;
}

int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  if (Current().refuseThreads) return EAGAIN;
  return __real_pthread_create(handle, attributes, start, argument);
}

}  // extern "C"

SystemHooks::SystemHooks() {
  const std::lock_guard<std::mutex> lock(Current().mutex);
  Current().pauses.clear();
  Current().closed.clear();
  Current().ended.clear();
  Current().receives = 0;
}

SystemHooks::~SystemHooks() {
  Current().slice = SIZE_MAX;
  Current().fixedTime = false;
  Current().interruptSemaphore = false;
  Current().timeOutSemaphore = false;
  Current().refuseThreads = false;
  Current().skipPauses = false;
  Current().clockJump = 0;
}

void SystemHooks::SliceReceives(size_t bytes) { Current().slice = bytes; }

void SystemHooks::SetTime(time_t now) {
  Current().time = now;
  Current().fixedTime = true;
}

void SystemHooks::InterruptSemaphoreWait() { Current().interruptSemaphore = true; }
void SystemHooks::TimeOutSemaphoreWaits() { Current().timeOutSemaphore = true; }
void SystemHooks::RefuseThreads() { Current().refuseThreads = true; }
void SystemHooks::SkipPauses() { Current().skipPauses = true; }
long SystemHooks::SemaphoreWaitSeconds() const { return Current().semaphoreWait; }

std::vector<unsigned int> SystemHooks::Pauses() const {
  const std::lock_guard<std::mutex> lock(Current().mutex);
  return Current().pauses;
}

std::vector<int> SystemHooks::Closed() const {
  const std::lock_guard<std::mutex> lock(Current().mutex);
  return Current().closed;
}

std::vector<int> SystemHooks::Ended() const {
  const std::lock_guard<std::mutex> lock(Current().mutex);
  return Current().ended;
}

int SystemHooks::Receives() const { return Current().receives; }
