// Whether the system tells a socket's time-out as finely as it was set. An emulator of a 32-bit machine may know only
// the option's old form and tell whole seconds of the new one; tests of parts of a second are skipped there.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

inline bool TellsPartsOfSeconds() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const timeval set{0, 500000};
  timeval told{};
  socklen_t len = sizeof told;
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &set, sizeof set);
  getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &told, &len);
  close(fd);
  return told.tv_usec == set.tv_usec;
}

#define SKIP_UNLESS_PARTS_OF_SECONDS_ARE_TOLD() \
  if (!TellsPartsOfSeconds()) GTEST_SKIP() << "this system tells only whole seconds of a socket's time-out"
