// ScriptedPeer: a server for one test, in a thread of its own. It listens from its construction on, and after Start
// plays a script of steps over the connections that it accepts. Every step is bounded in time; the first one that
// does not come true ends the script, closes its connections and fails the test with the number of the step.
//
//   ScriptedPeer peer;
//   peer.Accept().Expect("33").Reply("33 61 00").WaitClose().Start();
//   ... the code under test connects to peer.Host(), peer.Port() ...
//   peer.Join();
//
// Connections stay open behind the end of the script, until the peer is destroyed or a step closes them; after Join
// the test may use them directly (Send, Finish).
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Event.h"
#include "support/HexBytes.h"

class ScriptedPeer {
 public:
  // Listens on host:port; port 0 takes a free one.
  explicit ScriptedPeer(const std::string& host = "127.0.0.1", uint16_t port = 0) : host_(host) {
    if (pipe(cancel_) != 0) throw std::runtime_error("pipe failed");
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
    socklen_t len = sizeof addr;
    if (!Bind(addr) || listen(listener_, 64) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
      throw std::runtime_error("cannot listen on " + host + ": " + std::strerror(errno));
    }
    port_ = ntohs(addr.sin_port);
  }

  ~ScriptedPeer() {
    if (thread_.joinable()) {
      if (write(cancel_[1], "x", 1) != 1) ADD_FAILURE() << "cannot stop the peer";
      Join();
    }
    for (const Connection& connection : connections_) CloseDescriptor(connection.descriptor);
    CloseDescriptor(listener_);
    close(cancel_[0]);
    close(cancel_[1]);
  }

  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  const std::string& Host() const { return host_; }
  uint16_t Port() const { return port_; }
  std::string Address() const { return host_ + ":" + std::to_string(port_); }

  // --- Script, before Start. Steps act on the connection accepted last, or on the one chosen with On. ---

  // Waits for the next connection; the first one is number 0.
  ScriptedPeer& Accept() {
    return Step("Accept", [this] { AcceptNow(); });
  }

  // Goes on with an earlier connection.
  ScriptedPeer& On(size_t connection) {
    return Step("On", [this, connection] { current_ = connection; });
  }

  // Waits for exactly these bytes.
  ScriptedPeer& Expect(const std::string& hex) { return ExpectBytes(FromHex(hex)); }
  ScriptedPeer& ExpectBytes(const std::string& bytes) {
    return Step("Expect", [this, bytes] {
      const std::string got = ReceiveNow(bytes.size());
      if (got != bytes) throw std::runtime_error("expected " + ToHex(bytes) + ", got " + ToHex(got));
    });
  }

  // Waits for count bytes of any value.
  ScriptedPeer& Receive(size_t count) {
    return Step("Receive", [this, count] { ReceiveNow(count); });
  }

  // Takes what one receive brings, at least one byte.
  ScriptedPeer& ReceiveSome() {
    return Step("ReceiveSome", [this] {
      if (ReceiveOnce(64 * 1024).empty()) throw std::runtime_error("the client has closed");
    });
  }

  ScriptedPeer& Reply(const std::string& hex) { return ReplyBytes(FromHex(hex)); }
  ScriptedPeer& ReplyBytes(const std::string& bytes) {
    return Step("Reply", [this, bytes] { SendNow(current_, bytes); });
  }

  // Closes the connection; ends its sending side only; closes it with a reset; closes the listening socket.
  ScriptedPeer& Close() {
    return Step("Close", [this] { CloseNow(current_); });
  }
  ScriptedPeer& Shutdown() {
    return Step("Shutdown", [this] { shutdown(Current().descriptor, SHUT_WR); });
  }
  ScriptedPeer& Reset() {
    return Step("Reset", [this] {
      const linger now{1, 0};
      setsockopt(Current().descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
      CloseNow(current_);
    });
  }
  ScriptedPeer& StopListening() {
    return Step("StopListening", [this] {
      CloseDescriptor(listener_);
      listener_ = -1;
    });
  }

  // Waits until the client has closed; bytes that come before are a failure.
  ScriptedPeer& WaitClose() {
    return Step("WaitClose", [this] {
      const std::string got = ReceiveOnce(64 * 1024);
      if (!got.empty()) throw std::runtime_error("expected a close, got " + ToHex(got));
    });
  }

  // Meeting points with the test's own thread.
  ScriptedPeer& Wait(Event& event) {
    return Step("Wait", [&event] {
      if (!event.Wait(kBound)) throw std::runtime_error("the event did not come");
    });
  }
  ScriptedPeer& Notify(Event& event) {
    return Step("Notify", [&event] { event.Set(); });
  }

  // Anything else, on the peer's thread; an exception ends the script.
  ScriptedPeer& Do(std::function<void()> action) { return Step("Do", std::move(action)); }

  // --- Playing ---

  void Start() {
    // Signals are for the threads of the code under test.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { Play(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  // Waits for the end of the script and reports a step that failed.
  void Join() {
    if (thread_.joinable()) thread_.join();
    if (!problem_.empty()) ADD_FAILURE() << problem_;
    problem_.clear();
  }

  // All bytes that came on a connection so far.
  std::string Received(size_t connection = 0) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connection < connections_.size() ? connections_[connection].received : std::string();
  }

  size_t Connections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connections_.size();
  }

  // After Join, on the test's thread: sends on a connection; closes it.
  void Send(size_t connection, const std::string& bytes) { SendNow(connection, bytes); }
  void Finish(size_t connection) { CloseNow(connection); }

 private:
  static constexpr std::chrono::seconds kBound{10};

  // A port that is fixed may for a moment be that of the same test in another checkout.
  bool Bind(const sockaddr_in& addr) const {
    const auto late = std::chrono::steady_clock::now() + kBound;
    while (bind(listener_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
      if (errno != EADDRINUSE || std::chrono::steady_clock::now() > late) return false;
      poll(nullptr, 0, 1);
    }
    return true;
  }

  struct Connection {
    int descriptor;
    std::string received;
  };

  struct NamedStep {
    const char* name;
    std::function<void()> run;
  };

  static void CloseDescriptor(int descriptor) {
    if (descriptor >= 0) close(descriptor);
  }

  ScriptedPeer& Step(const char* name, std::function<void()> run) {
    steps_.push_back({name, std::move(run)});
    return *this;
  }

  void Play() {
    size_t number = 0;
    try {
      for (; number < steps_.size(); ++number) steps_[number].run();
    } catch (const std::exception& e) {
      problem_ =
          "peer " + Address() + ", step " + std::to_string(number) + " (" + steps_[number].name + "): " + e.what();
      for (size_t i = 0; i < Connections(); ++i) CloseNow(i);
    }
  }

  void WaitFor(int descriptor, short events) const {
    pollfd entries[2] = {{descriptor, events, 0}, {cancel_[0], POLLIN, 0}};
    const int bound = static_cast<int>(std::chrono::milliseconds(kBound).count());
    const int ready = poll(entries, 2, bound);
    if (ready > 0 && entries[0].revents != 0) return;
    throw std::runtime_error(ready == 0 ? "nothing came in time" : "the test ended first");
  }

  Connection& Current() {
    if (current_ >= connections_.size()) throw std::runtime_error("no such connection");
    return connections_[current_];
  }

  void AcceptNow() {
    WaitFor(listener_, POLLIN);
    const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) throw std::runtime_error("accept failed");
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard<std::mutex> lock(mutex_);
    connections_.push_back({descriptor, {}});
    current_ = connections_.size() - 1;
  }

  // One receive; empty when the client has closed.
  std::string ReceiveOnce(size_t room) {
    WaitFor(Current().descriptor, POLLIN);
    std::string bytes(room, '\0');
    const ssize_t n = recv(Current().descriptor, bytes.data(), room, 0);
    bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
    const std::lock_guard<std::mutex> lock(mutex_);
    Current().received += bytes;
    return bytes;
  }

  std::string ReceiveNow(size_t count) {
    std::string bytes;
    while (bytes.size() < count) {
      const std::string more = ReceiveOnce(count - bytes.size());
      if (more.empty()) throw std::runtime_error("the client closed behind " + ToHex(bytes));
      bytes += more;
    }
    return bytes;
  }

  void SendNow(size_t connection, const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      WaitFor(connections_.at(connection).descriptor, POLLOUT);
      const ssize_t n = send(connections_[connection].descriptor, bytes.data() + sent, bytes.size() - sent,
                             MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n < 0 && errno != EAGAIN) throw std::runtime_error("the client does not take the reply");
      sent += n > 0 ? static_cast<size_t>(n) : 0;
    }
  }

  void CloseNow(size_t connection) {
    const std::lock_guard<std::mutex> lock(mutex_);
    CloseDescriptor(connections_.at(connection).descriptor);
    connections_[connection].descriptor = -1;
  }

  std::string host_;
  uint16_t port_ = 0;
  int listener_ = -1;
  int cancel_[2] = {-1, -1};
  std::vector<NamedStep> steps_;
  size_t current_ = 0;
  std::string problem_;       // written by the peer's thread, read behind the join
  mutable std::mutex mutex_;  // guards connections_ between the two threads
  std::vector<Connection> connections_;
  std::thread thread_;
};
