#include "support/ReplayServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "support/HandshakeScript.h"
#include "support/HexBytes.h"
#include "support/ScriptedServer.h"
#include "support/ValueTypes.h"

namespace {

constexpr int kPatienceMs = 50;  // for the next request, once the changed reply was given
constexpr int kBoundMs = 10000;  // before
constexpr std::chrono::seconds kEndless{4};
constexpr uint32_t kFileTime = 1000000000;
constexpr size_t kWriteBytes = 17;  // a write of one number, which has no answer

// Orders of the test to the server's thread.
constexpr char kStop = 's';
constexpr char kNotify = 'n';
constexpr char kNotifyAndClose = 'c';

// An alarm of 32 bytes: texts 1 and 2, attributes 3 and 4, values 1.5 and -2.5.
std::string Alarm(unsigned int begin, unsigned int end, unsigned int tag) {
  return Word(begin) + Word(0) + Word(end) + Word(0) + Word(tag) + Word(1) + Word(2) + "\3\4" +
         FromHex("00 00 00 00 00 00 F8 3F 00 00 00 00 00 00 04 C0");
}

std::string CoreRecord(int command, const std::string& body) {
  return "\xFF\xFF" + std::string(1, static_cast<char>(command)) + body;
}

std::string TypedValues(size_t from, size_t to) {
  std::string values;
  for (size_t i = from; i < to; ++i) values += Word(kSizedTypes[i].code) + FromHex(kSizedTypes[i].bytes);
  return values;
}

std::string Counted(const std::string& values) { return Word(static_cast<unsigned int>(values.size())) + values; }

// A change of each tag, an alarm of each kind, tag events of each length, and the records that are skipped; then a
// last change. Notes the ends of the records that reach a callback.
std::string Notifications(std::vector<size_t>& callsAt) {
  std::string stream;
  const auto add = [&](const std::string& record) {
    stream += record;
    callsAt.push_back(stream.size());
  };
  for (unsigned int tag = 0; tag < std::size(kSizedTypes); ++tag) {
    add(Word(0) + Word(tag) + FromHex(kSizedTypes[tag].bytes));
  }
  add(CoreRecord(1, Alarm(5, 0, 0)));
  add(CoreRecord(3, Alarm(5, 6, 1)));
  const std::string event = Word(0) + Word(1);
  stream += CoreRecord(9, event + "x") + CoreRecord(10, event + "12345678") + CoreRecord(16, event + "abc" + '\0');
  for (const auto& [command, length] : {std::pair{2, 7}, {4, 43}, {5, 7}, {6, 20}, {7, 7}, {8, 5}, {255, 3}}) {
    stream += CoreRecord(command, std::string(static_cast<size_t>(length) - 3, '\7'));
  }
  add(Word(0) + Word(0) + Word(42));
  return stream;
}

// A port that is fixed may for a moment be that of the same test in another checkout.
bool Bind(int listener, const sockaddr_in& addr) {
  const auto late = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBoundMs);
  while (bind(listener, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    if (errno != EADDRINUSE || std::chrono::steady_clock::now() > late) return false;
    poll(nullptr, 0, 1);
  }
  return true;
}

int Listen(const std::string& host, uint16_t* port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(*port);
  inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
  socklen_t len = sizeof addr;
  if (!Bind(listener, addr) || listen(listener, 16) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
    throw std::runtime_error("cannot listen on " + host);
  }
  *port = ntohs(addr.sin_port);
  return listener;
}

void Close(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

// What is there, at most one receive; empty when the client has closed.
std::string ReceiveOnce(int descriptor) {
  char bytes[4096];
  const ssize_t n = recv(descriptor, bytes, sizeof bytes, MSG_DONTWAIT);
  return {bytes, n > 0 ? static_cast<size_t>(n) : 0};
}

// The length of the request that begins the bytes; 0 while it is not whole. A client sends nothing behind a request
// that is answered before it has its answer.
size_t RequestLength(const std::string& bytes) {
  if (bytes[0] == 'g') return bytes.size() < kWriteBytes ? 0 : kWriteBytes;
  if (bytes[0] != '4') return bytes.size();
  const size_t end = bytes.find("\r\n\r\n");
  return end == std::string::npos ? 0 : end + 4;
}

Reply FileReplyFor(const std::string& request) {
  if (request.find("textlist") != std::string::npos) return kTextListReply;
  return request.find("taglist") != std::string::npos ? kTagListReply : kDriverFileReply;
}

}  // namespace

const char* NameOf(Reply reply) {
  static const char* const kNames[kReplies] = {"first reply",   "second reply", "login reply",   "driver file",
                                               "tag ids",       "read reply",   "connect reply", "alarms",
                                               "list of texts", "list of tags", "notifications"};
  return kNames[reply];
}

Recording::Recording(const std::string& mark) : project("P" + mark + "q" + mark) {
  constexpr size_t kTags = std::size(kSizedTypes);
  const std::string drivers = ScriptedServer::DriverFile({{"Pump", 0, kTags}, {"Fan", 1, 2}});
  // Another time than the file's own, so that the file is asked for in each session.
  plainSecond = PlainSecondReply(project, "second", AckBytes(kFileTime + 1000, static_cast<uint32_t>(drivers.size())));
  replies[kFirstReply] = "7ok";
  replies[kSecondReply] = Scrambled(plainSecond);
  replies[kLoginReply] = "9????" + Word(8) + Word(0);
  replies[kDriverFileReply] = ScriptedServer::FileReply(drivers, kFileTime);
  replies[kTagIdsReply] = "L";
  for (unsigned int tag = 0; tag < kTags; ++tag) replies[kTagIdsReply] += Word(tag) + Word(0);
  replies[kReadReply] = "H\1" + Counted(TypedValues(0, 6)) + "H" + '\0' + Counted(TypedValues(6, kTags));
  replies[kConnectReply] = "b" + Counted(TypedValues(0, 9)) + "b" + Counted(TypedValues(9, kTags));
  replies[kAlarmsReply] = "n" + Word(2) + Alarm(1, 2, 0) + Alarm(3, 0, 2);
  replies[kTextListReply] = ScriptedServer::FileReply("text0\r\ntext1\r\ntext2\r\n", kFileTime);
  replies[kTagListReply] = ScriptedServer::FileReply("tag0\ntag1\ntag2\n", kFileTime);
  replies[kNotifications] = Notifications(callsAt);
}

ReplayServer::ReplayServer(const std::string& host, uint16_t port)
    : host_(host), port_(port), listener_(Listen(host, &port_)) {
  if (pipe(orders_) != 0) throw std::runtime_error("pipe failed");
}

ReplayServer::~ReplayServer() {
  Stop();
  Close(listener_);
  Close(orders_[0]);
  Close(orders_[1]);
}

void ReplayServer::Play(const Recording& recording) {
  Stop();
  recording_ = &recording;
  asked_.clear();
  accepted_ = 0;
  impatient_ = false;
  thread_ = std::thread([this] { Run(); });
}

void ReplayServer::SendNotifications(bool thenClose) {
  const char order = thenClose ? kNotifyAndClose : kNotify;
  if (write(orders_[1], &order, 1) != 1) throw std::runtime_error("cannot reach the server");
}

void ReplayServer::Stop() {
  if (!thread_.joinable()) return;
  if (write(orders_[1], &kStop, 1) != 1) throw std::runtime_error("cannot reach the server");
  thread_.join();
  Close(request_);
  Close(notify_);
}

void ReplayServer::Run() {
  for (;;) {
    pollfd entries[] = {{orders_[0], POLLIN, 0}, {listener_, POLLIN, 0}, {request_, POLLIN, 0}, {notify_, POLLIN, 0}};
    const int ready = poll(entries, std::size(entries), impatient_ ? kPatienceMs : kBoundMs);
    if (ready == 0) {
      EndSending();
      impatient_ = false;
    }
    if (ready < 1) continue;
    if (entries[3].revents != 0) TakeRegistration();
    if (entries[2].revents != 0) TakeRequests();
    if (entries[1].revents != 0) Accept();
    if (entries[0].revents != 0 && !TakeOrder()) return;
  }
}

// False: the session is to end.
bool ReplayServer::TakeOrder() {
  char order = 0;
  if (read(orders_[0], &order, 1) != 1 || order == kStop) return false;
  Give(kNotifications, notify_);
  if (order == kNotifyAndClose) Close(notify_);
  return true;
}

void ReplayServer::Accept() {
  const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (descriptor < 0) return;
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  int& place = accepted_++ == 0 ? request_ : notify_;
  Close(place);
  place = descriptor;
}

void ReplayServer::TakeRegistration() {
  const std::string packet = ReceiveOnce(notify_);
  if (packet.empty()) {
    Close(notify_);
  } else {
    Give(kSecondReply, notify_);
  }
}

void ReplayServer::TakeRequests() {
  const std::string more = ReceiveOnce(request_);
  if (more.empty()) Close(request_);
  asked_ += more;
  while (!asked_.empty() && RequestLength(asked_) > 0) {
    const std::string request = asked_.substr(0, RequestLength(asked_));
    asked_.erase(0, request.size());
    Answer(request);
  }
}

void ReplayServer::Answer(const std::string& request) {
  switch (request[0]) {
    case '7':
      return Give(kFirstReply, request_);
    case '9':
      return Give(kLoginReply, request_);
    case '4':
      return Give(FileReplyFor(request), request_);
    case 'L':
      return Give(kTagIdsReply, request_);
    case 'H':
      return Give(kReadReply, request_);
    case 'b':
      return Give(kConnectReply, request_);
    case 'n':
      return Give(kAlarmsReply, request_);
    default:
      return;
  }
}

void ReplayServer::Give(Reply reply, int& descriptor) {
  const std::string& bytes = recording_->replies[reply];
  if (!bytes.empty()) send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (reply != recording_->changed) return;
  impatient_ = true;
  if (recording_->endless) SendEndlessly(descriptor, bytes);
  if (recording_->hangsUp) Close(descriptor);
}

// Until the client has closed, or the test goes on to another step, or longer than a client may take it.
void ReplayServer::SendEndlessly(int descriptor, const std::string& bytes) const {
  std::string block;
  while (block.size() < 4096) block += bytes;
  pollfd entries[] = {{descriptor, POLLOUT, 0}, {orders_[0], POLLIN, 0}};
  const auto late = std::chrono::steady_clock::now() + kEndless;
  while (poll(entries, 2, kBoundMs) > 0 && entries[1].revents == 0 && std::chrono::steady_clock::now() < late) {
    if (send(descriptor, block.data(), block.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN) return;
  }
}

void ReplayServer::EndSending() const {
  if (request_ >= 0) shutdown(request_, SHUT_WR);
  if (notify_ >= 0) shutdown(notify_, SHUT_WR);
}
