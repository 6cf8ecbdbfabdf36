// A whole session: connect, login, driver file, then any sequence of requests, notifications, closes and reconnects,
// with the real receive thread. Everything that the server says comes from the input.
#include <unistd.h>

#include <filesystem>

#include "core/CDBCore.h"
#include "support/NapiStub.h"
#include "support/Peer.h"
#include "support/Scratch.h"

namespace {

constexpr int kMaxSteps = 24;

// The process's own server address, so that runs side by side do not share a mirror; the mirror is kept in memory.
class Server {
 public:
  Server() : address_(MakeAddress()) {
    std::filesystem::create_directory(kMirrorRoot);
    std::filesystem::remove(Link());
    files_.MakeDir("mirror");
    std::filesystem::create_directory_symlink(files_.Path() + "mirror", Link());
  }
  ~Server() {
    std::error_code ignored;
    std::filesystem::remove(Link(), ignored);
  }

  const std::string& Address() const { return address_; }
  std::string Mirror() const { return Link() + "/"; }
  void Clear() const {
    files_.Clear();
    files_.MakeDir("mirror");
  }

 private:
  static std::string MakeAddress() {
    const unsigned int pid = static_cast<unsigned int>(getpid());
    const auto part = [pid](unsigned int shift) { return "." + std::to_string(pid >> shift & 0xFF); };
    return "127" + part(16) + part(8) + part(0) + ":7";
  }

  std::string Link() const { return kMirrorRoot + address_.substr(0, address_.size() - 2) + "_7"; }

  const std::string address_;
  const Scratch files_;
};

class SessionCore : public CDBCore {
 public:
  SessionCore() { env = napi_stub::Env(); }
  ~SessionCore() {
    _Disconnect();
    AwaitReceiver();
    if (alarmFunc.load() != nullptr) ReleaseAlarmFunc();
  }
};

class Session {
 public:
  Session(Input& input, const Server& server) : input_(input), server_(server), peer_(input) {}

  void Run() {
    Connect();
    for (int step = 0; step < kMaxSteps && !input_.Empty(); ++step) Step(input_.Byte() % 18);
    if (closeFirst_) peer_.CloseLast();
  }

 private:
  void Connect() {
    const int result = core_._Connect(server_.Address().c_str(), "user", "password");
    FUZZ_CHECK(result <= CDBCore::kConnected && result >= CDBCore::kOutOfPlace);
    FUZZ_CHECK(result == CDBCore::kConnected || !core_.connected.load());
    if (result == CDBCore::kConnected) CheckMirror();
  }

  // The project's directory is one level below the server's.
  void CheckMirror() const {
    const std::string mirror = server_.Mirror();
    FUZZ_CHECK(core_.projectPath.starts_with(mirror) && core_.projectPath.ends_with('/'));
    const std::string name = core_.projectPath.substr(mirror.size(), core_.projectPath.size() - mirror.size() - 1);
    FUZZ_CHECK(!name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos);
  }

  void Step(int step) {
    switch (step) {
      case 0:
        return Connect();
      case 1:
        return core_._Disconnect();
      case 2:
        return peer_.CloseLast();
      case 3:
      case 4:
        return peer_.Deliver(input_.Segment(), core_.connected);
      case 5:
        core_._SetRtAlarmNotify(napi_stub::Function(), (input_.Byte() & 1) != 0);
        return;
      case 6:
        napi_stub::DeliverQueued();
        return;
      case 7:
        core_.UnadviseTag(input_.Byte());
        return;
      case 8:
        napi_stub::AnswerQueueing(input_.Byte() % 4 == 0 ? napi_queue_full : napi_ok);
        return;
      case 9:
        closeFirst_ = true;
        return;
      case 16:
        return CloseDuringRequest();
      default:
        return DriverStep(step);
    }
  }

  // The server goes away while a request is under way: the session's things are ended when it returns.
  void CloseDuringRequest() {
    const SessionUse use(core_);
    if (!use) return;
    peer_.CloseLast();
    peer_.AwaitEnd(core_.connected);
    DriverStep(11);
  }

  // As a driver object of JavaScript does it: with the session held.
  void DriverStep(int step) {
    const SessionUse use(core_);
    const std::string name = input_.Segment();
    CDBDriver* const driver = use ? core_._GetDriver(name.c_str()) : nullptr;
    if (driver == nullptr) return;
    const std::string list = step == 10 ? std::string() : input_.Segment();
    switch (step) {
      case 10:
        driver->SetCBFunc(core_.env, napi_stub::Function());
        return;
      case 11:
      case 12:
        driver->GetTagValue(core_.env, list.c_str());
        return;
      case 13:
      case 14:
        driver->_ConnectTag(list.c_str());
        return;
      case 17:
        driver->GetTagId(list.c_str());
        return;
      default:
        driver->SetTagValue(core_.env, list.c_str(), Value(input_.Byte()));
        return;
    }
  }

  napi_value Value(uint8_t kind) {
    if (kind < 64) return napi_stub::Number(kind);
    if (kind < 128) return napi_stub::String(std::string(kind, 'v'));
    if (kind < 192) return napi_stub::Boolean((kind & 1) != 0);
    return napi_stub::Array({napi_stub::Number(1), napi_stub::String("two"), napi_stub::Null()});
  }

  Input& input_;
  const Server& server_;
  Peer peer_;
  bool closeFirst_ = false;
  SessionCore core_;  // last: gone before the peer is
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Server server;
  Input input(data, size);
  Session(input, server).Run();
  napi_stub::Reset();
  server.Clear();
  return 0;
}
