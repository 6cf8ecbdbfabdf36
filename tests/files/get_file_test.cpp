// What GetFile asks for, and what it does with each kind of answer before a body.
#include "files/GetFile.h"

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <string>

#include "files/FakeFileServer.h"
#include "gtest/gtest.h"
#include "net/CReqTimeSock.h"
#include "support/CaptureOutput.h"
#include "support/HexBytes.h"
#include "support/OpenDescriptors.h"
#include "support/ScriptedPeer.h"
#include "support/TempDir.h"

namespace {

constexpr uint32_t kTime = 0x65A0B1C2;

void SetTime(const std::string& file, long long seconds) {
  utimbuf times{};
  times.actime = static_cast<time_t>(seconds);
  times.modtime = static_cast<time_t>(seconds);
  ASSERT_EQ(0, utime(file.c_str(), &times));
}

long long TimeOf(const std::string& file) {
  struct stat info {};
  return stat(file.c_str(), &info) == 0 ? static_cast<long long>(info.st_mtime) : -1;
}

// A project directory and a server.
struct Mirror {
  int Get(uint32_t fileTime = 0, uint32_t fileSize = 0, const char* prefix = nullptr, char cmd = '4') {
    return GetFile("RecData/textlist", server, cmd, CString(dir.Path()), fileTime, fileSize, &progress, prefix);
  }
  std::string Write(const std::string& bytes, long long seconds, const std::string& suffix = "") {
    const std::string file = dir.Write("RecData/textlist" + suffix, bytes);
    SetTime(file, seconds);
    return file;
  }
  std::string Read() const { return dir.Read("RecData/textlist"); }

  TempDir dir;
  FakeFileServer server;
  ProgressLog progress;
};

}  // namespace

TEST(GetFileRequest, WithoutALocalFileNamesThePathAlone) {
  Mirror mirror;
  EXPECT_EQ(0, mirror.Get());
  ASSERT_EQ(1u, mirror.server.sent.size()) << "one send";
  EXPECT_EQ("4RecData/textlist\r\nHello:Yes\r\n\r\n", mirror.server.sent[0]);
  EXPECT_EQ(std::vector<int>{2048}, mirror.server.asked);
  EXPECT_EQ(0, mirror.server.flagsSeen);
}

TEST(GetFileRequest, PutsThePrefixBehindTheCommand) {
  Mirror mirror;
  EXPECT_EQ(0, mirror.Get(0, 0, "extra|", '5'));
  EXPECT_EQ("5extra|RecData/textlist\r\nHello:Yes\r\n\r\n", mirror.server.sent[0]);
}

TEST(GetFileRequest, DescribesALocalFileThatIsNotCurrent) {
  Mirror mirror;
  mirror.Write(std::string(0x1AB, 'x'), kTime);
  EXPECT_EQ(0, mirror.Get(kTime, 5));
  EXPECT_EQ("4RecData/textlist\r\nLastTime:65A0B1C2\r\nSize:1AB\r\nHello:Yes\r\n\r\n", mirror.server.sent[0]);
}

TEST(GetFileRequest, DescribesAGzCompanionAlsoAlone) {
  Mirror mirror;
  mirror.Write("12345", 0xF, ".gz");
  EXPECT_EQ(0, mirror.Get());
  EXPECT_EQ("4RecData/textlist\r\ngzTime:F\r\ngzSize:5\r\nHello:Yes\r\n\r\n", mirror.server.sent[0]);
}

TEST(GetFileRequest, DescribesBothAndZerosWithoutLeadingZeros) {
  Mirror mirror;
  mirror.Write("", 0);
  mirror.Write("1", 0x10, ".gz");
  EXPECT_EQ(0, mirror.Get(kTime, 0));
  EXPECT_EQ("4RecData/textlist\r\nLastTime:0\r\nSize:0\r\ngzTime:10\r\ngzSize:1\r\nHello:Yes\r\n\r\n",
            mirror.server.sent[0]);
}

TEST(GetFileRequest, TimesBeyond32BitsAreSentByTheirLow32) {
  Mirror mirror;
  const std::string file = mirror.Write("x", 0x100000005LL);
  if (TimeOf(file) != 0x100000005LL) GTEST_SKIP() << "this file system keeps no such times";
  EXPECT_EQ(0, mirror.Get());
  EXPECT_EQ("4RecData/textlist\r\nLastTime:5\r\nSize:1\r\nHello:Yes\r\n\r\n", mirror.server.sent[0]);
}

TEST(GetFileRequest, SizesBeyond32BitsAreSentByTheirLow32AndAreNotCurrent) {
  Mirror mirror;
  const std::string plain = mirror.dir.Write("RecData/textlist", "");
  const std::string gz = mirror.dir.Write("RecData/textlist.gz", "");
  if (truncate64(plain.c_str(), 0x100000005LL) != 0 || truncate64(gz.c_str(), 0x2000000ABLL) != 0) {
    GTEST_SKIP() << "this file system keeps no such sizes";
  }
  SetTime(plain, kTime);
  SetTime(gz, 0x10);
  EXPECT_EQ(0, mirror.Get(kTime, 5));
  ASSERT_EQ(1u, mirror.server.sent.size());
  EXPECT_EQ("4RecData/textlist\r\nLastTime:65A0B1C2\r\nSize:5\r\ngzTime:10\r\ngzSize:AB\r\nHello:Yes\r\n\r\n",
            mirror.server.sent[0]);
}

TEST(GetFileRequest, TimesBefore1970AreSentByTheirLow32) {
  Mirror mirror;
  const std::string file = mirror.Write("x", -2);
  if (TimeOf(file) != -2) GTEST_SKIP() << "this file system keeps no such times";
  EXPECT_EQ(0, mirror.Get(kTime, 1));
  EXPECT_EQ("4RecData/textlist\r\nLastTime:FFFFFFFE\r\nSize:1\r\nHello:Yes\r\n\r\n", mirror.server.sent[0]);
}

TEST(GetFileRequest, SentInPartIsNotRepeatedAndTheAnswerIsTaken) {
  Mirror mirror;
  mirror.dir.MakeDir("RecData");
  mirror.server.sendResult = 5;
  mirror.server.Reply("Size:2\r\n\r\nab");
  EXPECT_EQ(1, mirror.Get());
  EXPECT_EQ(1u, mirror.server.sent.size());
  EXPECT_EQ("ab", mirror.Read());
}

TEST(GetFileCurrent, ThreeSecondsApartWithTheSameSizeSendsNothing) {
  for (const int apart : {-3, -1, 0, 3}) {
    Mirror mirror;
    mirror.Write("12345", static_cast<long long>(kTime) + apart);
    EXPECT_EQ(1, mirror.Get(kTime, 5)) << apart;
    EXPECT_TRUE(mirror.server.sent.empty());
    EXPECT_TRUE(mirror.server.asked.empty());
    EXPECT_TRUE(mirror.progress.calls.empty());
  }
}

TEST(GetFileCurrent, FourSecondsApartOrAnotherSizeSendsARequest) {
  for (const int apart : {-4, 4}) {
    Mirror mirror;
    mirror.Write("12345", static_cast<long long>(kTime) + apart);
    EXPECT_EQ(0, mirror.Get(kTime, 5)) << apart;
    EXPECT_EQ(1u, mirror.server.sent.size());
  }
  for (const uint32_t size : {4u, 6u, 0xFFFFFFFFu}) {
    Mirror mirror;
    mirror.Write("12345", kTime);
    EXPECT_EQ(0, mirror.Get(kTime, size)) << size;
    EXPECT_EQ(1u, mirror.server.sent.size());
  }
}

TEST(GetFileCurrent, TimesAtBothEndsOfTheirRangeDoNotWrap) {
  Mirror late;
  late.Write("12345", 1);
  EXPECT_EQ(0, late.Get(0xFFFFFFFFu, 5)) << "-1 is 2 s from 1 only in 32 bits";
  Mirror early;
  early.Write("12345", 2);
  EXPECT_EQ(1, early.Get(0, 5));
  Mirror last;
  if (TimeOf(last.Write("12345", 0xFFFFFFFEu)) != 0xFFFFFFFEll) GTEST_SKIP() << "this file system keeps no such times";
  EXPECT_EQ(1, last.Get(0xFFFFFFFFu, 5));
}

TEST(GetFileCurrent, AGzCompanionDoesNotMakeItCurrent) {
  Mirror mirror;
  mirror.Write("12345", kTime, ".gz");
  EXPECT_EQ(0, mirror.Get(kTime, 5));
}

TEST(GetFilePath, IsConvertedToUtf8ForTheFileSystemAndSentAsItIs) {
  const std::string name = "RecData/" + FromHex("B9 A4 B3 CC");
  const std::string utf8 = "RecData/" + FromHex("E5 B7 A5 E7 A8 8B");
  TempDir dir;
  dir.MakeDir("RecData");
  FakeFileServer server;
  server.Reply("Size:2\r\n\r\nab");
  EXPECT_EQ(1, GetFile(CString(name), server, '4', CString(dir.Path()), 0, 0, nullptr, nullptr));
  EXPECT_EQ("4" + name + "\r\nHello:Yes\r\n\r\n", server.sent[0]);
  EXPECT_EQ("ab", dir.Read(utf8));
  EXPECT_FALSE(dir.Has(name));
}

TEST(GetFilePath, AFileNameHeaderNeverBecomesAPath) {
  Mirror mirror;
  mirror.dir.MakeDir("RecData");
  mirror.server.Reply("FileName:../../escaped\r\nSize:2\r\n\r\nab");
  EXPECT_EQ(1, mirror.Get());
  EXPECT_EQ("ab", mirror.Read());
  EXPECT_FALSE(mirror.dir.Has("../escaped"));
  EXPECT_FALSE(mirror.dir.Has("../../escaped"));
}

TEST(GetFileFailure, ASendOfNothingOrAnErrorGivesZeroWithoutReceiving) {
  for (const int result : {0, -1}) {
    Mirror mirror;
    mirror.server.sendResult = result;
    mirror.server.Reply("Exist:No\r\n\r\n");
    EXPECT_EQ(0, mirror.Get());
    EXPECT_TRUE(mirror.server.asked.empty());
  }
}

TEST(GetFileFailure, NoAnswerGivesZeroAndLeavesTheFileAlone) {
  for (const int result : {0, -1}) {
    Mirror mirror;
    const std::string file = mirror.Write("old", kTime);
    mirror.server.atEnd = result;
    EXPECT_EQ(0, mirror.Get());
    EXPECT_EQ("old", mirror.Read());
    EXPECT_EQ(kTime, TimeOf(file));
  }
}

TEST(GetFileFailure, PrintsNothing) {
  CaptureStdout out;
  CaptureStderr err;
  for (const char* reply : {"", "Exist:No\r\n\r\n", "Size:5\r\n\r\nab", "Size:2\r\nGZ:Yes\r\n\r\nab"}) {
    Mirror mirror;
    mirror.dir.MakeDir("RecData/textlist.gz/in the way");
    if (*reply != '\0') mirror.server.Reply(reply);
    mirror.Get();
    mirror.server.sendResult = -1;
    mirror.Get();
  }
  EXPECT_EQ("", out.Text());
  EXPECT_EQ("", err.Text());
}

TEST(GetFileExist, NoRemovesTheLocalFileOnlyAndGivesOne) {
  Mirror mirror;
  mirror.Write("old", kTime);
  const std::string gz = mirror.Write("gz", kTime, ".gz");
  mirror.server.Reply("Exist: No\r\nGZ:Yes\r\nSize:3\r\n\r\nnew");
  EXPECT_EQ(1, mirror.Get());
  EXPECT_EQ("gz", mirror.dir.Read("RecData/textlist.gz"));
  EXPECT_EQ(kTime, TimeOf(gz));
  EXPECT_TRUE(mirror.progress.calls.empty());
  EXPECT_FALSE(mirror.dir.Has("RecData/textlist"));
  EXPECT_TRUE(mirror.dir.Has("RecData/textlist.gz"));
  EXPECT_EQ(1u, mirror.server.asked.size());
}

TEST(GetFileExist, NoWithoutALocalFileGivesOne) {
  Mirror mirror;
  mirror.server.Reply("Exist:No\r\n\r\n");
  EXPECT_EQ(1, mirror.Get());
}

TEST(GetFileExist, NoComesBeforeUseLast) {
  Mirror mirror;
  mirror.Write("old", kTime);
  mirror.server.Reply("UseLast:Yes\r\nExist:No\r\n\r\n");
  EXPECT_EQ(1, mirror.Get());
  EXPECT_FALSE(mirror.dir.Has("RecData/textlist"));
}

TEST(GetFileUseLast, LeavesTheFileAndItsTimeUntouched) {
  Mirror mirror;
  const std::string file = mirror.Write("old", kTime);
  mirror.server.Reply("UseLast:Yes\r\nFileTime:1\r\nSize:3\r\n\r\nnew");
  EXPECT_EQ(1, mirror.Get());
  EXPECT_EQ("old", mirror.Read());
  EXPECT_EQ(kTime, TimeOf(file));
  EXPECT_TRUE(mirror.progress.calls.empty());
}

TEST(GetFileOverTcp, FetchesAFileAndAcknowledgesItInTwoWindows) {
  const std::string header = "Hello:Yes\r\nSize:3F000\r\nFileTime:65A0B1C2\r\n\r\n";
  std::string body;
  for (int i = 0; body.size() < 0x3F000; ++i) body += static_cast<char>(i * 7);
  const size_t first = 0x20000 - header.size();
  const size_t second = 0x20000 - 10240;
  ScriptedPeer peer;
  peer.Accept().ExpectBytes("4RecData/textlist\r\nHello:Yes\r\n\r\n");
  peer.ReplyBytes(header + body.substr(0, first)).ExpectBytes(std::string("4Hello20000") + '\0');
  peer.ReplyBytes(body.substr(first, second)).ExpectBytes(std::string("4Hello1D800") + '\0');
  peer.ReplyBytes(body.substr(first + second)).WaitClose().Start();
  const int before = OpenDescriptors();
  TempDir dir;
  dir.MakeDir("RecData");
  CSyncSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock._Connect("127.0.0.1", peer.Port()));
  EXPECT_EQ(1, GetFile("RecData/textlist", sock, '4', CString(dir.Path()), 0, 0, nullptr, nullptr));
  sock.Close();
  peer.Join();
  EXPECT_EQ(body, dir.Read("RecData/textlist"));
  EXPECT_EQ(kTime, TimeOf(dir.Path() + "RecData/textlist"));
  EXPECT_EQ(before + 1, OpenDescriptors()) << "the peer's end of the connection is open, nothing else";
}

TEST(GetFileOverTcp, EndsBehindTheLastByteReadAndLeavesTheConnectionToTheNextRequest) {
  ScriptedPeer peer;
  peer.Accept().ExpectBytes("4RecData/textlist\r\nHello:Yes\r\n\r\n").ReplyBytes("Size:800\r\n\r\n");
  peer.ReplyBytes(std::string(2048, 'a')).ExpectBytes("4gone\r\nHello:Yes\r\n\r\n").ReplyBytes("Exist:No\r\n\r\n");
  peer.ExpectBytes("next").ReplyBytes("answer").WaitClose().Start();
  Mirror mirror;
  mirror.dir.MakeDir("RecData");
  CReqTimeSock sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock._Connect("127.0.0.1", peer.Port()));
  EXPECT_EQ(1, GetFile("RecData/textlist", sock, '4', CString(mirror.dir.Path()), 0, 0, nullptr, nullptr));
  EXPECT_EQ(std::string(2048, 'a'), mirror.Read());
  EXPECT_EQ(1, GetFile("gone", sock, '4', CString(mirror.dir.Path()), 0, 0, nullptr, nullptr));
  EXPECT_EQ(1, sock.SendAll("next", 4, 0));
  char answer[6];
  ASSERT_EQ(1, sock.RecvAll(answer, sizeof answer, 0));
  EXPECT_EQ("answer", std::string(answer, sizeof answer));
  sock.Close();
  peer.Join();
}

// Has a short time-out from the first bytes that it receives.
class SoonImpatientSocket : public CSyncSocket {
 public:
  int _Recv(void* buf, int len, int flags) override {
    const int received = CSyncSocket::_Recv(buf, len, flags);
    if (received > 0) SetTimeOut(50);
    return received;
  }
};

TEST(GetFileOverTcp, ASilentServerEndsByTheSocketsTimeOut) {
  ScriptedPeer peer;
  peer.Accept().ReceiveSome().ReplyBytes("Size:5\r\n\r\nab").WaitClose().Start();
  Mirror mirror;
  mirror.dir.MakeDir("RecData");
  SoonImpatientSocket sock;
  ASSERT_EQ(1, sock.Create(0, SOCK_STREAM, nullptr, 0));
  ASSERT_EQ(1, sock._Connect("127.0.0.1", peer.Port()));
  EXPECT_EQ(0, GetFile("RecData/textlist", sock, '4', CString(mirror.dir.Path()), 0, 0, nullptr, nullptr));
  EXPECT_EQ("ab", mirror.Read());
  sock.Close();
  peer.Join();
}
