#include "support/Peer.h"

#include <netdb.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/sockios.h>

#include <cerrno>
#include <chrono>

extern "C" {
ssize_t __real_recv(int fd, void* buf, size_t len, int flags);
int __wrap_connect(int fd, const sockaddr* addr, socklen_t len);
ssize_t __wrap_recv(int fd, void* buf, size_t len, int flags);
int __wrap_usleep(useconds_t pause);
int __wrap_gethostbyname_r(const char* name, hostent* entry, char* room, size_t size, hostent** found, int* error);
}

namespace {
constexpr std::chrono::milliseconds kWaitBound{200};
std::atomic<Peer*> current{nullptr};
}  // namespace

Peer::Peer(Input& script) : script_(script), owner_(std::this_thread::get_id()) { current.store(this); }

Peer::~Peer() {
  current.store(nullptr);
  for (const Connection& connection : connections_) close(connection.server);
}

Peer* Peer::Current() { return current.load(); }

int Peer::Open() {
  int pair[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0);
  connections_.push_back({pair[0], pair[1]});
  return pair[0];
}

bool Peer::Connect(int client) {
  if (script_.Empty() || connections_.size() >= kMaxConnections) return false;
  const int end = Open();
  dup2(end, client);
  close(end);
  connections_.back().client = client;
  return true;
}

// The newest connection of that number: a closed one's number may have been given out again.
Peer::Connection* Peer::Find(int client) {
  for (size_t i = connections_.size(); i-- > 0;) {
    if (connections_[i].client == client) return &connections_[i];
  }
  return nullptr;
}

ssize_t Peer::Receive(int client, void* buf, size_t len, int flags) {
  if (std::this_thread::get_id() != owner_) {
    receiving_.store(true);
    const ssize_t n = __real_recv(client, buf, len, flags);
    receiving_.store(false);
    return n;
  }
  const Connection* connection = Find(client);
  for (;;) {
    const ssize_t n = __real_recv(client, buf, len, flags | MSG_DONTWAIT);
    if (n >= 0 || errno != EAGAIN || connection == nullptr || (flags & MSG_DONTWAIT) != 0) return n;
    Speak(connection->server);
  }
}

void Peer::Speak(int server) {
  char requests[4096];
  while (__real_recv(server, requests, sizeof requests, MSG_DONTWAIT) > 0) {
  }
  const std::string segment = script_.Segment();
  if (segment.empty()) {
    shutdown(server, SHUT_WR);
  } else {
    send(server, segment.data(), segment.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  }
}

void Peer::Deliver(const std::string& bytes, const std::atomic<bool>& running) {
  if (connections_.empty() || bytes.empty()) return;
  const int server = connections_.back().server;
  send(server, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  AwaitTaken(server, running);
}

void Peer::AwaitTaken(int server, const std::atomic<bool>& running) const {
  const auto end = std::chrono::steady_clock::now() + kWaitBound;
  while (running.load() && std::chrono::steady_clock::now() < end) {
    int unread = 0;
    if (ioctl(server, SIOCOUTQ, &unread) != 0 || (unread == 0 && receiving_.load())) return;
    sched_yield();
  }
}

void Peer::CloseLast() {
  if (!connections_.empty()) shutdown(connections_.back().server, SHUT_RDWR);
}

void Peer::AwaitEnd(const std::atomic<bool>& running) {
  const auto end = std::chrono::steady_clock::now() + kWaitBound;
  while (running.load() && std::chrono::steady_clock::now() < end) sched_yield();
}

int __wrap_connect(int fd, const sockaddr*, socklen_t) {
  Peer* const peer = Peer::Current();
  if (peer != nullptr && peer->Connect(fd)) return 0;
  errno = ECONNREFUSED;
  return -1;
}

ssize_t __wrap_recv(int fd, void* buf, size_t len, int flags) {
  Peer* const peer = Peer::Current();
  return peer != nullptr ? peer->Receive(fd, buf, len, flags) : __real_recv(fd, buf, len, flags);
}

int __wrap_usleep(useconds_t) { return 0; }

int __wrap_gethostbyname_r(const char*, hostent*, char*, size_t, hostent** found, int* error) {
  *found = nullptr;
  *error = HOST_NOT_FOUND;
  return 0;
}
