#include "base/XFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <type_traits>

#include "BaseTools.h"

namespace {

constexpr int kWriteNew = O_WRONLY | O_CREAT | O_TRUNC;

class XFileTest : public testing::Test {
 protected:
  TempDir dir_;
  XFile file_;
};

static_assert(!std::is_copy_constructible_v<XFile> && !std::is_copy_assignable_v<XFile>);

mode_t ModeOf(const std::string& path) {
  struct stat64 info = {};
  return stat64(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

int LowestFreeDescriptor() {
  const int fd = open("/dev/null", O_RDONLY);
  close(fd);
  return fd;
}

TEST_F(XFileTest, OpenANewFileForWritingGivesItMode0600) {
  const mode_t old = umask(0);
  EXPECT_TRUE(file_.OpenA((dir_ / "new").c_str(), kWriteNew, false));
  umask(old);
  EXPECT_EQ(0600u, ModeOf(dir_ / "new"));
}

TEST_F(XFileTest, OpenAHonoursTheUmask) {
  const mode_t old = umask(0200);
  EXPECT_TRUE(file_.OpenA((dir_ / "new").c_str(), kWriteNew, true));
  umask(old);
  EXPECT_EQ(0400u, ModeOf(dir_ / "new"));
}

TEST_F(XFileTest, OpenAOnAnOpenFileIsTrueAndKeepsTheFirst) {
  const std::string first = dir_.Write("first", "1st"), second = dir_.Write("second", "second");
  ASSERT_TRUE(file_.OpenA(first.c_str(), O_RDONLY, false));
  EXPECT_TRUE(file_.OpenA(second.c_str(), O_RDONLY, false));
  EXPECT_EQ(3u, file_.GetFileSize());
  EXPECT_TRUE(file_.OpenA((dir_ / "missing").c_str(), O_RDONLY, false));
  EXPECT_TRUE(file_.OpenA((dir_ / "uncreated").c_str(), kWriteNew, false));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "uncreated"));
}

TEST_F(XFileTest, AFileOnDescriptor0CountsAsOpen) {
  const std::string path = dir_.Write("f", "abc");
  const int saved = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  EXPECT_TRUE(file_.OpenA(path.c_str(), O_RDONLY, false));
  EXPECT_TRUE(file_.OpenA((dir_ / "missing").c_str(), O_RDONLY, false));
  EXPECT_EQ(3u, file_.GetFileSize());
  file_.Close();
  EXPECT_EQ(0, LowestFreeDescriptor());
  dup2(saved, STDIN_FILENO);
  close(saved);
}

TEST_F(XFileTest, OpenAOfAMissingFileIsFalseWithTheSystemsErrno) {
  EXPECT_FALSE(file_.OpenA((dir_ / "missing").c_str(), O_RDONLY, false));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_FALSE(file_.OpenA(nullptr, O_RDONLY, false));
  EXPECT_EQ(EFAULT, errno);
  EXPECT_TRUE(file_.OpenA(dir_.Write("now", "").c_str(), O_RDONLY, false)) << "a failed open leaves it closed";
}

TEST_F(XFileTest, OpenTTakesItsPathInGb2312) {
  const std::string path = dir_.Write("\xe4\xb8\xad", "abcd");
  EXPECT_TRUE(file_.OpenT((dir_ / "\xd6\xd0").c_str(), O_RDONLY, false));
  EXPECT_EQ(4u, file_.GetFileSize());
}

TEST_F(XFileTest, OpenACarriesTheBytesOfItsPathUnchanged) {
  dir_.Write("\xd6\xd0", "raw");
  EXPECT_TRUE(file_.OpenA((dir_ / "\xd6\xd0").c_str(), O_RDONLY, false));
}

TEST_F(XFileTest, OpenTHandsTheFlagsOn) {
  EXPECT_FALSE(file_.OpenT((dir_ / "new").c_str(), O_WRONLY, false));
  EXPECT_TRUE(file_.OpenT((dir_ / "new").c_str(), kWriteNew, false));
  EXPECT_EQ(1, file_.Write("x", 1));
}

TEST_F(XFileTest, OpenTOfAPathThatDoesNotConvertTakesWhatPrecedesTheBadByte) {
  dir_.Write("ab", "abc");
  CaughtStderr caught;
  EXPECT_TRUE(file_.OpenT((dir_ / "ab\xff"
                                  "cd")
                              .c_str(),
                          O_RDONLY, false));
  EXPECT_EQ("ToUtf8:iconv:: Invalid or incomplete multibyte or wide character\n", caught.Text());
  EXPECT_EQ(3u, file_.GetFileSize());
}

TEST_F(XFileTest, OpenTOnAnOpenFileIsTrueAndKeepsTheFirst) {
  ASSERT_TRUE(file_.OpenT(dir_.Write("first", "1st").c_str(), O_RDONLY, false));
  EXPECT_TRUE(file_.OpenT((dir_ / "uncreated").c_str(), kWriteNew, true));
  EXPECT_EQ(3u, file_.GetFileSize());
  EXPECT_FALSE(std::filesystem::exists(dir_ / "uncreated"));
}

TEST_F(XFileTest, OpenTLeavesTheSystemsErrno) {
  EXPECT_FALSE(file_.OpenT((dir_ / "a missing file of some length").c_str(), O_RDONLY, false));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_FALSE(file_.OpenT((dir_ / "").c_str(), O_WRONLY, false));
  EXPECT_EQ(EISDIR, errno);
}

TEST_F(XFileTest, CloseAndTheDestructorGiveTheDescriptorBack) {
  const int free = LowestFreeDescriptor();
  {
    XFile inner;
    ASSERT_TRUE(inner.OpenA("/dev/null", O_RDONLY, false));
    EXPECT_NE(free, LowestFreeDescriptor());
    inner.Close();
    EXPECT_EQ(free, LowestFreeDescriptor());
    inner.Close();
    ASSERT_TRUE(inner.OpenA("/dev/null", O_RDONLY, false));
    EXPECT_NE(free, LowestFreeDescriptor()) << "opened anew";
  }
  EXPECT_EQ(free, LowestFreeDescriptor());
}

TEST_F(XFileTest, AChildProcessDoesNotInheritTheFile) {
  const int fd = LowestFreeDescriptor();
  ASSERT_TRUE(file_.OpenA("/dev/null", O_RDONLY, false));
  EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
}

TEST_F(XFileTest, AClosedFileFailsWithEbadf) {
  char c = 0;
  errno = 0;
  EXPECT_EQ(-1, file_.Read(&c, 1));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(-1, file_.Write("x", 1));
  EXPECT_EQ(-1, file_.SetFileSize(0));
  EXPECT_EQ(-1, file_.SetFileSize64(0));
  EXPECT_FALSE(file_.Seek(0, SEEK_SET));
  EXPECT_FALSE(file_.Seek64(0, SEEK_SET));
  EXPECT_EQ(-1, file_.GetCurPos());
  EXPECT_EQ(0u, file_.GetFileSize());
  EXPECT_EQ(0, file_.GetFileSize64());
}

TEST_F(XFileTest, ReadGivesBytesThenZeroAtTheEnd) {
  ASSERT_TRUE(file_.OpenA(dir_.Write("f", "abcde").c_str(), O_RDONLY, false));
  char buf[8] = {};
  EXPECT_EQ(3, file_.Read(buf, 3));
  EXPECT_STREQ("abc", buf);
  EXPECT_EQ(2, file_.Read(buf, 8));
  EXPECT_STREQ("dec", buf);
  EXPECT_EQ(0, file_.Read(buf, 8));
  EXPECT_EQ(-1, file_.Write("x", 1)) << "opened for reading";
  EXPECT_EQ(EBADF, errno);
}

TEST_F(XFileTest, WriteGivesTheBytesWrittenAndIsNotRepeatedWhenShort) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
  const std::string path = "/proc/self/fd/" + std::to_string(ends[1]);
  ASSERT_TRUE(file_.OpenA(path.c_str(), O_WRONLY | O_NONBLOCK, false));
  const std::string big(1 << 20, 'x');
  const int written = file_.Write(big.data(), 1 << 20);
  EXPECT_GT(written, 0);
  EXPECT_LT(written, 1 << 20);
  EXPECT_EQ(-1, file_.Write("x", 1));
  EXPECT_EQ(EAGAIN, errno);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(XFileTest, TruncatingAndAppendingFlagsWorkAsTheSystemsDo) {
  const std::string path = dir_.Write("f", "abc");
  {
    XFile append;
    ASSERT_TRUE(append.OpenA(path.c_str(), O_WRONLY | O_CREAT, false));
    EXPECT_TRUE(append.Seek(0, SEEK_END));
    EXPECT_EQ(2, append.Write("de", 2));
  }
  EXPECT_EQ("abcde", ReadFile(path));
  ASSERT_TRUE(file_.OpenA(path.c_str(), kWriteNew, false));
  EXPECT_EQ("", ReadFile(path));
}

TEST_F(XFileTest, SeekFollowsLseek) {
  ASSERT_TRUE(file_.OpenA(dir_.Write("f", "abcdef").c_str(), O_RDWR, false));
  EXPECT_EQ(0, file_.GetCurPos());
  EXPECT_TRUE(file_.Seek(4, SEEK_SET));
  EXPECT_EQ(4, file_.GetCurPos());
  EXPECT_TRUE(file_.Seek(-3, SEEK_CUR));
  EXPECT_EQ(1, file_.GetCurPos());
  EXPECT_TRUE(file_.Seek(-1, SEEK_END));
  EXPECT_EQ(5, file_.GetCurPos());
  EXPECT_TRUE(file_.Seek(0, SEEK_SET)) << "position 0 is a success";
}

TEST_F(XFileTest, SeekBeforeTheStartIsFalse) {
  ASSERT_TRUE(file_.OpenA(dir_.Write("f", "abc").c_str(), O_RDONLY, false));
  EXPECT_FALSE(file_.Seek(-1, SEEK_SET));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_FALSE(file_.Seek64(-1, SEEK_SET));
  EXPECT_EQ(0, file_.GetCurPos());
}

TEST_F(XFileTest, SizesAndPositionsPassFourGigabytes) {
  constexpr long long kSize = (5LL << 30) + 7;  // sparse: no blocks are written
  ASSERT_TRUE(file_.OpenA((dir_ / "big").c_str(), O_RDWR | O_CREAT, false));
  ASSERT_EQ(0, file_.SetFileSize64(kSize));
  EXPECT_EQ(kSize, file_.GetFileSize64());
  EXPECT_EQ((1u << 30) + 7, file_.GetFileSize()) << "the low 32 bits";
  EXPECT_TRUE(file_.Seek64(kSize - 1, SEEK_SET));
  EXPECT_EQ(kSize - 1, file_.GetCurPos());
}

TEST_F(XFileTest, SetFileSizeTakesItsArgumentUnsigned) {
  ASSERT_TRUE(file_.OpenA((dir_ / "f").c_str(), O_RDWR | O_CREAT, false));
  ASSERT_EQ(0, file_.SetFileSize(0xfffffff0u));
  EXPECT_EQ(0xfffffff0LL, file_.GetFileSize64());
  EXPECT_EQ(0, file_.SetFileSize(3));
  EXPECT_EQ(3, file_.GetFileSize64());
  EXPECT_EQ(-1, file_.SetFileSize64(-1));
  EXPECT_EQ(EINVAL, errno);
}

// A signal that comes in the middle of a blocking call does not end it. The timer interrupts until the handler has
// seen the call twice interrupted and then does what the call waits for.
int fifoEnd = -1;
volatile sig_atomic_t ticks = 0;
const char* fifoPath = nullptr;

class InterruptedTest : public XFileTest {
 protected:
  InterruptedTest() : path_(dir_ / "fifo") {
    EXPECT_EQ(0, mkfifo(path_.c_str(), 0600));
    fifoPath = path_.c_str();
    ticks = 0;
  }
  ~InterruptedTest() override {
    const itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    signal(SIGALRM, SIG_DFL);
    if (fifoEnd >= 0) close(fifoEnd);
    fifoEnd = -1;
  }

  void InterruptBy(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;  // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }

  std::string path_;
};

TEST_F(InterruptedTest, ReadWaitsForItsBytes) {
  ASSERT_TRUE(file_.OpenA(path_.c_str(), O_RDWR, false));
  fifoEnd = open(path_.c_str(), O_RDWR);
  InterruptBy([](int) {
    ticks = ticks + 1;
    if (ticks == 3 && write(fifoEnd, "x", 1) != 1) abort();
  });
  char c = 0;
  EXPECT_EQ(1, file_.Read(&c, 1));
  EXPECT_EQ('x', c);
}

TEST_F(InterruptedTest, WriteWaitsForRoom) {
  ASSERT_TRUE(file_.OpenA(path_.c_str(), O_RDWR, false));
  fifoEnd = open(path_.c_str(), O_RDWR | O_NONBLOCK);
  const std::string page(4096, 'x');
  while (write(fifoEnd, page.data(), page.size()) > 0) {
  }
  InterruptBy([](int) {
    static char drain[8192];
    ticks = ticks + 1;
    if (ticks >= 3 && read(fifoEnd, drain, sizeof(drain)) < 0) ticks = 3;
  });
  EXPECT_EQ(4096, file_.Write(page.data(), 4096));
}

TEST_F(InterruptedTest, OpenWaitsForTheOtherEnd) {
  InterruptBy([](int) {
    ticks = ticks + 1;
    if (ticks == 3) fifoEnd = open(fifoPath, O_RDWR | O_NONBLOCK);
  });
  EXPECT_TRUE(file_.OpenA(path_.c_str(), O_RDONLY, false));
}

}  // namespace
