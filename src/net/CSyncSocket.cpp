#include "net/CSyncSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;  // empty: endless

// Longer waits are cut to this, so that no deadline overflows.
constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24 * 3650);

constexpr size_t kFirstLookupRoom = 1024;
constexpr size_t kMaxLookupRoom = size_t{64} * 1024;  // a host with more addresses than this holds is not found

timespec TimeUntil(Clock::time_point deadline) {
  const auto left = std::max(Clock::duration::zero(), deadline - Clock::now());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
  timespec time{};
  time.tv_sec = static_cast<time_t>(seconds.count());
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(rest.count());
  return time;
}

// Waits until one of the events (or an error) is there: 1, 0 when the deadline has passed, -1 on failure. poll and not
// select: a host process with many descriptors may hand out numbers at or above FD_SETSIZE.
int WaitReady(int fd, short events, const Deadline& deadline) {
  if (fd < 0) {
    errno = EBADF;  // poll would wait for nothing instead
    return -1;
  }
  pollfd entry{fd, events, 0};
  int ready = -1;
  do {
    const timespec left = deadline ? TimeUntil(*deadline) : timespec{};
    ready = ppoll(&entry, 1, deadline ? &left : nullptr, nullptr);
  } while (ready < 0 && errno == EINTR);
  if (ready > 0 && (entry.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return -1;
  }
  return ready;
}

// As WaitReady for at most ms. A negative ms is no time to wait and fails.
int WaitReadyMs(int fd, short events, long ms) {
  if (ms < 0) {
    errno = EINVAL;
    return -1;
  }
  return WaitReady(fd, events, Clock::now() + std::min(std::chrono::milliseconds(ms), kLongestWait));
}

// When a transfer that began at begin ends by the socket's own time-out (option: SO_RCVTIMEO or SO_SNDTIMEO).
Deadline TimeOutOf(int fd, int option, Clock::time_point begin) {
  timeval time{};
  socklen_t len = sizeof time;
  if (getsockopt(fd, SOL_SOCKET, option, &time, &len) != 0 || (time.tv_sec == 0 && time.tv_usec == 0)) {
    return std::nullopt;
  }
  const auto seconds = std::min<std::chrono::milliseconds>(std::chrono::seconds(time.tv_sec), kLongestWait);
  return begin + seconds + std::chrono::microseconds(time.tv_usec);
}

// Which events and which time-out option belong to a direction.
struct Direction {
  short events;
  int timeOutOption;
};
constexpr Direction kReceive{POLLIN, SO_RCVTIMEO};
constexpr Direction kSend{POLLOUT, SO_SNDTIMEO};

// After an interrupted call: true when it is to be repeated. A signal must neither end a transfer nor, by starting the
// socket's time-out anew each time, keep it from ending; so the rest of the time is waited for here.
bool ResumeAfterSignal(int fd, const Direction& direction, Clock::time_point begin) {
  if (WaitReady(fd, direction.events, TimeOutOf(fd, direction.timeOutOption, begin)) != 0) return true;
  errno = EAGAIN;
  return false;
}

// Runs call (one system call on fd that gives a count or -1) across signals.
template <class Call>
int Uninterrupted(int fd, const Direction& direction, Call call) {
  const Clock::time_point begin = Clock::now();
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return static_cast<int>(result);
    if (!ResumeAfterSignal(fd, direction, begin)) return -1;
  }
}

// A length that would turn into a huge unsigned one is refused before it reaches the system.
bool LengthFails(int len) {
  if (len >= 0) return false;
  errno = EINVAL;
  return true;
}

int SystemSend(int fd, const void* buf, int len, int flags) {
  if (LengthFails(len)) return -1;
  return Uninterrupted(fd, kSend, [&] { return send(fd, buf, static_cast<size_t>(len), flags | MSG_NOSIGNAL); });
}

int SystemRecv(int fd, void* buf, int len, int flags) {
  if (LengthFails(len)) return -1;
  return Uninterrupted(fd, kReceive, [&] { return recv(fd, buf, static_cast<size_t>(len), flags); });
}

// Repeats transfer(offset, rest) until len bytes have moved: 1, or 0.
template <class Transfer>
int MoveAll(int len, Transfer transfer) {
  if (len < 1) return len == 0 ? 1 : 0;
  int done = 0;
  while (done < len) {
    const int moved = transfer(done, len - done);
    if (moved < 1) return 0;
    done += moved;
  }
  return done == len ? 1 : 0;
}

int SetOption(int fd, int level, int option, int value) {
  return setsockopt(fd, level, option, &value, sizeof value) == -1 ? 0 : 1;
}

int SetTimeOption(int fd, int option, long ms) {
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(ms / 1000);
  time.tv_usec = static_cast<decltype(time.tv_usec)>((ms % 1000) * 1000);
  return setsockopt(fd, SOL_SOCKET, option, &time, sizeof time) == -1 ? 0 : 1;
}

// The first IPv4 address of a name in network order; nothing when the look-up fails. The re-entrant look-up: other
// threads of the host process may be looking up names of their own.
std::optional<in_addr_t> LookUp(const char* host) {
  hostent entry{};
  hostent* found = nullptr;
  int lookupError = 0;
  std::vector<char> room(kFirstLookupRoom);
  while (gethostbyname_r(host, &entry, room.data(), room.size(), &found, &lookupError) == ERANGE) {
    if (room.size() >= kMaxLookupRoom) return std::nullopt;
    room.resize(room.size() * 2);
  }
  if (found == nullptr || found->h_addr_list[0] == nullptr || found->h_length != sizeof(in_addr_t)) {
    return std::nullopt;
  }
  in_addr_t addr = 0;
  std::memcpy(&addr, found->h_addr_list[0], sizeof addr);
  return addr;
}

int ConnectTo(int fd, const sockaddr_in& addr) {
  const Clock::time_point begin = Clock::now();
  if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0) return 1;
  if (errno != EINTR) return 0;
  // The attempt goes on behind the signal; a second connect call would only say so. Wait for its outcome instead.
  if (!ResumeAfterSignal(fd, kSend, begin)) return 0;
  int failure = 0;
  socklen_t len = sizeof failure;
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &failure, &len) != 0) return 0;
  if (failure == 0) return 1;
  errno = failure;
  return 0;
}

void CloseKeepingErrno(int fd) {
  const int saved = errno;
  close(fd);
  errno = saved;
}

}  // namespace

CSyncSocket::~CSyncSocket() {
  if (fd_ != -1) close(fd_);
}

bool CSyncSocket::IsSocket() const { return static_cast<uint32_t>(fd_) + 1u > 1u; }

int CSyncSocket::_Send(const void* buf, int len, int flags) { return SystemSend(fd_, buf, len, flags); }

int CSyncSocket::_Recv(void* buf, int len, int flags) { return SystemRecv(fd_, buf, len, flags); }

void CSyncSocket::Attach(int32_t descriptor) {
  Close();
  fd_ = descriptor;
}

int CSyncSocket::Create(unsigned int port, int type, const char* addr, int reuse) {
  if (fd_ != -1) return 1;
  fd_ = socket(AF_INET, type | SOCK_CLOEXEC, 0);  // a child process of the host must not keep the connection alive
  if (fd_ == -1) return 0;
  if (port == 0 && addr == nullptr) return 1;
  if (reuse != 0) SetOption(fd_, SOL_SOCKET, SO_REUSEADDR, reuse);
  sockaddr_in local{};
  CreateAddrIn(addr, port, &local);
  if (bind(fd_, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0) return 1;
  CloseKeepingErrno(fd_);
  fd_ = -1;
  return 0;
}

void CSyncSocket::CreateAddrIn(const char* host, unsigned int port, sockaddr_in* out) {
  in_addr_t addr = 0;
  if (host != nullptr) {
    addr = inet_addr(host);
    // 0 ("0.0.0.0") and all ones (no dotted address) are looked up by name; both stay when the look-up fails.
    if (addr == INADDR_ANY || addr == INADDR_NONE) addr = LookUp(host).value_or(addr);
  }
  CreateAddrIn(static_cast<unsigned long>(addr), port, out);
}

void CSyncSocket::CreateAddrIn(unsigned long addr, unsigned int port, sockaddr_in* out) {
  *out = sockaddr_in{};
  out->sin_family = AF_INET;
  out->sin_port = htons(static_cast<uint16_t>(port));
  out->sin_addr.s_addr = static_cast<in_addr_t>(addr);
}

int CSyncSocket::_Connect(const char* host, unsigned int port) {
  sockaddr_in peer{};
  CreateAddrIn(host, port, &peer);
  return ConnectTo(fd_, peer);
}

int CSyncSocket::_Connect(unsigned long addr, unsigned int port) {
  sockaddr_in peer{};
  CreateAddrIn(addr, port, &peer);
  return ConnectTo(fd_, peer);
}

int CSyncSocket::Accept(CSyncSocket& peer, sockaddr* addr, unsigned int* len) {
  peer.fd_ = Uninterrupted(fd_, kReceive, [&] { return accept4(fd_, addr, len, SOCK_CLOEXEC); });
  return peer.fd_ >= 0 ? 1 : 0;
}

int CSyncSocket::_SendTo(const void* buf, int len, unsigned int port, const char* host, int flags) {
  if (LengthFails(len)) return -1;
  sockaddr_in to{};
  CreateAddrIn(host, port, &to);
  return Uninterrupted(fd_, kSend, [&] {
    return sendto(fd_, buf, static_cast<size_t>(len), flags | MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to),
                  sizeof to);
  });
}

int CSyncSocket::_RecvFrom(void* buf, int len, sockaddr_in* from, int flags) {
  *from = sockaddr_in{};
  if (LengthFails(len)) return -1;
  return Uninterrupted(fd_, kReceive, [&] {
    socklen_t room = sizeof *from;
    return recvfrom(fd_, buf, static_cast<size_t>(len), flags, reinterpret_cast<sockaddr*>(from), &room);
  });
}

int CSyncSocket::SendAll(const void* buf, int len, int flags) {
  const char* bytes = static_cast<const char*>(buf);
  return MoveAll(len, [&](int offset, int rest) { return SystemSend(fd_, bytes + offset, rest, flags); });
}

int CSyncSocket::RecvAll(void* buf, int len, int flags) {
  char* bytes = static_cast<char*>(buf);
  return MoveAll(len, [&](int offset, int rest) { return SystemRecv(fd_, bytes + offset, rest, flags); });
}

int CSyncSocket::SetRecvTimeOut(long ms) { return SetTimeOption(fd_, SO_RCVTIMEO, ms); }

int CSyncSocket::SetSendTimeOut(long ms) { return SetTimeOption(fd_, SO_SNDTIMEO, ms); }

int CSyncSocket::SetTimeOut(long ms) {
  if (ms == 0) return 1;  // never an endless time-out by this way
  return SetRecvTimeOut(ms) == 1 ? SetSendTimeOut(ms) : 0;
}

int CSyncSocket::GetRecvTimeOut(long& ms) {
  // Intended: the set operation stands where a reader would expect the query.
  const timeval time{};
  if (setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time) == -1) return 0;
  ms = static_cast<long>(time.tv_sec * 1000 + time.tv_usec / 1000);
  return 1;
}

int CSyncSocket::SendTimeOut(const void* buf, unsigned long len, long ms) {
  if (WaitReadyMs(fd_, POLLOUT, ms) <= 0) return 0;
  const int sent = _Send(buf, static_cast<int>(len), 0);
  return sent >= 0 && static_cast<unsigned long>(sent) == len ? 1 : 0;
}

int CSyncSocket::RecvTimeOut(void* buf, int len, long ms) {
  if (WaitReadyMs(fd_, POLLIN, ms) <= 0) return -3;
  return _Recv(buf, len, 0);
}

int CSyncSocket::SetNoDelay() { return SetOption(fd_, IPPROTO_TCP, TCP_NODELAY, 1); }

int CSyncSocket::SetKeepAlive(int idleSeconds, int intervalSeconds, int count) {
  const int on = SetOption(fd_, SOL_SOCKET, SO_KEEPALIVE, 1);
  const int idle = SetOption(fd_, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds);
  const int interval = SetOption(fd_, IPPROTO_TCP, TCP_KEEPINTVL, intervalSeconds);
  const int probes = SetOption(fd_, IPPROTO_TCP, TCP_KEEPCNT, count);
  return on == 1 && idle == 1 && interval == 1 && probes == 1 ? 1 : 0;
}

void CSyncSocket::Shutdown() {
  if (IsSocket()) shutdown(fd_, SHUT_RDWR);
}

void CSyncSocket::Close() {
  if (IsSocket()) close(fd_);
  fd_ = -1;
}
