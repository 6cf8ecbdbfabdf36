// Peer: the far end of every connection of one run. A client's connection is a socket pair, and the peer speaks only
// when it is listened to: a receive that would wait is answered by the next segment of the input, so that segments
// arrive as separate receives, in the order of the client's receives over all connections. An empty segment, and the
// end of the input, closes the connection on which it is due. Thus no run ever blocks.
//
// The programs are linked with --wrap for connect, recv, usleep and gethostbyname_r: connects end in a socket pair
// whatever the address, pauses take no time, and no name is ever looked up.
//
// Threads: one run at a time. The thread that made the peer plays the client; another thread (the receive thread)
// receives as usual and is fed by Deliver.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/Input.h"

class Peer {
 public:
  explicit Peer(Input& script);
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // A new connection; returns the client's end, which the caller owns.
  int Open();

  // Writes to the connection opened last and waits until the receive thread has taken it (or has ended).
  void Deliver(const std::string& bytes, const std::atomic<bool>& running);

  // Closes the far end of the connection opened last.
  void CloseLast();

  // Waits until running is false.
  static void AwaitEnd(const std::atomic<bool>& running);

  // Behind the wrapped calls.
  static Peer* Current();
  bool Connect(int client);
  ssize_t Receive(int client, void* buf, size_t len, int flags);

 private:
  struct Connection {
    int client;
    int server;
  };

  static constexpr size_t kMaxConnections = 12;  // further connects are refused: this ends a ring of redirections

  Connection* Find(int client);
  void Speak(int server);
  void AwaitTaken(int server, const std::atomic<bool>& running) const;

  Input& script_;
  const std::thread::id owner_;
  std::vector<Connection> connections_;
  std::atomic<bool> receiving_{false};  // the receive thread is inside a receive
};
