#include "net/FakeSystem.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

thread_local FakeSystem* current = nullptr;

std::string DirectoryCall(const char* name, const char* path, mode_t mode) {
  char octal[16];
  snprintf(octal, sizeof octal, "%o", static_cast<unsigned int>(mode));
  return std::string(name) + " " + path + " " + octal;
}

bool Refused() {
  if (current == nullptr || !current->refuseDirectories) return false;
  errno = EACCES;
  return true;
}

}  // namespace

FakeSystem::FakeSystem() { current = this; }
FakeSystem::~FakeSystem() { current = nullptr; }

extern "C" {

int __real_gethostname(char* name, size_t len);
int __real_close(int fd);
int __real_usleep(useconds_t pause);
time_t __real_time(time_t* out);
int __real_mkdir(const char* path, mode_t mode);
int __real_chmod(const char* path, mode_t mode);
int __real_connect(int fd, const sockaddr* addr, socklen_t len);
ssize_t __real_recv(int fd, void* buf, size_t len, int flags);
ssize_t __real_send(int fd, const void* buf, size_t len, int flags);
int __real_setsockopt(int fd, int level, int option, const void* value, socklen_t len);

int __wrap_gethostbyname_r(const char* name, hostent* entry, char* room, size_t roomLen, hostent** found,
                           int* lookupError) {
  *found = nullptr;
  *lookupError = HOST_NOT_FOUND;
  if (current == nullptr) return 0;
  current->lookups.push_back(name);
  const auto known = current->hosts.find(name);
  if (known == current->hosts.end()) return 0;
  const size_t count = known->second.size();
  const size_t needed = (count + 1) * sizeof(char*) + count * sizeof(in_addr) + alignof(char*);
  if (roomLen < needed || roomLen < current->lookupRoom) return ERANGE;
  const size_t skew = (alignof(char*) - reinterpret_cast<uintptr_t>(room) % alignof(char*)) % alignof(char*);
  char** const list = reinterpret_cast<char**>(room + skew);
  char* at = room + skew + (count + 1) * sizeof(char*);
  for (size_t i = 0; i < count; ++i, at += sizeof(in_addr)) {
    inet_pton(AF_INET, known->second[i].c_str(), at);
    list[i] = at;
  }
  list[count] = nullptr;
  *entry = hostent{};
  entry->h_addrtype = AF_INET;
  entry->h_length = sizeof(in_addr);
  entry->h_addr_list = list;
  *found = entry;
  *lookupError = 0;
  return 0;
}

int __wrap_gethostname(char* name, size_t len) {
  if (current != nullptr) {
    current->hostNameRoom = len;
    if (current->noHostName) return -1;
  }
  if (current == nullptr || current->hostName.empty()) return __real_gethostname(name, len);
  strncpy(name, current->hostName.c_str(), len);
  if (current->hostName.size() < len) return 0;
  errno = ENAMETOOLONG;
  return -1;
}

int __wrap_close(int fd) {
  if (current != nullptr) current->closed.push_back(fd);
  return __real_close(fd);
}

int __wrap_usleep(useconds_t pause) {
  if (current != nullptr) current->calls.push_back("usleep " + std::to_string(pause));
  return __real_usleep(pause);
}

time_t __wrap_time(time_t* out) {
  if (current == nullptr || !current->now) return __real_time(out);
  if (out != nullptr) *out = *current->now;
  return *current->now;
}

int __wrap_mkdir(const char* path, mode_t mode) {
  if (current != nullptr) current->calls.push_back(DirectoryCall("mkdir", path, mode));
  return Refused() ? -1 : __real_mkdir(path, mode);
}

int __wrap_chmod(const char* path, mode_t mode) {
  if (current != nullptr) current->calls.push_back(DirectoryCall("chmod", path, mode));
  return Refused() ? -1 : __real_chmod(path, mode);
}

int __wrap_connect(int fd, const sockaddr* addr, socklen_t len) {
  const std::function<int()> real = [=] { return __real_connect(fd, addr, len); };
  if (current == nullptr || !current->onConnect) return real();
  sockaddr_in peer{};
  memcpy(&peer, addr, sizeof peer);
  return current->onConnect(fd, peer, real);
}

ssize_t __wrap_recv(int fd, void* buf, size_t len, int flags) {
  const FakeSystem::RealTransfer real = [=](size_t some) { return __real_recv(fd, buf, some, flags); };
  if (current == nullptr || !current->onRecv) return real(len);
  return current->onRecv(fd, len, flags, real);
}

ssize_t __wrap_send(int fd, const void* buf, size_t len, int flags) {
  const FakeSystem::RealTransfer real = [=](size_t some) { return __real_send(fd, buf, some, flags); };
  if (current == nullptr || !current->onSend) return real(len);
  return current->onSend(fd, len, flags, real);
}

int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t len) {
  if (current == nullptr || !current->onSetOption) return __real_setsockopt(fd, level, option, value, len);
  return current->onSetOption(level, option, value, len);
}

}  // extern "C"

int ConnectReally(int fd, const std::string& host, uint16_t port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
  return __real_connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
}
