// A server, or whatever stands between, that says anything at all. A whole session is played again and again, each time
// with one reply cut somewhere, changed in one byte, or taken from another place. Each run ends soon with documented
// results, leaves no descriptor and no thread, and makes nothing outside its own mirror; a sound session follows.
// VQDB_HOSTILE_SEED sets where the random bytes begin.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <set>

#include "core/CoreFixture.h"
#include "support/CaptureOutput.h"
#include "support/HandshakeScript.h"
#include "support/ReplayServer.h"

namespace {

constexpr std::chrono::milliseconds kRunBound{8000};
constexpr size_t kReplayed = 2;  // active alarms

// What a session with one changed reply may give: the codes of its connect, and how many of its results are those of
// a sound session, whatever the reply says.
struct Expected {
  std::set<int> codes;
  size_t soundResults;
};

const Expected kExpected[kReplies] = {
    {{0, -2}, 0},          // first reply
    {{0, -2, -3}, 0},      // second reply
    {{0, -1, -2, -3}, 0},  // login
    {{0, -2}, 0},          // driver file
    {{0}, 1},              // tag ids
    {{0}, 1},              // read
    {{0}, 2},              // connect
    {{0}, 4},              // alarms
    {{0}, 5},              // the lists: silent when they cannot be had
    {{0}, 5},
    {{0}, 5},  // notifications
};

// What one session gave: its results in order, and the calls of both callbacks.
struct Outcome {
  int code = 0;
  std::vector<std::string> results;
  std::vector<std::string> calls;
};

std::string AllTags() {
  std::string list;
  for (size_t i = 0; i < std::size(kSizedTypes); ++i) {
    if (i > 0) list += ',';
    list += static_cast<char>('A' + i);
  }
  return list;
}

std::string ShownValue(size_t tag) {
  const std::string shown = kSizedTypes[tag].shown;
  return shown == "nothing" ? "undefined" : shown;
}

std::string ShownAlarm(const std::string& times, const char* tag, const char* ended) {
  return "(" + times + ", '" + tag + "', " + ended + ", 'text1', 'text2', 3, 1.5, -2.5, 4)";
}

// The outcome of a session in which nothing was changed.
Outcome SoundOutcome() {
  Outcome sound;
  std::string values;
  for (size_t i = 0; i < std::size(kSizedTypes); ++i) values += (i > 0 ? ", " : "") + ShownValue(i);
  sound.results = {"connect 0", "read [" + values + "]", "tags connected 1", "write 0", "alarms 0"};
  sound.calls = {ShownAlarm("Date(1000), Date(2000)", "tag0", "1"), ShownAlarm("Date(3000), Date(3000)", "tag2", "0")};
  for (size_t i = 0; i < std::size(kSizedTypes); ++i) {
    sound.calls.push_back("('Pump', '" + std::string(1, static_cast<char>('A' + i)) + "', " + ShownValue(i) + ")");
  }
  sound.calls.push_back(ShownAlarm("Date(5000), Date(5000)", "tag0", "0"));
  sound.calls.push_back(ShownAlarm("Date(5000), Date(6000)", "tag1", "1"));
  sound.calls.push_back("('Pump', 'A', 42)");
  return sound;
}

std::vector<std::string> Sorted(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  return texts;
}

// The names in the directories that a path from the server might lead to.
std::set<std::string> NamesAround() {
  std::set<std::string> names;
  for (const char* dir : {"/tmp", "/tmp/vqbrowser", "/", "."}) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ignored)) names.insert(entry.path().string());
  }
  return names;
}

uint32_t Seed() {
  const char* text = std::getenv("VQDB_HOSTILE_SEED");
  return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : 20240301;
}

}  // namespace

class HostileServerTest : public ::testing::Test {
 protected:
  // Sessions are asked for at the replay server's own address unless another one leads to it.
  explicit HostileServerTest(const std::string& host = "127.0.0.1", const std::string& address = "")
      : server_(host), address_(address.empty() ? server_.Address() : address) {
    hooks_.SkipPauses();
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one; it counts from here on
  }

  void SetUp() override { ExpectSoundSession(); }

  void TearDown() override {
    if (!HasFailure()) ExpectSoundSession();
    RecordProperty("runs", runs);
    for (const std::string& name : NamesAround()) {
      if (around_.count(name) > 0) continue;
      EXPECT_FALSE(ComesFromAReply(name)) << name << " was made outside the mirror";
    }
  }

  // Plays one session in which a reply is changed, and looks at all that must hold then; the outcome is kept in last.
  // False after a failure.
  bool Run(const Recording& recording, const std::string& what) {
    SCOPED_TRACE(std::string(NameOf(static_cast<Reply>(recording.changed))) + " " + what + ", seed " +
                 std::to_string(Seed()));
    const Expected& expected = kExpected[recording.changed];
    const Outcome& outcome = last = Play(recording);
    if (recording.hangsUp) ExpectACut(recording, outcome);
    EXPECT_EQ(expected.codes.count(outcome.code), 1u) << outcome.code;
    for (size_t i = 0; i < outcome.results.size(); ++i) {
      if (i < expected.soundResults) {
        EXPECT_EQ(outcome.results[i], sound_.results[i]);
      } else {
        EXPECT_TRUE(IsDocumented(outcome.results[i])) << outcome.results[i];
      }
    }
    ++runs;
    return !HasFailure();
  }

  // Each byte of a reply as the end of it and of its connection.
  void CutEverywhere(Reply reply) {
    Recording recording = recording_;
    recording.changed = reply;
    recording.hangsUp = true;
    const std::string whole = recording_.replies[reply];
    for (size_t cut = 0; cut < whole.size(); ++cut) {
      recording.replies[reply] = whole.substr(0, cut);
      if (!Run(recording, "cut at " + std::to_string(cut))) return;
    }
  }

  // A reply that is cut is a failure, and of a cut stream only whole records count.
  void ExpectACut(const Recording& recording, const Outcome& outcome) const {
    const auto reply = static_cast<Reply>(recording.changed);
    const bool noRead = reply == kTagIdsReply || reply == kReadReply;
    const bool noConnect = reply == kTagIdsReply || reply == kConnectReply;
    EXPECT_TRUE(!noRead || outcome.results.at(1) == "read nothing");
    EXPECT_TRUE(!noConnect || outcome.results.at(2) == "tags connected 0");
    EXPECT_TRUE(reply != kAlarmsReply || outcome.results.at(4) == "alarms -2");
    if (reply != kNotifications) return;
    const std::vector<std::string> calls = Sorted(outcome.calls);
    const std::vector<std::string> whole = Sorted(sound_.calls);
    EXPECT_TRUE(std::includes(whole.begin(), whole.end(), calls.begin(), calls.end()));
    const auto records = std::count_if(recording.callsAt.begin(), recording.callsAt.end(),
                                       [&](size_t end) { return end <= recording.replies[reply].size(); });
    EXPECT_EQ(calls.size(), kReplayed + static_cast<size_t>(records));
  }

  // Each byte of whole as 0, as 0xFF and as something random; put makes the reply of the changed bytes, an empty one to
  // leave them out.
  void ChangeEachByte(Reply reply, const std::string& whole,
                      const std::function<std::string(const std::string&)>& put) {
    Recording recording = recording_;
    recording.changed = reply;
    for (size_t i = 0; i < whole.size(); ++i) {
      for (const unsigned int value : {0x00u, 0xFFu, static_cast<unsigned int>(random_() >> 8) & 0xFFu}) {
        std::string bytes = whole;
        bytes[i] = static_cast<char>(value);
        recording.replies[reply] = put(bytes);
        if (bytes == whole || recording.replies[reply].empty()) continue;
        if (!Run(recording, "byte " + std::to_string(i) + " set to " + std::to_string(value))) return;
      }
    }
  }
  void ChangeEachByte(Reply reply) {
    ChangeEachByte(reply, recording_.replies[reply], [](const std::string& bytes) { return bytes; });
  }

  // The reply is sent for as long as the client takes it.
  void SendEndlessly(Reply reply, const std::string& bytes) {
    Recording recording = recording_;
    recording.changed = reply;
    recording.endless = true;
    recording.replies[reply] = bytes;
    Run(recording, "without end");
  }

  void ExpectSoundSession() {
    const Outcome outcome = Play(recording_);
    EXPECT_EQ(outcome.results, sound_.results);
    // Alarms and changes are queued apart: the order between the two kinds is not fixed.
    EXPECT_EQ(Sorted(outcome.calls), Sorted(sound_.calls));
  }

  // One session of a new core from its connect to its end, at address.
  Outcome Play(const Recording& recording) {
    const auto begin = std::chrono::steady_clock::now();
    const int descriptors = OpenDescriptors();
    const size_t threads = ThreadCount();
    ForgetFiles();
    StartServers(recording);
    Outcome outcome;
    {
      FakeNapi js;
      TestCore core(js.Env());
      outcome.code = core._Connect(address_.c_str(), "user", "word");
      outcome.results.push_back("connect " + std::to_string(outcome.code));
      if (outcome.code == 0) UseSession(js, core, recording, outcome);
      core._Disconnect();
      core.AwaitReceiver();
      js.Drain();
      outcome.calls = js.calls;
      EXPECT_TRUE(js.uncaught.empty());
    }
    EXPECT_LT(Since(begin), kRunBound);
    StopServers();
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_TRUE(Eventually([&] { return ThreadCount() <= threads; }));
    return outcome;
  }

  Recording& Sound() { return recording_; }

  virtual void StartServers(const Recording& recording) { server_.Play(recording); }
  virtual void StopServers() { server_.Stop(); }
  ReplayServer& Server() { return server_; }

  int runs = 0;
  Outcome last;

 private:
  // All that JavaScript may do in a session.
  void UseSession(FakeNapi& js, TestCore& core, const Recording& recording, Outcome& outcome) {
    const std::string tags = AllTags();
    {
      const SessionUse use(core);
      CDBDriver* const driver = use ? core._GetDriver("Pump") : nullptr;
      if (driver != nullptr) {
        driver->SetCBFunc(js.Env(), js.Recorder());
        outcome.results.push_back("read " + FakeNapi::Show(driver->GetTagValue(js.Env(), tags.c_str())));
        outcome.results.push_back("tags connected " + std::to_string(driver->_ConnectTag(tags.c_str())));
        outcome.results.push_back("write " + std::to_string(driver->SetTagValue(js.Env(), "A", js.Number(7))));
      }
    }
    outcome.results.push_back("alarms " + std::to_string(core._SetRtAlarmNotify(js.Recorder(), true)));
    // Changed notifications are followed by their server's end, the sound ones by a disconnect while they come in.
    const bool serverEnds = recording.changed == kNotifications;
    server_.SendNotifications(serverEnds);
    if (serverEnds) {
      const auto late = std::chrono::steady_clock::now() + kRunBound;
      while (core.connected && std::chrono::steady_clock::now() < late) std::this_thread::yield();
    } else if (recording.changed == kReplies) {
      EXPECT_TRUE(js.WaitQueuedEver(sound_.calls.size() - kReplayed));
    }
  }

  static bool IsDocumented(const std::string& result) {
    static const std::set<std::string> kFixed = {
        "connect 0", "connect -1", "connect -2", "connect -3", "read nothing", "tags connected 0", "tags connected 1",
        "write 0",   "write -1",   "write -2",   "write -3",   "alarms 0",     "alarms -2"};
    return kFixed.count(result) > 0 || result.compare(0, 6, "read [") == 0;
  }

  // The mirrored files of the sound project go, so that no run sees what another one fetched.
  void ForgetFiles() const {
    for (const char* name : {"drvinfo.dat", "textlist", "taglist"}) {
      unlink((mirror_.Path() + recording_.project + "/RecData/" + name).c_str());
    }
  }

  // The names of this test's own server in its port's digits, which no other test's names have, or in a beginning of
  // its project's name.
  bool ComesFromAReply(const std::string& path) const {
    const std::string name = std::filesystem::path(path).filename();
    if (path + "/" == mirror_.Path()) return false;
    return name.find(mark_) != std::string::npos || recording_.project.compare(0, name.size(), name) == 0;
  }

  SystemHooks hooks_;
  ReplayServer server_;
  const std::string address_;
  const std::string mark_ = std::to_string(server_.Port());
  const MirrorCleaner mirror_{address_};
  Recording recording_{mark_};
  const Outcome sound_ = SoundOutcome();
  std::minstd_rand random_{Seed()};
  const std::set<std::string> around_ = NamesAround();
};

TEST_F(HostileServerTest, TheFirstReplyMayBeCutOrChangedAnywhere) {
  CutEverywhere(kFirstReply);
  ChangeEachByte(kFirstReply);
}

TEST_F(HostileServerTest, TheSecondReplyMayBeCutOrChangedAnywhere) {
  CutEverywhere(kSecondReply);
  ChangeEachByte(kSecondReply);
}

TEST_F(HostileServerTest, TheSecondReplyMayBeChangedAnywhereBeforeItsScrambling) {
  ChangeEachByte(kSecondReply, Sound().plainSecond, [](const std::string& plain) { return Scrambled(plain); });
}

TEST_F(HostileServerTest, TheLoginReplyMayBeCutOrChangedAnywhere) {
  CutEverywhere(kLoginReply);
  ChangeEachByte(kLoginReply);
}

TEST_F(HostileServerTest, TheDriverFileMayBeCutOrChangedAnywhere) {
  CutEverywhere(kDriverFileReply);
  ChangeEachByte(kDriverFileReply);
}

TEST_F(HostileServerTest, TheTagIdsMayBeCutOrChangedAnywhere) {
  CutEverywhere(kTagIdsReply);
  ChangeEachByte(kTagIdsReply);
}

TEST_F(HostileServerTest, TheValuesOfAReadMayBeCutOrChangedAnywhere) {
  CutEverywhere(kReadReply);
  ChangeEachByte(kReadReply);
}

TEST_F(HostileServerTest, TheValuesOfAConnectMayBeCutOrChangedAnywhere) {
  CutEverywhere(kConnectReply);
  ChangeEachByte(kConnectReply);
}

TEST_F(HostileServerTest, TheActiveAlarmsMayBeCutOrChangedAnywhere) {
  CutEverywhere(kAlarmsReply);
  ChangeEachByte(kAlarmsReply);
}

TEST_F(HostileServerTest, TheListsMayBeCutOrChangedAnywhere) {
  CutEverywhere(kTextListReply);
  ChangeEachByte(kTextListReply);
  CutEverywhere(kTagListReply);
  ChangeEachByte(kTagListReply);
}

TEST_F(HostileServerTest, TheNotificationsMayBeCutAnywhere) { CutEverywhere(kNotifications); }

TEST_F(HostileServerTest, TheNotificationsMayBeChangedAnywhere) { ChangeEachByte(kNotifications); }

TEST_F(HostileServerTest, EveryReplyMayStandInEveryOthersPlace) {
  for (size_t place = 0; place < kReplies; ++place) {
    for (size_t other = 0; other < kReplies; ++other) {
      if (other == place) continue;
      Recording recording = Sound();
      recording.changed = place;
      recording.replies[place] = Sound().replies[other];
      if (!Run(recording, std::string("replaced by ") + NameOf(static_cast<Reply>(other)))) return;
    }
  }
}

TEST_F(HostileServerTest, EmptyChunksOfAReadWithoutEndAreAFailedRead) {
  SendEndlessly(kReadReply, std::string("H\1\0\0", 4));
  EXPECT_EQ(last.results.at(1), "read nothing");
}

TEST_F(HostileServerTest, EmptyChunksOfAConnectWithoutEndAreAFailedConnect) {
  SendEndlessly(kConnectReply, std::string("b\0\0", 3));
  EXPECT_EQ(last.results.at(2), "tags connected 0");
}

TEST_F(HostileServerTest, ADriverFileHeaderWithoutEndIsASessionWithoutDrivers) {
  SendEndlessly(kDriverFileReply, "Name:value\r\n");
  EXPECT_EQ(last.results, (std::vector<std::string>{"connect 0", "alarms -2"}));
}

// A server at the relay's port that sends its clients on to another one.
class HostileRedirectTest : public HostileServerTest {
 protected:
  HostileRedirectTest() : HostileServerTest("127.84.1.2", "127.84.1.1:3968") {
    Sound().replies[kFirstReply] = LanReply(Server().Host(), Server().Port());
  }

  static std::string LanReply(const std::string& host, uint16_t port) {
    uint32_t addr = 0;
    inet_pton(AF_INET, host.c_str(), &addr);
    std::string reply = "7lan";
    reply.append(reinterpret_cast<const char*>(&addr), sizeof addr);
    return reply + static_cast<char>(port >> 8) + static_cast<char>(port & 0xFF);
  }

  void StartServers(const Recording& recording) override {
    target_ = recording;
    target_.changed = kReplies;
    target_.replies[kFirstReply] = "7";
    Server().Play(target_);
    sender_.Play(recording);
  }
  void StopServers() override {
    sender_.Stop();
    HostileServerTest::StopServers();
  }

 private:
  ReplayServer sender_{"127.84.1.1", 3968};
  Recording target_{""};
};

TEST_F(HostileRedirectTest, TheAnswerMayBeCutOrChangedAnywhere) {
  CutEverywhere(kFirstReply);
  const std::string whole = Sound().replies[kFirstReply];
  ChangeEachByte(kFirstReply, whole, [&](const std::string& bytes) {
    return bytes[4] == whole[4] ? bytes : "";  // another first byte of the address would lead away from this machine
  });
}

TEST(HostileRing, TwoServersSendTheClientRoundForAsLongAsTheyAnswerAndNoLonger) {
  constexpr int kRounds = 100;
  const auto lan = [](char last) { return "7lan" + FromHex("7F 54 02") + last + FromHex("0F 80"); };
  for (const bool closes : {true, false}) {
    ScriptedPeer one("127.84.2.1", 3968);
    ScriptedPeer two("127.84.2.2", 3968);
    for (int i = 0; i < kRounds; ++i) {
      one.Accept().ReceiveSome().ReplyBytes(lan(2)).WaitClose().Close();
      two.Accept().ReceiveSome().ReplyBytes(lan(1)).WaitClose().Close();
    }
    one.Accept().ReceiveSome();
    if (!closes) one.Reply("30");
    one.Close().Start();
    two.Start();
    CaptureStdout out;
    const int before = OpenDescriptors();
    FakeNapi js;
    TestCore core(js.Env());
    EXPECT_EQ(core._Connect("127.84.2.1:3968", "user", "word"), -2);
    one.Join();
    two.Join();
    EXPECT_EQ(OpenDescriptors(), before) << "each hop's connection was closed";
    EXPECT_EQ(out.Text().size(), size_t{2} * kRounds * (sizeof "Is same lan ..."));
  }
}
