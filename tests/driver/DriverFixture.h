// A driver with five tags A to E, its core replaced by a socket pair whose other end the test holds. Answers are put
// on the connection before the request that they belong to, so that a test needs no second thread.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "driver/CDBDriver.h"
#include "support/FakeNapi.h"
#include "support/HexBytes.h"
#include "support/SystemHooks.h"
#include "support/ValueTypes.h"

class FakeCore final : public IDriverCore {
 public:
  FakeCore() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no socket pair");
    sock.Attach(ends[0]);
    sock.SetTimeOut(5000);
    server = ends[1];
  }
  ~FakeCore() { Vanish(); }

  int RequestAll(const void* request, uint32_t requestLen, uint32_t replyLen, void* reply) override {
    if (sock.SendAll(request, static_cast<int>(requestLen)) == 0) return 0;
    return sock.RecvAll(reply, static_cast<int>(replyLen));
  }

  // Answers with nextId when there is one.
  bool GetTagId(uint16_t driverIndex, const char* name, uint16_t& id) override {
    asked.push_back(std::to_string(driverIndex) + " " + name);
    if (nextId >= 0) id = static_cast<uint16_t>(nextId);
    return nextId >= 0;
  }

  CReqTimeSock& RequestSock() override { return sock; }
  uint32_t Rights() const override { return rights; }
  SessionGate& Gate() override { return gate; }
  void EndAbandonedSession() override { ++ended; }

  // --- the server's end
  void Answers(const std::string& hex) { AnswersBytes(FromHex(hex)); }
  void AnswersBytes(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = send(server, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n <= 0) throw std::runtime_error("the answer does not fit");
      done += static_cast<size_t>(n);
    }
  }
  void HangsUp() { shutdown(server, SHUT_WR); }  // no further answer comes
  void Vanish() {
    if (server >= 0) close(server);
    server = -1;
  }

  // What was requested since the last look.
  std::string SentBytes() {
    std::string bytes(64 * 1024, '\0');
    const ssize_t n = recv(server, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return bytes;
  }
  std::string Sent() { return ToHex(SentBytes()); }

  // Answers left unread on the connection.
  std::string Unread() {
    std::string bytes(64 * 1024, '\0');
    const ssize_t n = recv(sock.Descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return ToHex(bytes);
  }

  CReqTimeSock sock;
  int server = -1;
  uint32_t rights = CDBDriver::kWriteRight;
  SessionGate gate;
  int ended = 0;
  int nextId = -1;
  std::vector<std::string> asked;
};

class DriverTest : public ::testing::Test {
 protected:
  using Tags = std::vector<CDBDriver::STag*>;

  DriverTest() { driver.SetTagCount(5); }

  // The names A to E are resolved already.
  void KnowsAllTags() {
    for (uint16_t i = 0; i < 5; ++i) Knows(std::string(1, static_cast<char>('A' + i)), i);
  }
  void Knows(const std::string& name, uint16_t id) {
    driver.tagIds[name] = id;
    if (id < driver.tags.size()) driver.tags[id].name = name;
  }

  // The entries as ids, "-" for null ones: "0 1 -".
  static std::string Ids(const Tags& entries) {
    std::string text;
    for (const CDBDriver::STag* tag : entries) {
      if (!text.empty()) text += ' ';
      text += tag != nullptr ? std::to_string(tag->id) : "-";
    }
    return text;
  }

  // A tag's present value as JavaScript gets it.
  std::string Shown(size_t tag) { return FakeNapi::Show(driver.ValueToValue(driver.tags[tag].Value())); }

  // Makes a tag connected with a typed value.
  void Connected(size_t tag, const std::string& typedHex) {
    const std::string bytes = FromHex(typedHex);
    CDBDriver::STag& entry = driver.tags[tag];
    entry.Value();
    ASSERT_EQ(entry.Decode(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), bytes.size());
    entry.connected = 1;
  }

  // A notification of the tag, its body exactly as long as given. Returns what OnDBNotify does.
  int Notified(uint16_t tag, const std::string& bodyHex) {
    const std::string bytes = FromHex(bodyHex);
    const std::unique_ptr<uint8_t[]> body(new uint8_t[bytes.size()]);  // on the heap: a read past it is noticed
    std::copy(bytes.begin(), bytes.end(), body.get());
    return driver.OnDBNotify(tag, body.get(), bytes.size());
  }

  FakeNapi js;
  FakeCore core;
  CDBDriver driver{js.Env(), "Pump", 0x0201, &core};
};
