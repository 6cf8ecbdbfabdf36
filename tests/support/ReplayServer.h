// ReplayServer: a whole server for one session at a time, in a thread of its own, which answers each request with a
// recorded reply. A test may change any of the replies; what is sent then is sent whatever the client makes of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

// What the server says in a session, in the order of the session.
enum Reply : size_t {
  kFirstReply,   // to the registration on the request connection
  kSecondReply,  // to the one on the notification connection, scrambled
  kLoginReply,
  kDriverFileReply,
  kTagIdsReply,
  kReadReply,
  kConnectReply,
  kAlarmsReply,
  kTextListReply,
  kTagListReply,
  kNotifications,  // the stream of notifications, when asked for by SendNotifications
  kReplies
};

const char* NameOf(Reply reply);

// The replies of a sound session. The project has a driver "Pump" whose tags A, B, ... have one of the types of
// ValueTypes.h each, two active alarms, and two lists of three lines.
struct Recording {
  // mark goes into the project's name twice, so that one changed byte leaves one of them.
  explicit Recording(const std::string& mark);

  std::string project;
  std::string plainSecond;  // the second reply before its scrambling
  std::array<std::string, kReplies> replies;
  std::vector<size_t> callsAt;  // where in the notifications the records end that reach a callback

  // How the session goes on behind one of the replies, the changed one.
  size_t changed = kReplies;  // which one; kReplies: none
  bool hangsUp = false;       // its connection is closed behind it
  bool endless = false;       // it is sent again and again for as long as the client takes it
};

class ReplayServer {
 public:
  explicit ReplayServer(const std::string& host = "127.0.0.1", uint16_t port = 0);
  ~ReplayServer();
  ReplayServer(const ReplayServer&) = delete;
  ReplayServer& operator=(const ReplayServer&) = delete;

  const std::string& Host() const { return host_; }
  uint16_t Port() const { return port_; }
  std::string Address() const { return host_ + ":" + std::to_string(port_); }

  // Begins to wait for a client and plays one session with it, until Stop. Behind the changed reply a client that asks
  // nothing more for a while (it waits for bytes that do not come) finds both connections ended by the server.
  void Play(const Recording& recording);

  // Sends the notifications now; closes their connection behind them when asked to.
  void SendNotifications(bool thenClose);

  // Ends the session's thread and closes its connections.
  void Stop();

 private:
  void Run();
  bool TakeOrder();
  void Accept();
  void TakeRequests();
  void TakeRegistration();
  void Answer(const std::string& request);
  void Give(Reply reply, int& descriptor);
  void SendEndlessly(int descriptor, const std::string& bytes) const;
  void EndSending() const;

  std::string host_;
  uint16_t port_ = 0;
  int listener_ = -1;
  int orders_[2] = {-1, -1};
  const Recording* recording_ = nullptr;
  int request_ = -1;
  int notify_ = -1;
  int accepted_ = 0;        // connections of this session so far
  std::string asked_;       // bytes of requests that are not whole yet
  bool impatient_ = false;  // the changed reply was given
  std::thread thread_;
};
