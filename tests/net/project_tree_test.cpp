// The project path, the local project tree and the send primitive for requests.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "net/CClientSock.h"
#include "net/FakeSystem.h"
#include "support/CaptureOutput.h"
#include "support/HexBytes.h"
#include "support/ScriptedPeer.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

const std::set<std::string> kTree = {"3DWnd",  "CtmGph", "DBDrv",  "ExtData", "Media",         "RecData",
                                     "Report", "ScnDrv", "SysCfg", "Window",  "RecData/Event", "RecData/Alarm2"};

// The relative names of everything below a directory.
std::set<std::string> Below(const std::string& dir) {
  std::set<std::string> names;
  std::error_code error;
  for (fs::recursive_directory_iterator it(dir, error), end; it != end; it.increment(error)) {
    names.insert(it->path().string().substr(dir.size()));
  }
  return names;
}

mode_t ModeOf(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

// A session whose handshake has ended.
struct Session : CClientSock {
  Session() { localDB = false; }

  // The request connection to a peer.
  void Open(const ScriptedPeer& peer) {
    EXPECT_EQ(1, requestSock.Create(0, SOCK_STREAM, nullptr, 0));
    EXPECT_EQ(1, requestSock._Connect(peer.Host().c_str(), peer.Port()));
  }

  CString error;
};

}  // namespace

TEST(ProjectTree, StandsBelowTheServersDirectoryWithEveryColonReplaced) {
  const MirrorCleaner mirror("192.168.0.10:3968:net-tree-1");
  EXPECT_EQ("/tmp/vqbrowser/192.168.0.10_3968_net-tree-1/", mirror.Path());
  Session session;
  EXPECT_EQ(1, session.AfterConnect("192.168.0.10:3968:net-tree-1", "Plant", session.error));
  EXPECT_EQ(mirror.Path() + "Plant/", session.projectPath);
  EXPECT_EQ("", session.error);
  EXPECT_EQ(kTree, Below(mirror.Path() + "Plant/"));
  EXPECT_EQ(kTree.size() + 1, Below(mirror.Path()).size());
}

TEST(ProjectTree, OfARelayAddressKeepsItsParentheses) {
  const MirrorCleaner mirror("p2p(10.1.1.1):net-tree-dev7");
  Session session;
  EXPECT_EQ(1, session.AfterConnect("p2p(10.1.1.1):net-tree-dev7", "Plant", session.error));
  EXPECT_EQ("/tmp/vqbrowser/p2p(10.1.1.1)_net-tree-dev7/Plant/", session.projectPath);
  EXPECT_EQ(kTree, Below(session.projectPath));
}

TEST(ProjectTree, IsForTheOwnerAloneWhateverTheUmask) {
  const MirrorCleaner mirror("net-tree-2");
  const mode_t old = umask(0);
  Session session;
  EXPECT_EQ(1, session.AfterConnect("net-tree-2", "Plant", session.error));
  umask(old);
  EXPECT_EQ(0700u, ModeOf(mirror.Path()));
  EXPECT_EQ(0700u, ModeOf(session.projectPath));
  for (const std::string& name : kTree) EXPECT_EQ(0700u, ModeOf(session.projectPath + name)) << name;
}

TEST(ProjectTree, ServerProjectEventAndAlarmDirectoriesAreGivenTheirModeAlsoWhenTheyExist) {
  const MirrorCleaner mirror("net-tree-3");
  Session session;
  EXPECT_EQ(1, session.AfterConnect("net-tree-3", "Plant", session.error));
  const std::string project = session.projectPath;
  const std::string records = project + "RecData/";
  const std::vector<std::string> fixed = {mirror.Path(), project, records + "Event", records + "Alarm2"};
  for (const std::string& dir : fixed) chmod(dir.c_str(), 0755);
  chmod((project + "Window").c_str(), 0755);
  EXPECT_EQ(1, session.AfterConnect("net-tree-3", "Plant", session.error));
  for (const std::string& dir : fixed) EXPECT_EQ(0700u, ModeOf(dir)) << dir;
  EXPECT_EQ(0755u, ModeOf(project + "Window")) << "an existing directory is simply kept";
}

TEST(ProjectTree, ASecondCallLeavesItUnchanged) {
  const MirrorCleaner mirror("net-tree-4");
  Session session;
  EXPECT_EQ(1, session.AfterConnect("net-tree-4", "Plant", session.error));
  const CString path = session.projectPath;
  const int kept = creat((path + "RecData/drvinfo.dat").c_str(), 0600);
  EXPECT_EQ(5, write(kept, "12345", 5));
  close(kept);
  const std::set<std::string> before = Below(mirror.Path());
  EXPECT_EQ(1, session.AfterConnect("net-tree-4", "Plant", session.error));
  EXPECT_EQ(path, session.projectPath);
  EXPECT_EQ(before, Below(mirror.Path()));
  EXPECT_EQ(5u, fs::file_size(std::string(path) + "RecData/drvinfo.dat"));
}

TEST(ProjectTree, IsMadeInOneOrder) {
  FakeSystem fake;
  fake.refuseDirectories = true;
  Session session;
  EXPECT_EQ(1, session.AfterConnect("h:net-tree-10", "Plant", session.error));
  const std::string server = "/tmp/vqbrowser/h_net-tree-10";
  const std::string project = server + "/Plant";
  std::vector<std::string> calls = {"mkdir /tmp/vqbrowser/ 700"};
  for (const std::string& dir : {server, project}) {
    calls.push_back("mkdir " + dir + " 700");
    calls.push_back("chmod " + dir + " 700");
  }
  for (const char* name : {"Window/", "3DWnd/", "Report/", "CtmGph/", "ScnDrv/", "DBDrv/", "Media/", "SysCfg/",
                           "RecData/", "ExtData/", "RecData/Event/", "RecData/Alarm2/"}) {
    const std::string dir = project + "/" + name;
    calls.push_back("mkdir " + dir + " 700");
    if (dir.find("RecData/E") != std::string::npos || dir.find("RecData/A") != std::string::npos) {
      calls.push_back("chmod " + dir + " 700");
    }
  }
  EXPECT_EQ(calls, fake.calls);
}

TEST(ProjectTree, WithoutItsRootFailsNothingAndThePathIsStillSet) {
  FakeSystem fake;
  fake.refuseDirectories = true;
  Session session;
  session.error = "before";
  EXPECT_EQ(1, session.AfterConnect("net-tree-11", "Plant", session.error));
  EXPECT_EQ("/tmp/vqbrowser/net-tree-11/Plant/", session.projectPath);
  EXPECT_EQ("before", session.error);
  EXPECT_FALSE(fs::exists("/tmp/vqbrowser/net-tree-11"));
}

TEST(ProjectTree, ThatCannotBeMadeFailsNothingAndThePathIsStillSet) {
  const MirrorCleaner mirror("net-tree-5");
  fs::create_directories("/tmp/vqbrowser");
  const int file = creat(mirror.Path().substr(0, mirror.Path().size() - 1).c_str(), 0600);  // in the directory's place
  close(file);
  Session session;
  EXPECT_EQ(1, session.AfterConnect("net-tree-5", "Plant", session.error));
  EXPECT_EQ(mirror.Path() + "Plant/", session.projectPath);
  EXPECT_FALSE(fs::exists(std::string(session.projectPath)));
}

TEST(ProjectTree, OfAnAddressTooLongForThisFileSystemIsStillAPath) {
  const std::string address(6000, 'x');
  Session session;
  EXPECT_EQ(1, session.AfterConnect(address.c_str(), "Plant", session.error));
  EXPECT_EQ("/tmp/vqbrowser/" + address + "/Plant/", session.projectPath);
}

TEST(ProjectTree, OfAChineseProjectStandsUnderBothForms) {
  const std::string gb2312 = FromHex("B9 A4 B3 CC 31");
  const std::string utf8 = FromHex("E5 B7 A5 E7 A8 8B 31");
  const MirrorCleaner mirror("net-tree-6");
  Session session;
  EXPECT_EQ(1, session.AfterConnect("net-tree-6", CString(gb2312), session.error));
  EXPECT_EQ(mirror.Path() + gb2312 + "/", session.projectPath);
  EXPECT_EQ(kTree, Below(mirror.Path() + gb2312 + "/"));
  EXPECT_EQ(kTree, Below(mirror.Path() + utf8 + "/"));
  EXPECT_EQ(0700u, ModeOf(mirror.Path() + gb2312));
  EXPECT_EQ(0700u, ModeOf(mirror.Path() + utf8));
  EXPECT_EQ(2 * (kTree.size() + 1), Below(mirror.Path()).size());
}

TEST(ProjectTree, OfAChineseDeviceNameIsWhereTheFilesOfItsPathAreStored) {
  const MirrorCleaner mirror("p2p:\xE8\xAE\xBE\xE5\xA4\x87-net-tree");  // UTF-8, as the user gives it
  Session session;
  EXPECT_EQ(1, session.AfterConnect("p2p:\xE8\xAE\xBE\xE5\xA4\x87-net-tree", "Plant", session.error));
  EXPECT_EQ("/tmp/vqbrowser/p2p_\xC9\xE8\xB1\xB8-net-tree/Plant/", session.projectPath);
  CString stored;
  session.projectPath.ToUtf8(stored);
  EXPECT_EQ(mirror.Path() + "Plant/", stored);
  EXPECT_EQ(kTree, Below(stored));
}

TEST(ProjectTree, OfADeviceNameThatGb2312LacksStandsUnderItsOwnBytes) {
  const MirrorCleaner mirror("p2p:\xF0\x9F\x98\x80-net-tree");
  Session session;
  const CaptureStderr silenced;
  EXPECT_EQ(1, session.AfterConnect("p2p:\xF0\x9F\x98\x80-net-tree", "Plant", session.error));
  EXPECT_EQ(mirror.Path() + "Plant/", session.projectPath);
  EXPECT_EQ(kTree, Below(session.projectPath));
}

TEST(ProjectTree, OfANameThatCannotBeConvertedStandsUnderItsOwnBytes) {
  const MirrorCleaner mirror("net-tree-7");
  Session session;
  CaptureStderr err;
  EXPECT_EQ(1, session.AfterConnect("net-tree-7", "\xFFx", session.error));
  EXPECT_EQ(0u, err.Text().find("ToUtf8:iconv:: "));
  EXPECT_EQ(kTree, Below(session.projectPath));
  EXPECT_EQ(kTree.size() + 1, Below(mirror.Path()).size()) << "no tree beside the project's directory";
}

TEST(SafeProjectName, RefusesWhatWouldLeadElsewhere) {
  EXPECT_FALSE(IsSafeProjectName("."));
  EXPECT_FALSE(IsSafeProjectName(".."));
  EXPECT_FALSE(IsSafeProjectName("/"));
  EXPECT_FALSE(IsSafeProjectName("a/b"));
  EXPECT_FALSE(IsSafeProjectName("../x"));
  EXPECT_FALSE(IsSafeProjectName("plant/"));
  EXPECT_FALSE(IsSafeProjectName(CString("a\0b", 3)));
}

TEST(SafeProjectName, RefusesDotsBeforeAnUnconvertibleByte) {
  CaptureStderr err;
  EXPECT_FALSE(IsSafeProjectName(".\xFF"));
  EXPECT_FALSE(IsSafeProjectName("..\xFF\xFF"));
}

TEST(SafeProjectName, TakesOrdinaryNames) {
  CaptureStderr err;
  for (const char* name : {"", "Plant", "...", ".hidden", "..x", "a.b", "a\\b", "p q", "\xB9\xA4\xB3\xCC", ".\xB9\xA4",
                           "..\xB9\xA4", "\xA1\xAF", "a\xFF", "\xFF", "...\xFF"}) {
    EXPECT_TRUE(IsSafeProjectName(name)) << name;
  }
  EXPECT_EQ("", err.Text());
}

TEST(ProjectPathRequest, AReplyOfFourTextsSetsTheFourStrings) {
  ScriptedPeer peer;
  peer.Accept().Expect("33").Reply("33 61 00 62 00 63 00 64 00").Start();
  Session session;
  session.Open(peer);
  CString path, s2, s3, s4;
  EXPECT_EQ(1, session.GetPrjPath(path, s2, s3, s4));
  peer.Join();
  EXPECT_EQ("a", path);
  EXPECT_EQ("b", s2);
  EXPECT_EQ("c", s3);
  EXPECT_EQ("d", s4);
}

TEST(ProjectPathRequest, EveryCutOfAReplyLeavesTheMissingTextsEmpty) {
  const std::string whole = FromHex("33 61 62 00 63 00 64 00 65 00");
  const std::vector<std::vector<std::string>> texts = {
      {"", "", "", ""},    {"a", "", "", ""},    {"ab", "", "", ""},   {"ab", "", "", ""},    {"ab", "c", "", ""},
      {"ab", "c", "", ""}, {"ab", "c", "d", ""}, {"ab", "c", "d", ""}, {"ab", "c", "d", "e"}, {"ab", "c", "d", "e"},
  };
  for (size_t len = 1; len <= whole.size(); ++len) {
    ScriptedPeer peer;
    peer.Accept().Expect("33").ReplyBytes(whole.substr(0, len)).Start();
    Session session;
    session.Open(peer);
    CString got[4] = {"x", "x", "x", "x"};
    EXPECT_EQ(1, session.GetPrjPath(got[0], got[1], got[2], got[3]));
    peer.Join();
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(texts[len - 1][i], got[i]) << "length " << len << ", text " << i;
  }
}

TEST(ProjectPathRequest, ALongReplyIsReadUpTo2048Bytes) {
  ScriptedPeer peer;
  peer.Accept().Expect("33").ReplyBytes("3" + std::string(5000, 'p')).Start();
  Session session;
  FakeSystem fake;
  std::vector<size_t> asked;
  fake.onRecv = [&](int, size_t len, int, const FakeSystem::RealTransfer& real) {
    asked.push_back(len);
    return real(len);
  };
  session.Open(peer);
  CString path, s2, s3, s4;
  EXPECT_EQ(1, session.GetPrjPath(path, s2, s3, s4));
  EXPECT_EQ(std::vector<size_t>{2048}, asked);
  EXPECT_LE(path.size(), 2047u);
  EXPECT_GE(path.size(), 1u);
  EXPECT_EQ("", s2);
  peer.Join();
}

TEST(ProjectPathRequest, FailuresGiveZeroAndLeaveTheTextsAlone) {
  for (const char* reply : {"34 61 00", "00", ""}) {
    ScriptedPeer peer;
    peer.Accept().Expect("33").Reply(reply).Close().Start();
    Session session;
    session.Open(peer);
    CString path = "x", s2, s3, s4;
    EXPECT_EQ(0, session.GetPrjPath(path, s2, s3, s4)) << reply;
    EXPECT_EQ("x", path);
    peer.Join();
  }
  Session unconnected;
  CString path, s2, s3, s4;
  EXPECT_EQ(0, unconnected.GetPrjPath(path, s2, s3, s4));
}

TEST(ProjectPathRequest, WithoutItsByteSentWaitsForNoReply) {
  for (const ssize_t result : {-1, 0}) {
    Session session;
    FakeSystem fake;
    fake.onSend = [&](int, size_t len, int, const FakeSystem::RealTransfer&) {
      EXPECT_EQ(1u, len);
      errno = EAGAIN;
      return result;
    };
    int receives = 0;
    fake.onRecv = [&](int, size_t, int, const FakeSystem::RealTransfer&) {
      ++receives;
      return ssize_t{-1};
    };
    CString path = "x", s2, s3, s4;
    EXPECT_EQ(0, session.GetPrjPath(path, s2, s3, s4));
    EXPECT_EQ("x", path);
    EXPECT_EQ(0, receives);
  }
}

TEST(ProjectPathRequest, IsALastSend) {
  FakeSystem fake;
  fake.now = 1000;
  Session session;
  fake.now = 2000;
  CString path, s2, s3, s4;
  EXPECT_EQ(0, session.GetPrjPath(path, s2, s3, s4));
  EXPECT_EQ(2000, session.requestSock.LastSend()) << "also one that fails";
}

TEST(ProjectPathRequest, NothingOfAnEarlierReplyShowsInALaterOne) {
  ScriptedPeer peer;
  peer.Accept().Expect("33").ReplyBytes("3" + std::string(2000, 'p')).Expect("33").Reply("33 61");
  peer.Expect("33").Close().Start();
  Session session;
  session.Open(peer);
  CString path, s2, s3, s4;
  const auto ask = [&] { return session.GetPrjPath(path, s2, s3, s4); };
  EXPECT_EQ(1, ask());
  EXPECT_EQ(std::string(2000, 'p'), path);
  EXPECT_EQ(1, ask());
  EXPECT_EQ("a", path);
  EXPECT_EQ(0, ask()) << "the server has closed";
  peer.Join();
}

TEST(LocalDatabaseTree, AsksTheServerAndFillsTheMembers) {
  ScriptedPeer peer;
  peer.Accept().Expect("33").Reply("33 2F 61 2F 00 62 00 63 00 64 00").Start();
  Session session;
  session.localDB = true;
  session.Open(peer);
  EXPECT_EQ(1, session.AfterConnect("net-tree-8", "Plant", session.error));
  peer.Join();
  EXPECT_EQ("/a/", session.projectPath);
  EXPECT_EQ("b", session.path2);
  EXPECT_EQ("c", session.path3);
  EXPECT_EQ("d", session.path4);
  EXPECT_EQ("", session.error);
  EXPECT_FALSE(fs::exists("/tmp/vqbrowser/net-tree-8"));
}

TEST(LocalDatabaseTree, AFailureGivesZeroAndTheMessageInGb2312) {
  Session session;
  session.localDB = true;
  EXPECT_EQ(0, session.AfterConnect("net-tree-9", "Plant", session.error));
  EXPECT_EQ("CE DE B7 A8 BB F1 C8 A1 B9 A4 B3 CC C2 B7 BE B6", ToHex(session.error));
}

TEST(ReqSend, SendsTheRequestAndGivesItsLength) {
  ScriptedPeer peer;
  peer.Accept().Expect("61 62 63").WaitClose().Start();
  {
    FakeSystem fake;
    fake.now = 1000;
    Session session;
    session.Open(peer);
    EXPECT_EQ(0, session.ReqSend("abc", 0));
    EXPECT_EQ(1000, session.requestSock.LastSend()) << "nothing was sent since the construction";
    fake.now = 2000;
    EXPECT_EQ(3, session.ReqSend("abc", 3));
    EXPECT_EQ(2000, session.requestSock.LastSend());
  }
  peer.Join();
}

TEST(ReqSend, ALengthBelowOneIsGivenBackWithoutSending) {
  Session session;
  FakeSystem fake;
  int sends = 0;
  fake.onSend = [&](int, size_t, int, const FakeSystem::RealTransfer&) {
    ++sends;
    return ssize_t{1};
  };
  EXPECT_EQ(0, session.ReqSend("x", 0));
  EXPECT_EQ(-5, session.ReqSend("x", -5));
  EXPECT_EQ(0, sends);
}

TEST(ReqSend, AfterAShortSendBeginsAgainFromTheStartUntilTheTotalReachesTheLength) {
  ScriptedPeer peer;
  peer.Accept().Expect("61 62 63 61 62 63 61 62 63 64").WaitClose().Start();
  {
    Session session;
    session.Open(peer);
    FakeSystem fake;
    std::vector<size_t> asked;
    fake.onSend = [&](int, size_t len, int flags, const FakeSystem::RealTransfer& real) {
      EXPECT_EQ(MSG_NOSIGNAL, flags);
      asked.push_back(len);
      return real(asked.size() < 3 ? 3 : 4);
    };
    EXPECT_EQ(10, session.ReqSend("abcdefghij", 10));
    EXPECT_EQ((std::vector<size_t>{10, 10, 10}), asked) << "3 + 3 + 4 bytes";
  }
  peer.Join();
}

TEST(ReqSend, StopsAlsoWhenTheTotalPassesTheLength) {
  Session session;
  FakeSystem fake;
  int sends = 0;
  fake.onSend = [&](int, size_t, int, const FakeSystem::RealTransfer&) {
    ++sends;
    return ssize_t{2};
  };
  EXPECT_EQ(3, session.ReqSend("abc", 3));
  EXPECT_EQ(2, sends);
}

TEST(ReqSend, GivesTheFailingSendsResult) {
  Session session;
  EXPECT_EQ(-1, session.ReqSend("abc", 3)) << "no connection";
  FakeSystem fake;
  int sends = 0;
  fake.onSend = [&](int, size_t, int, const FakeSystem::RealTransfer&) {
    return sends++ == 0 ? ssize_t{1} : ssize_t{0};
  };
  EXPECT_EQ(0, session.ReqSend("abc", 3));
  EXPECT_EQ(2, sends);
}
