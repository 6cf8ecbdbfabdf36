// ScriptedServer: the whole server side of one session at a time. The opening (handshake on both connections, login,
// driver file) is played by a thread of its own; from then on the test holds both connections: it puts answers on the
// request connection before or behind the requests, sends notifications, and closes what it likes.
// All bytes are made here or in HandshakeScript.h, none by the code under test.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"

struct PlannedDriver {
  std::string name;  // GB2312
  unsigned int id;
  unsigned int tags;
};

struct ServerPlan {
  std::string project = "Plant";
  std::string user = "user";
  std::string password = "word";
  uint32_t rights = 8;
  std::vector<PlannedDriver> drivers = {{"Pump", 0, 5}, {"Fan", 1, 2}};
};

class ScriptedServer {
 public:
  explicit ScriptedServer(ServerPlan plan = {});
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::string Address() const;
  const std::string& MirrorPath() const { return mirror_.Path(); }  // of this server; ends with '/'
  std::string ProjectPath() const { return mirror_.Path() + plan.project + "/"; }

  // Begins to wait for a client and to play the opening with it; closes the connections of the session before.
  void Open();

  // Waits for the end of the opening; a step that went wrong fails the test.
  void Opened();

  // --- once opened
  void Notify(const std::string& bytes) const { Send(notify_, bytes); }
  void Answer(const std::string& bytes) const { Send(request_, bytes); }

  // The next bytes on the request connection, exactly that many; bounded in time.
  std::string Request(size_t count) const;

  // The next bytes on the request connection up to these.
  std::string RequestUntil(const std::string& end) const;

  // All that is on the request connection now.
  std::string Requested() const;

  // What is there within the time, at least a byte; empty when the client has closed or nothing came.
  std::string RequestSome() const;

  void CloseNotify();
  void ResetNotify();  // closes it with a reset
  void CloseRequest();

  // True when the client has closed the connection (or does so in time).
  bool SeesRequestClosed() const { return SeesClosed(request_); }
  bool SeesNotifyClosed() const { return SeesClosed(notify_); }

  // The bytes of the driver file, and of a file's transfer.
  static std::string DriverFile(const std::vector<PlannedDriver>& drivers);
  static std::string FileReply(const std::string& content, uint32_t time);

  ServerPlan plan;

 private:
  void PlayOpening();
  int AcceptOne() const;
  std::string Receive(int descriptor, size_t count) const;
  std::string ReceiveUntil(int descriptor, const std::string& end) const;
  static void Send(int descriptor, const std::string& bytes);
  static bool SeesClosed(int descriptor);
  static void Close(int& descriptor);

  uint16_t port_ = 0;  // before listener_, which sets it
  int listener_ = -1;
  MirrorCleaner mirror_;
  int request_ = -1;
  int notify_ = -1;
  uint32_t fileTime_ = 1000000000;  // another one for each session, so that the file is always asked for
  std::thread thread_;
  pid_t threadId_ = 0;
  std::string problem_;
};

// Polls until the condition holds, or 20 s are over. Returns whether it holds.
template <class Condition>
bool Eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// How many threads the process has.
size_t ThreadCount();
