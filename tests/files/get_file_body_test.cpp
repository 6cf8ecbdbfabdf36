// The body of a transfer: where it goes, its flow control, its progress and its ends.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "files/FakeFileServer.h"
#include "gtest/gtest.h"
#include "support/OpenDescriptors.h"
#include "support/TempDir.h"

namespace {

using Calls = std::vector<std::pair<int, int>>;

long long TimeOf(const std::string& file) {
  struct stat info {};
  return stat(file.c_str(), &info) == 0 ? static_cast<long long>(info.st_mtime) : -1;
}

struct Transfer {
  int Get(const char* prefix = nullptr, char cmd = '4') {
    return GetFile("f", server, cmd, CString(dir.Path()), 0, 0xFFFFFFFFu, &progress, prefix);
  }
  std::string Read() const { return dir.Read("f"); }
  std::string File() const { return dir.Path() + "f"; }

  TempDir dir;
  FakeFileServer server;
  ProgressLog progress;
};

std::string SizeHeader(size_t size, const std::string& more = "") {
  char text[64];
  std::snprintf(text, sizeof text, "Size:%zX\r\n", size);
  return text + more + "\r\n";
}

}  // namespace

TEST(GetFileBody, ThatFitsInTheFirstReceiveIsWrittenAndReportedOnce) {
  Transfer transfer;
  transfer.server.Reply("Size:5\r\nFileTime:65A0B1C2\r\n\r\nhello");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("hello", transfer.Read());
  EXPECT_EQ(0x65A0B1C2, TimeOf(transfer.File()));
  EXPECT_EQ((Calls{{34, 1}}), transfer.progress.calls) << "the whole first receive, header included";
  EXPECT_EQ(1u, transfer.server.asked.size());
}

TEST(GetFileBody, StampsTheAccessTimeTooAndTimesBeyond2038) {
  Transfer transfer;
  const std::string probe = transfer.dir.Write("probe", "");
  utimbuf late{};
  late.actime = static_cast<time_t>(0xFFFFFFF0LL);
  late.modtime = late.actime;
  ASSERT_EQ(0, utime(probe.c_str(), &late));
  transfer.server.Reply("Size:1\r\nFileTime:FFFFFFF0\r\n\r\nx");
  EXPECT_EQ(1, transfer.Get());
  struct stat info {};
  ASSERT_EQ(0, stat(transfer.File().c_str(), &info));
  EXPECT_EQ(TimeOf(probe), static_cast<long long>(info.st_mtime));
  EXPECT_EQ(info.st_mtime, info.st_atime);
  if (TimeOf(probe) != 0xFFFFFFF0LL) GTEST_SKIP() << "this file system keeps no such times: checked with the nearest";
}

TEST(GetFileBody, OfSizeZeroMakesAnEmptyFile) {
  Transfer transfer;
  transfer.server.Reply("Size:0\r\n\r\n");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_TRUE(transfer.dir.Has("f"));
  EXPECT_EQ("", transfer.Read());
  EXPECT_EQ((Calls{{10, 1}}), transfer.progress.calls);
  EXPECT_EQ(0, TimeOf(transfer.File()));
}

TEST(GetFileBody, ThatIsLongerThanItsSizeInTheFirstReceiveIsComplete) {
  Transfer transfer;
  transfer.server.Reply("Size:2\r\n\r\nhello");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("hello", transfer.Read());
  EXPECT_EQ((Calls{{15, 1}}), transfer.progress.calls);
}

TEST(GetFileBody, InSeveralReceivesReportsEachAndTheLastOnceAsDone) {
  Transfer transfer;
  transfer.server.Reply("Size:9\r\n\r\nab").Reply("cde").Reply("fghi");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("abcdefghi", transfer.Read());
  EXPECT_EQ((Calls{{3, 0}, {4, 1}}), transfer.progress.calls);
  EXPECT_EQ((std::vector<int>{2048, 2048, 2048}), transfer.server.asked);
}

TEST(GetFileBody, ALastReceiveBeyondTheSizeIsWrittenWholeAndCompletes) {
  Transfer transfer;
  transfer.server.Reply("Size:4\r\n\r\nab").Reply("cdefgh").Reply("more");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("abcdefgh", transfer.Read());
  EXPECT_EQ((Calls{{6, 1}}), transfer.progress.calls);
}

TEST(GetFileBody, OneByteAtATimeIsTheSameFile) {
  Transfer transfer;
  transfer.server.Reply("Size:A\r\n\r\n");
  for (const char c : std::string("0123456789")) transfer.server.Reply(std::string(1, c));
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("0123456789", transfer.Read());
  EXPECT_EQ(10u, transfer.progress.calls.size());
}

TEST(GetFileBody, WithoutACallbackIsTheSame) {
  Transfer transfer;
  transfer.server.Reply("Size:4\r\n\r\nab").Reply("c").Reply("d");
  EXPECT_EQ(1, GetFile("f", transfer.server, '4', CString(transfer.dir.Path()), 0, 0, nullptr, nullptr));
  EXPECT_EQ("abcd", transfer.Read());
}

TEST(GetFileBody, TruncatesTheFileFirst) {
  Transfer transfer;
  transfer.dir.Write("f", "a longer old content");
  transfer.server.Reply("Size:3\r\n\r\nnew");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("new", transfer.Read());
}

TEST(GetFileBody, WithAppendIsAddedBehindTheContent) {
  Transfer transfer;
  transfer.dir.Write("f", "old ");
  transfer.server.Reply("Append:Yes\r\nSize:6\r\n\r\nnew").Reply("er!");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("old newer!", transfer.Read());
}

TEST(GetFileBody, WithAppendAndGzIsAddedToTheCompanion) {
  Transfer transfer;
  transfer.dir.Write("f", "plain");
  transfer.dir.Write("f.gz", "old ");
  transfer.server.Reply("Append:Yes\r\nGZ:Yes\r\nSize:6\r\n\r\nnew").Reply("er!");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("old newer!", transfer.dir.Read("f.gz"));
  EXPECT_EQ("plain", transfer.Read());
}

TEST(GetFileBody, WithAppendMakesAMissingFile) {
  Transfer transfer;
  transfer.server.Reply("Append:Yes\r\nSize:3\r\n\r\nnew");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("new", transfer.Read());
}

TEST(GetFileBody, WithGzGoesIntoTheCompanionAndLeavesThePlainFile) {
  Transfer transfer;
  transfer.dir.Write("f", "plain");
  const long long before = TimeOf(transfer.File());
  transfer.server.Reply("GZ:Yes\r\nSize:3\r\nFileTime:10\r\n\r\ngz!");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("plain", transfer.Read());
  EXPECT_EQ(before, TimeOf(transfer.File()));
  EXPECT_EQ("gz!", transfer.dir.Read("f.gz"));
  EXPECT_EQ(16, TimeOf(transfer.File() + ".gz"));
}

TEST(GetFileBody, ThatCannotBeKeptGivesOneWithoutBeingRead) {
  Transfer transfer;
  transfer.dir.MakeDir("f");  // a directory in the file's place
  const long long before = TimeOf(transfer.File());
  transfer.server.Reply("Size:10\r\nFileTime:64\r\n\r\nab").Reply("rest");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ(1u, transfer.server.asked.size());
  EXPECT_TRUE(transfer.progress.calls.empty());
  EXPECT_EQ(before, TimeOf(transfer.File())) << "no time is set";
}

TEST(GetFileBody, WhoseCompanionCannotBeKeptDoesNotGoIntoThePlainFile) {
  Transfer transfer;
  transfer.dir.Write("f", "plain");
  transfer.dir.MakeDir("f.gz");
  transfer.server.Reply("GZ:Yes\r\nSize:2\r\n\r\nab");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("plain", transfer.Read());
  EXPECT_TRUE(transfer.progress.calls.empty());
}

TEST(GetFileBody, OfAMirrorWithoutTheDirectoryGivesOne) {
  FakeFileServer server;
  server.Reply("Size:2\r\n\r\nab");
  EXPECT_EQ(1, GetFile("no/such/dir/f", server, '4', "/tmp/vqdb-test-none/", 0, 0, nullptr, nullptr));
}

TEST(GetFileBody, OnAFullDiskRunsToItsEnd) {
  Transfer transfer;
  ASSERT_EQ(0, symlink("/dev/full", transfer.File().c_str()));
  transfer.server.Reply("Size:4\r\n\r\nab").Reply("cd");
  EXPECT_EQ(1, transfer.Get()) << "the result of a write is not checked";
}

TEST(GetFileBody, AFailedReceiveGivesZeroKeepsThePartAndStampsIt) {
  for (const int result : {-1, 0}) {
    const int before = OpenDescriptors();
    Transfer transfer;
    transfer.server.Reply("Size:9\r\nFileTime:64\r\n\r\nab").Reply("cd");
    transfer.server.atEnd = result;
    EXPECT_EQ(0, transfer.Get()) << result;
    EXPECT_EQ("abcd", transfer.Read());
    EXPECT_EQ(100, TimeOf(transfer.File()));
    EXPECT_EQ((Calls{{2, 0}}), transfer.progress.calls) << "no report of an end";
    EXPECT_EQ(before, OpenDescriptors());
  }
}

TEST(GetFileBody, AFailedCompanionIsKeptAndStampedToo) {
  Transfer transfer;
  transfer.dir.Write("f", "plain");
  transfer.server.Reply("GZ:Yes\r\nSize:9\r\nFileTime:64\r\n\r\nab");
  EXPECT_EQ(0, transfer.Get());
  EXPECT_EQ("ab", transfer.dir.Read("f.gz"));
  EXPECT_EQ(100, TimeOf(transfer.File() + ".gz"));
  EXPECT_EQ("plain", transfer.Read());
}

namespace {

// Looks at the file in each of its calls.
class FileWatch : public IGetFileCB {
 public:
  explicit FileWatch(const TempDir& dir) : dir_(dir) {}

  void OnProgress(int /*bytes*/, int done) override {
    contents.push_back(dir_.Read("f"));
    if (done == 0) return;
    timeAtEnd = TimeOf(dir_.Path() + "f");
    descriptorsAtEnd = OpenDescriptors();
  }

  std::vector<std::string> contents;
  long long timeAtEnd = -1;
  int descriptorsAtEnd = -1;

 private:
  const TempDir& dir_;
};

}  // namespace

TEST(GetFileBody, IsWrittenWhenAChunkIsReportedAndClosedAndStampedAtTheEnd) {
  const TempDir dir;
  FakeFileServer server;
  FileWatch watch(dir);
  server.Reply("Size:6\r\nFileTime:64\r\n\r\nab").Reply("cd").Reply("ef");
  const int before = OpenDescriptors();
  EXPECT_EQ(1, GetFile("f", server, '4', CString(dir.Path()), 0, 0, &watch, nullptr));
  EXPECT_EQ((std::vector<std::string>{"abcd", "abcdef"}), watch.contents);
  EXPECT_EQ(100, watch.timeAtEnd);
  EXPECT_EQ(before, watch.descriptorsAtEnd);
}

TEST(GetFileBody, OfTheGreatestSizeEndsWithThePeer) {
  Transfer transfer;
  transfer.server.Reply("Size:FFFFFFFF\r\n\r\nab").Reply(std::string(2048, 'x'));
  transfer.server.atEnd = 0;
  EXPECT_EQ(0, transfer.Get());
  EXPECT_EQ(2050u, transfer.Read().size());
}

TEST(GetFileBody, AHeaderCutByTheFirstReceiveTakesTheRestForBody) {
  Transfer transfer;
  transfer.server.Reply("Size:3\r\nFileTi").Reply("me:5\r\n\r\n");
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ("me:5\r\n\r\n", transfer.Read());
}

TEST(GetFileBody, AHeaderWithoutEndIsTheFirstReceiveAlone) {
  Transfer transfer;
  std::string endless;
  while (endless.size() < 10000) endless += "n:v\r\n";
  transfer.server.Reply(endless);
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ(1u, transfer.server.asked.size());
}

TEST(GetFileAcknowledgement, IsNotSentUnlessTheServerAsksForIt) {
  Transfer transfer;
  const std::string header = SizeHeader(300000);
  transfer.server.Reply(header).Reply(std::string(300000, 'x'));
  EXPECT_EQ(1, transfer.Get());
  EXPECT_EQ(1u, transfer.server.sent.size()) << "the request alone";
}

namespace {

// Fetches size bytes with acknowledgements; returns what they said.
std::vector<std::string> Acknowledgements(size_t size, const char* prefix, Transfer& transfer) {
  const std::string header = SizeHeader(size, "Hello:Yes\r\n");
  const size_t firstBody = 2048 - header.size();
  transfer.server.Reply(header + std::string(firstBody, 'x')).Reply(std::string(size - firstBody, 'y'));
  EXPECT_EQ(1, transfer.Get(prefix));
  EXPECT_EQ(size, transfer.Read().size());
  return {transfer.server.sent.begin() + 1, transfer.server.sent.end()};
}

std::string Hello(unsigned int bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "4Hello%X", bytes);
  return text + std::string(1, '\0');
}

}  // namespace

TEST(GetFileAcknowledgement, TheFirstIsSentOnce131072BytesHaveComeTheHeaderIncluded) {
  Transfer one;
  const std::string header = SizeHeader(131073, "Hello:Yes\r\n");
  EXPECT_EQ(std::vector<std::string>{Hello(0x20000)}, Acknowledgements(131072 - header.size() + 1, nullptr, one));
  EXPECT_EQ(std::string("4Hello20000") + '\0', one.server.sent[1]);
  Transfer none;
  EXPECT_TRUE(Acknowledgements(131072 - header.size(), nullptr, none).empty()) << "the end needs none";
}

TEST(GetFileAcknowledgement, TheWindowShrinksBy10240DownTo8192) {
  Transfer transfer;
  std::vector<std::string> expected;
  for (unsigned int window = 131072; window > 8192; window -= 10240) expected.push_back(Hello(window));
  for (int i = 0; i < 3; ++i) expected.push_back(Hello(8192));
  size_t total = 3 * 8192;
  for (size_t window = 131072; window > 8192; window -= 10240) total += window;
  const std::string header = SizeHeader(total, "Hello:Yes\r\n");
  EXPECT_EQ(expected, Acknowledgements(total - header.size() + 1, nullptr, transfer));
}

TEST(GetFileAcknowledgement, WithAPrefixTheWindowsAre38912And28672And18432And8192) {
  Transfer transfer;
  const size_t total = 38912 + 28672 + 18432 + 8192 + 8192;
  const std::string header = SizeHeader(total, "Hello:Yes\r\n");
  const std::vector<std::string> expected = {Hello(38912), Hello(28672), Hello(18432), Hello(8192), Hello(8192)};
  EXPECT_EQ(expected, Acknowledgements(total - header.size() + 1, "", transfer));
}

TEST(GetFileAcknowledgement, BeginsWithTheFirstWindowInEachTransfer) {
  Transfer transfer;
  const size_t size = 38912 + 28672;
  const std::vector<std::string> once = {Hello(38912), Hello(28672)};
  EXPECT_EQ(once, Acknowledgements(size, "p", transfer));
  transfer.server.sent.clear();
  EXPECT_EQ(once, Acknowledgements(size, "p", transfer));
  EXPECT_EQ(0, transfer.server.flagsSeen);
}

TEST(GetFileAcknowledgement, IsSentBehindTheReportOfItsLastChunkBeforeTheNextReceive) {
  class Journal : public FakeFileServer, public IGetFileCB {
   public:
    int _Send(const void* buf, int len, int flags) override {
      steps += 's';
      return FakeFileServer::_Send(buf, len, flags);
    }
    int _Recv(void* buf, int len, int flags) override {
      steps += 'r';
      return FakeFileServer::_Recv(buf, len, flags);
    }
    void OnProgress(int /*bytes*/, int done) override { steps += done == 0 ? 'p' : 'e'; }
    std::string steps;
  };
  const TempDir dir;
  Journal server;
  const std::string header = SizeHeader(38912, "Hello:Yes\r\n");
  server.Reply(header + std::string(2048 - header.size(), 'x')).Reply(std::string(40000, 'y'));
  EXPECT_EQ(1, GetFile("f", server, '4', CString(dir.Path()), 0, 0, &server, "p"));
  std::string expected = "sr";  // 18 full receives behind the first one fill the window
  for (int i = 0; i < 18; ++i) expected += "rp";
  EXPECT_EQ(expected + "sre", server.steps);
}

TEST(GetFileAcknowledgement, NoReceiveCrossesAnAcknowledgementPoint) {
  Transfer transfer;
  transfer.server.Reply(SizeHeader(200000, "Hello:Yes\r\n") + "x");
  transfer.server.Reply(std::string(300000, 'y'));
  EXPECT_EQ(1, transfer.Get("p"));
  int since = static_cast<int>(SizeHeader(200000, "Hello:Yes\r\n").size()) + 1;
  int window = 38912;
  for (size_t i = 1; i < transfer.server.asked.size(); ++i) {
    if (since == window) {
      since = 0;
      window = window > 10240 ? std::max(window - 10240, 8192) : 8192;
    }
    EXPECT_EQ(std::min(window - since, 2048), transfer.server.asked[i]) << i;
    since += transfer.server.asked[i];
  }
}

TEST(GetFileAcknowledgement, CarriesTheCommandByteAndAFailedOneIsIgnored) {
  class DeafServer : public FakeFileServer {
   public:
    int _Send(const void* buf, int len, int flags) override {
      const int result = FakeFileServer::_Send(buf, len, flags);
      return sent.size() > 1 ? -1 : result;
    }
  };
  TempDir dir;
  DeafServer server;
  server.Reply(SizeHeader(60000, "Hello:Yes\r\n")).Reply(std::string(60000, 'y'));
  EXPECT_EQ(1, GetFile("f", server, 'Q', CString(dir.Path()), 0, 0, nullptr, "p"));
  ASSERT_EQ(2u, server.sent.size());
  EXPECT_EQ(std::string("QHello9800") + '\0', server.sent[1]);
}
