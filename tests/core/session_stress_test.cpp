// Everything against everything, for the thread sanitizer: notifications, reads, writes, connects, server closes and
// disconnects at moments that nobody chose. VQDB_STRESS_ROUNDS sets the number of sessions.
#include <atomic>
#include <cstdlib>
#include <random>

#include "core/Alarms.h"

namespace {

int Rounds(int usual) {
  const char* text = std::getenv("VQDB_STRESS_ROUNDS");
  return text != nullptr ? std::atoi(text) : usual;
}

constexpr size_t kWrite = 17;  // bytes of the writes here

// Tag 1 for each name of an 'L' request.
std::string IdsFor(const std::string& request) {
  std::string ids;
  for (size_t end = 0, at = 1; at + 2 < request.size(); at = end + 1) {
    end = request.find('\0', at + 2);
    if (end == std::string::npos) break;
    ids += Word(1) + Word(0);
  }
  return ids;
}

// The bytes of an answer to one request; empty for one without an answer.
std::string AnswerTo(const std::string& request) {
  const auto count = static_cast<size_t>(static_cast<unsigned char>(request[1]));
  std::string values;
  for (size_t i = 0; i < count; ++i) values += i % 2 == 0 ? FromHex("11 00 2A") : FromHex("08 00 74 65 78 74 00");
  switch (request[0]) {
    case 'H':
      return "H" + std::string(1, '\0') + Word(static_cast<unsigned int>(values.size())) + values;
    case 'b':
      return "b" + Word(static_cast<unsigned int>(values.size())) + values;
    case 'L':
      return "L" + IdsFor(request);
    case 'n':
      return "n" + Word(1) + std::string(32, '\1');
    case '4':
      return "Exist:No\r\n\r\n";
    default:
      return {};
  }
}

}  // namespace

class SessionStressTest : public AlarmTest {
 protected:
  void SetUp() override { HasLists(); }

  // The server's two threads of one session; both end when the session does.
  void ServeUntilClosed() {
    answering_ = std::thread([this] {
      for (std::string request = server.RequestSome(); !request.empty(); request = server.RequestSome()) {
        while (request[0] == 'g' && request.size() > kWrite) request.erase(0, kWrite);  // another request behind it
        server.Answer(AnswerTo(request));
      }
    });
    notifying_ = std::thread([this] {
      const std::string alarm = Record(1, Alarm(1, 0, 0));
      const std::string changes = Change(0, 0, 1) + Change(0, 2, 2) + Change(1, 0, 3) + alarm;
      while (!stop_) {
        server.Notify(changes + Word(0) + Word(1) + "new text" + '\0');
        while (js.Queued() > 5000 && !stop_) std::this_thread::yield();
      }
      if (serverCloses_) server.CloseNotify();
    });
  }
  void Join() {
    notifying_.join();
    answering_.join();
  }

  // One thing that JavaScript may do.
  void DoSomething(unsigned int what) {
    CDBDriver* driver = core->_GetDriver(what % 2 == 0 ? "Pump" : "Fan");
    const SessionUse use(*core);
    if (!use || driver == nullptr) return;
    switch (what % 8) {
      case 0:
        driver->GetTagValue(js.Env(), "A,B");
        break;
      case 1:
        driver->_ConnectTag("A,B");
        break;
      case 2:
        driver->SetTagValue(js.Env(), "A", js.Number(1));
        break;
      case 3:
        driver->SetCBFunc(js.Env(), nothing_);
        break;
      case 4:
        driver->GetTagId(("new" + std::to_string(what)).c_str());
        break;
      case 5:
        core->_SetRtAlarmNotify(nothing_, true);
        break;
      case 6:
        js.Drain();
        break;
      default:
        driver->GetTagValue(js.Env(), ("C,other" + std::to_string(what)).c_str());
        break;
    }
  }

  std::thread answering_;
  std::thread notifying_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> serverCloses_{false};
  napi_value nothing_ = js.Function([](const FakeNapi::Args&) {});
};

TEST_F(SessionStressTest, SessionsEndAtAnyMomentFromEitherSide) {
  const int rounds = Rounds(24);
  std::minstd_rand generator(20240203);
  const auto random = [&] { return static_cast<unsigned int>(generator() >> 8); };
  for (int round = 0; round < rounds; ++round) {
    stop_ = false;
    serverCloses_ = round % 2 == 0;
    Connect();
    core->requestSock.SetTimeOut(10000);
    Driver("Pump");
    ServeUntilClosed();
    const unsigned int before = random() % 60;
    for (unsigned int i = 0; i < before; ++i) DoSomething(random());
    stop_ = true;  // the server closes, or this side does, while requests go on
    for (unsigned int i = 0; i < 20; ++i) DoSomething(random());
    if (round % 5 == 4) {
      core = std::make_unique<TestCore>(js.Env());
      HasLists();
    } else {
      core->_Disconnect();
      core->AwaitReceiver();
    }
    Join();
    js.Drain();
    EXPECT_FALSE(core->connected);
  }
}

TEST_F(SessionStressTest, ManyCoresLiveSideBySide) {
  const size_t threads = ThreadCount();
  {
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    std::vector<std::unique_ptr<TestCore>> cores;
    for (int i = 0; i < 10; ++i) {
      servers.push_back(std::make_unique<ScriptedServer>());
      cores.push_back(std::make_unique<TestCore>(js.Env()));
      servers.back()->Open();
      EXPECT_EQ(cores.back()->_Connect(servers.back()->Address().c_str(), "user", "word"), 0);
      servers.back()->Opened();
      CDBDriver* pump = cores.back()->_GetDriver("Pump");
      pump->tags[0].type = VT_UI1;
      pump->SetCBFunc(js.Env(), nothing_);
    }
    for (const auto& one : servers) one->Notify(Change(0, 0, 1));
    EXPECT_TRUE(js.WaitQueuedEver(10));
    for (size_t i = 0; i < servers.size(); i += 2) servers[i]->CloseNotify();
  }
  EXPECT_EQ(js.Drain(), 10u);
  EXPECT_TRUE(Eventually([&] { return ThreadCount() <= threads; }));
}
