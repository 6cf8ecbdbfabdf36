// A core with its JavaScript environment and a whole server.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "core/CDBCore.h"
#include "support/FakeNapi.h"
#include "support/HexBytes.h"
#include "support/OpenDescriptors.h"
#include "support/ScriptedServer.h"
#include "support/SystemHooks.h"
#include "support/ValueTypes.h"

// A core that ends as an instance does.
class TestCore : public CDBCore {
 public:
  explicit TestCore(napi_env environment) { env = environment; }
  ~TestCore() override { EndForGood(); }

  void EndForGood() {
    _Disconnect();
    AwaitReceiver();
    ReleaseAlarmFunc();
  }
  using CDBCore::AwaitReceiver;
};

class CoreTest : public ::testing::Test {
 protected:
  // Opens a session of core with the server.
  void Connect() { Connect(*core); }
  void Connect(CDBCore& subject) {
    server.Open();
    EXPECT_EQ(subject._Connect(server.Address().c_str(), server.plan.user.c_str(), server.plan.password.c_str()), 0);
    server.Opened();
    subject.requestSock.SetTimeOut(5000);
  }

  // A driver whose tags A, B, ... are resolved and hold a byte of their own.
  CDBDriver* Driver(const char* name) {
    const SessionUse use(*core);
    CDBDriver* driver = core->_GetDriver(name);
    EXPECT_NE(driver, nullptr) << name;
    if (driver == nullptr) return nullptr;
    const uint8_t typed[] = {17, 0, 0};
    for (CDBDriver::STag& tag : driver->tags) {
      const std::string tagName(1, static_cast<char>('A' + tag.id));
      tag.name = tagName;
      driver->tagIds[tagName] = tag.id;
      tag.Decode(typed, sizeof typed);
    }
    return driver;
  }

  // As Driver, with the changes recorded in js.calls.
  CDBDriver* FollowedDriver(const char* name) {
    const SessionUse use(*core);
    CDBDriver* driver = Driver(name);
    driver->SetCBFunc(js.Env(), js.Recorder());
    return driver;
  }

  // The notification of a byte.
  static std::string Change(unsigned int driver, unsigned int tag, char value) {
    return Word(driver) + Word(tag) + value;
  }

  // The changes that came in, once there are count of them.
  std::vector<std::string> Changes(size_t count) {
    EXPECT_TRUE(js.WaitQueuedEver(count));
    js.Drain();
    return js.calls;
  }

  // The session has ended; the receive thread may still be at its last steps.
  static bool IsGone(CDBCore& subject) { return !subject.connected && subject._GetDriver("Pump") == nullptr; }

  FakeNapi js;
  ScriptedServer server;
  std::unique_ptr<TestCore> core = std::make_unique<TestCore>(js.Env());
};

inline std::chrono::milliseconds Since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

// What "well under a second" is held to on a machine that is busy or runs under a sanitizer.
constexpr std::chrono::milliseconds kPromptly{8000};
