#include "support/ScriptedServer.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "support/HandshakeScript.h"

namespace {

constexpr int kBoundMs = 20000;

int Listen(uint16_t* port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  if (bind(listener, reinterpret_cast<sockaddr*>(&addr), len) != 0 || listen(listener, 8) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
    throw std::runtime_error("cannot listen");
  }
  *port = ntohs(addr.sin_port);
  return listener;
}

bool Readable(int descriptor, int ms = kBoundMs) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, ms) > 0;
}

std::string Word32(uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((value >> shift) & 0xFF);
  return bytes;
}

void Require(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace

#ifdef __SANITIZE_THREAD__
// ThreadSanitizer starts a thread of its own with the first one of the program: not while threads are counted.
namespace {
const bool sanitizerThreadStarted = [] {
  std::thread([] {}).join();
  return true;
}();
}  // namespace
#endif

size_t ThreadCount() {
  DIR* const dir = opendir("/proc/self/task");
  size_t count = 0;
  while (const dirent* entry = readdir(dir)) count += entry->d_name[0] != '.' ? 1 : 0;
  closedir(dir);
  return count;
}

ScriptedServer::ScriptedServer(ServerPlan serverPlan)
    : plan(std::move(serverPlan)), listener_(Listen(&port_)), mirror_(Address()) {}

ScriptedServer::~ScriptedServer() {
  Opened();
  Close(listener_);
  Close(request_);
  Close(notify_);
}

std::string ScriptedServer::Address() const { return "127.0.0.1:" + std::to_string(port_); }

void ScriptedServer::Open() {
  Opened();
  Close(request_);
  Close(notify_);
  thread_ = std::thread([this] {
    threadId_ = gettid();
    try {
      PlayOpening();
    } catch (const std::exception& e) {
      problem_ = std::string("opening of the session: ") + e.what();
    }
  });
}

void ScriptedServer::Opened() {
  if (thread_.joinable()) {
    thread_.join();
    // For a moment a thread that has ended still counts as one of the process.
    const std::string entry = "/proc/self/task/" + std::to_string(threadId_);
    EXPECT_TRUE(Eventually([&] { return access(entry.c_str(), F_OK) != 0; }));
  }
  if (!problem_.empty()) ADD_FAILURE() << problem_;
  problem_.clear();
}

void ScriptedServer::PlayOpening() {
  constexpr size_t kIdentifier = 16;
  constexpr size_t kScrambledIdentifier = 22;
  const std::string file = DriverFile(plan.drivers);
  fileTime_ += 1000;

  request_ = AcceptOne();
  const std::string hello = Receive(request_, 1 + kScrambledIdentifier);
  Require(hello[0] == '7', "the first packet is no registration");
  Send(request_, "7");
  notify_ = AcceptOne();
  Require(Readable(notify_), "no second packet");
  char packet[512];
  const ssize_t n = recv(notify_, packet, sizeof packet, 0);
  Require(n > 1 && packet[0] == '8', "the second packet is no registration");
  const std::string body = Unscrambled(std::string(packet + 1, static_cast<size_t>(n) - 1));
  Require(body.substr(0, kIdentifier) == Unscrambled(hello.substr(1)), "another client registers");
  const auto size = static_cast<uint32_t>(file.size());
  Send(notify_, Scrambled(PlainSecondReply(plan.project, "second", AckBytes(fileTime_, size))));

  const std::string login = "9" + plan.user + '\0' + plan.password + '\0';
  Require(Receive(request_, login.size()) == login, "another login");
  Send(request_, "9????" + Word32(plan.rights));
  const std::string asked = ReceiveUntil(request_, "\r\n\r\n");
  Require(asked.substr(0, 22) == "4RecData/drvinfo.dat\r\n", "another file: " + asked);
  Send(request_, FileReply(file, fileTime_));
}

std::string ScriptedServer::DriverFile(const std::vector<PlannedDriver>& drivers) {
  std::string bytes;
  for (const PlannedDriver& driver : drivers) {
    bytes += driver.name + '\0';
    for (const unsigned int word : {driver.id, driver.tags}) {
      bytes += static_cast<char>(word & 0xFF);
      bytes += static_cast<char>((word >> 8) & 0xFF);
    }
  }
  return bytes;
}

std::string ScriptedServer::FileReply(const std::string& content, uint32_t time) {
  char head[64];
  std::snprintf(head, sizeof head, "Size:%X\r\nFileTime:%X\r\n\r\n", static_cast<unsigned int>(content.size()), time);
  return head + content;
}

int ScriptedServer::AcceptOne() const {
  Require(Readable(listener_), "no client came");
  const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  Require(descriptor >= 0, "accept failed");
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return descriptor;
}

std::string ScriptedServer::Receive(int descriptor, size_t count) const {
  std::string bytes(count, '\0');
  size_t done = 0;
  while (done < count) {
    Require(Readable(descriptor), "nothing came in time");
    const ssize_t n = recv(descriptor, bytes.data() + done, count - done, 0);
    Require(n > 0, "the client has closed");
    done += static_cast<size_t>(n);
  }
  return bytes;
}

std::string ScriptedServer::ReceiveUntil(int descriptor, const std::string& end) const {
  std::string bytes;
  while (bytes.size() < end.size() || bytes.compare(bytes.size() - end.size(), end.size(), end) != 0) {
    bytes += Receive(descriptor, 1);
  }
  return bytes;
}

void ScriptedServer::Send(int descriptor, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = send(descriptor, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n <= 0) return;  // the client has closed: its affair
    done += static_cast<size_t>(n);
  }
}

std::string ScriptedServer::Request(size_t count) const {
  try {
    return Receive(request_, count);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "waiting for a request: " << e.what();
    return {};
  }
}

std::string ScriptedServer::RequestUntil(const std::string& end) const {
  try {
    return ReceiveUntil(request_, end);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "waiting for a request: " << e.what();
    return {};
  }
}

std::string ScriptedServer::Requested() const {
  std::string bytes(64 * 1024, '\0');
  const ssize_t n = recv(request_, bytes.data(), bytes.size(), MSG_DONTWAIT);
  bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return bytes;
}

std::string ScriptedServer::RequestSome() const { return Readable(request_) ? Requested() : std::string(); }

bool ScriptedServer::SeesClosed(int descriptor) {
  char byte[256];
  while (Readable(descriptor)) {
    if (recv(descriptor, byte, sizeof byte, 0) <= 0) return true;
  }
  return false;
}

void ScriptedServer::CloseNotify() { Close(notify_); }

void ScriptedServer::ResetNotify() {
  const linger now{1, 0};
  setsockopt(notify_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  Close(notify_);
}

void ScriptedServer::CloseRequest() { Close(request_); }

void ScriptedServer::Close(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}
