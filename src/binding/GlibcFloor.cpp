// Keeps the add-on loadable by older C libraries than the one it is built with. Linked into the add-on alone; nothing
// here changes what a function does.
//
// glibc gives a function a new symbol version when it moves to another library or changes, and the linker takes the
// newest. So an add-on that is built on glibc 2.36 would ask for
//
//   pthread_create, sem_*              2.34   (moved from libpthread to libc: the same functions as before)
//   stat64, fstat64                    2.33   (exported; before that they were inline calls of __xstat64)
//   pthread_sigmask                    2.32   (moved from libpthread to libc)
//   __libc_single_threaded             2.32   (libstdc++'s shared_ptr asks it whether to count without atomics)
//
// although each has an older form. The definitions below, invisible outside the add-on, take the newest ones' place and
// call the old ones. In a C library before 2.34 those are found in libpthread, which Node.js itself has loaded.
// What is left needs glibc 2.17 (clock_gettime on x86-64; every function on 64-bit ARM).
//
// Not on 32-bit ARM: file times and dates after 2038 need the 64-bit time functions (__stat64_time64, __utime64,
// __time64, __clock_gettime64, ...), which came with 2.34 and have no older form.
#include <features.h>

// NOLINTBEGIN: this file is made of what is reserved for the C library
#if defined(__GLIBC__) && (defined(__x86_64__) || defined(__aarch64__))
#if __GLIBC_PREREQ(2, 34)

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/stat.h>

#if defined(__x86_64__)
#define VQDB_OLDEST "GLIBC_2.2.5"
constexpr int kStatVersion = 1;  // layout of struct stat that __xstat64 is asked for
#else
#define VQDB_OLDEST "GLIBC_2.17"
constexpr int kStatVersion = 0;
#endif

// Declares old_NAME, bound to the oldest version of the C library's NAME.
#define VQDB_OLD(result, name, parameters)                 \
  __asm__(".symver old_" #name "," #name "@" VQDB_OLDEST); \
  extern result old_##name parameters

extern "C" {

VQDB_OLD(int, pthread_create, (pthread_t*, const pthread_attr_t*, void* (*)(void*), void*));
VQDB_OLD(int, pthread_sigmask, (int, const sigset_t*, sigset_t*));
VQDB_OLD(int, sem_init, (sem_t*, int, unsigned int));
VQDB_OLD(int, sem_destroy, (sem_t*));
VQDB_OLD(int, sem_post, (sem_t*));
VQDB_OLD(int, sem_wait, (sem_t*));
VQDB_OLD(int, sem_timedwait, (sem_t*, const timespec*));
extern int __xstat64(int, const char*, struct stat*);
extern int __fxstat64(int, int, struct stat*);

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  return old_pthread_create(thread, attributes, start, argument);
}

int pthread_sigmask(int how, const sigset_t* mask, sigset_t* before) { return old_pthread_sigmask(how, mask, before); }

int sem_init(sem_t* semaphore, int shared, unsigned int value) { return old_sem_init(semaphore, shared, value); }

int sem_destroy(sem_t* semaphore) { return old_sem_destroy(semaphore); }

int sem_post(sem_t* semaphore) { return old_sem_post(semaphore); }

int sem_wait(sem_t* semaphore) { return old_sem_wait(semaphore); }

int sem_timedwait(sem_t* semaphore, const timespec* until) { return old_sem_timedwait(semaphore, until); }

// With _FILE_OFFSET_BITS=64 these names mean stat64 and fstat64.
int stat(const char* path, struct stat* result) { return __xstat64(kStatVersion, path, result); }

int fstat(int descriptor, struct stat* result) { return __fxstat64(kStatVersion, descriptor, result); }

// "There may be other threads": always right, since Node.js has some.
char __libc_single_threaded = 0;
}

#endif
#endif
// NOLINTEND
