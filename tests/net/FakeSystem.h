// Stand-ins for system calls of this test program (linked in place of the real ones). Host names are never looked up
// outside: only the names given here are known. The other calls go to the system unless the calling thread has set
// an answer of its own.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// The answers of the calling thread, in force while the object lives; one at a time per thread.
class FakeSystem {
 public:
  FakeSystem();
  ~FakeSystem();
  FakeSystem(const FakeSystem&) = delete;
  FakeSystem& operator=(const FakeSystem&) = delete;

  // Known names and their dotted addresses.
  std::map<std::string, std::vector<std::string>> hosts;
  // The names that were looked up.
  std::vector<std::string> lookups;
  // Bytes that a look-up demands of its buffer before it answers.
  size_t lookupRoom = 0;

  // The local host name; empty: the system's. The room that was offered for it; whether asking for it fails.
  std::string hostName;
  size_t hostNameRoom = 0;
  bool noHostName = false;

  // time(nullptr), when set.
  std::optional<time_t> now;

  // Directories can neither be made nor given a mode.
  bool refuseDirectories = false;

  // Some calls in their order: "usleep 0", "mkdir PATH 700", "chmod PATH 700". A test may add others.
  std::vector<std::string> calls;

  // The descriptors closed, in their order.
  std::vector<int> closed;

  // Called in place of the system call when set, with the call's arguments; the result is the call's own (errno set
  // for -1). real does the call: a transfer with as many bytes as it is given.
  using RealTransfer = std::function<ssize_t(size_t len)>;
  std::function<int(int fd, const sockaddr_in& peer, const std::function<int()>& real)> onConnect;
  std::function<ssize_t(int fd, size_t len, int flags, const RealTransfer& real)> onRecv;
  std::function<ssize_t(int fd, size_t len, int flags, const RealTransfer& real)> onSend;
  std::function<int(int level, int option, const void* value, socklen_t len)> onSetOption;  // instead of setsockopt
};

// For connect: connects the descriptor to host:port in place of what was asked.
int ConnectReally(int fd, const std::string& host, uint16_t port);
