// The file transfer, one request and one answer on a connection that is used for nothing else meanwhile.
//
//   ->  cmd [prefix] remotePath CR LF
//       [LastTime:HEX CR LF Size:HEX CR LF]        what the client has
//       [gzTime:HEX CR LF gzSize:HEX CR LF]        its ".gz" companion
//       Hello:Yes CR LF CR LF
//   <-  header lines, empty line (see FileHeader.h), then Size bytes of body
//   ->  cmd "Hello" HEX zero                       after each window of bytes, when the header said "Hello:Yes"
#include "files/GetFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <utime.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "base/Encoding.h"
#include "base/XFile.h"
#include "files/FileHeader.h"

namespace {

constexpr int kRecvRoom = 2048;
constexpr int64_t kTimeSlackS = 3;  // file systems and servers round times differently

// Bytes between two acknowledgements: the first window, without and with a prefix; what each one is shortened by; and
// the shortest. The shrinking is part of the protocol.
constexpr int kWindow = 0x20000;
constexpr int kWindowWithPrefix = 0x9800;
constexpr int kWindowStep = 10240;
constexpr int kWindowMin = 8192;

// The two local forms of a file, as paths for the file system.
struct LocalPaths {
  CString plain;
  CString gz;
};

LocalPaths MakeLocalPaths(const CString& localDir, const CString& remotePath) {
  LocalPaths paths;
  const CString local(localDir + remotePath);
  ToUtf8(local.c_str(), paths.plain, 0);
  ToUtf8(CString(local + ".gz").c_str(), paths.gz, 0);
  return paths;
}

bool IsCurrent(const struct stat64& local, uint32_t fileTime, uint32_t fileSize) {
  const int64_t modified = local.st_mtime;
  return modified >= int64_t{fileTime} - kTimeSlackS && modified <= int64_t{fileTime} + kTimeSlackS &&
         local.st_size == int64_t{fileSize};
}

// The request's lines on what the client holds; times and sizes are their low 32 bits.
void AppendHolding(CString& request, const char* format, const struct stat64& held) {
  char text[64];
  std::snprintf(text, sizeof text, format, static_cast<unsigned int>(held.st_mtime),
                static_cast<unsigned int>(held.st_size));
  request += text;
}

// The body of one file on its way into the mirror.
class BodyTransfer {
 public:
  BodyTransfer(CSyncSocket& sock, char cmd, const SCFileInfo& info, IGetFileCB* cb, int window)
      : sock_(sock), cmd_(cmd), info_(info), cb_(cb), window_(window) {}

  // Receives into path. first holds the first receive of n bytes, of which headerLen are the header. 1, or 0.
  int Run(const CString& path, const char* first, int n, int headerLen);

 private:
  bool ReceiveRest(int64_t remaining);
  void Acknowledge();
  int NextReceive() const;

  CSyncSocket& sock_;
  const char cmd_;
  const SCFileInfo& info_;
  IGetFileCB* const cb_;
  XFile file_;
  int window_;
  int sinceAck_ = 0;
  int lastReceive_ = 0;
};

int BodyTransfer::Run(const CString& path, const char* first, int n, int headerLen) {
  const int flags = O_WRONLY | O_CREAT | (info_.append ? 0 : O_TRUNC);
  if (!file_.OpenA(path.c_str(), flags, false)) {
    sock_.MarkOutOfStep();  // the body stays on the connection
    return 1;               // intended: a file that cannot be kept fails nothing
  }
  if (info_.append) file_.Seek(0, SEEK_END);
  file_.Write(first + headerLen, static_cast<unsigned int>(n - headerLen));
  lastReceive_ = n;
  sinceAck_ = n;  // the header counts too
  const bool complete = ReceiveRest(int64_t{info_.size} - (n - headerLen));
  file_.Close();
  utimbuf times{};
  times.actime = static_cast<time_t>(info_.fileTime);
  times.modtime = times.actime;
  utime(path.c_str(), &times);
  if (complete && cb_ != nullptr) cb_->OnProgress(lastReceive_, 1);
  return complete ? 1 : 0;
}

// Receives until no byte remains. What comes beyond the announced size with the last bytes is written too.
bool BodyTransfer::ReceiveRest(int64_t remaining) {
  char buf[kRecvRoom];
  while (remaining > 0) {
    if (info_.hello && sinceAck_ >= window_) Acknowledge();
    const int n = sock_._Recv(buf, NextReceive(), 0);
    if (n <= 0) return false;  // a peer that has closed will not send the rest
    lastReceive_ = n;
    file_.Write(buf, static_cast<unsigned int>(n));
    if (n >= remaining) return true;
    if (cb_ != nullptr) cb_->OnProgress(n, 0);
    remaining -= n;
    if (info_.hello) sinceAck_ += n;
  }
  return true;
}

// No receive crosses an acknowledgement point, which the server waits at.
int BodyTransfer::NextReceive() const { return info_.hello ? std::min(window_ - sinceAck_, kRecvRoom) : kRecvRoom; }

void BodyTransfer::Acknowledge() {
  char text[32];
  const int len = std::snprintf(text, sizeof text, "%cHello%X", cmd_, static_cast<unsigned int>(sinceAck_));
  sock_._Send(text, len + 1, 0);  // with its zero; a failure shows in the next receive
  sinceAck_ = 0;
  if (window_ > kWindowStep) window_ -= kWindowStep;
  window_ = std::max(window_, kWindowMin);
}

}  // namespace

int GetFile(const CString& remotePath, CSyncSocket& sock, char cmd, const CString& localDir, uint32_t fileTime,
            uint32_t fileSize, IGetFileCB* cb, const char* prefix) {
  const LocalPaths local = MakeLocalPaths(localDir, remotePath);
  CString request(&cmd, 1);
  if (prefix != nullptr) request += prefix;
  request += remotePath + "\r\n";
  struct stat64 held {};
  if (stat64(local.plain.c_str(), &held) == 0) {
    if (IsCurrent(held, fileTime, fileSize)) return 1;
    AppendHolding(request, "LastTime:%X\r\nSize:%X\r\n", held);
  }
  if (stat64(local.gz.c_str(), &held) == 0) AppendHolding(request, "gzTime:%X\r\ngzSize:%X\r\n", held);
  request += "Hello:Yes\r\n\r\n";
  if (sock._Send(request.data(), static_cast<int>(request.size()), 0) <= 0) return 0;

  char buf[kRecvRoom];
  const int n = sock._Recv(buf, kRecvRoom, 0);
  if (n <= 0) return 0;
  SCFileInfo info;
  const int headerLen = GetFileInfoByBuf(buf, n, info);
  if (!info.exist) {
    std::remove(local.plain.c_str());
    return 1;
  }
  if (info.useLast) return 1;
  BodyTransfer transfer(sock, cmd, info, cb, prefix == nullptr ? kWindow : kWindowWithPrefix);
  return transfer.Run(info.gz ? local.gz : local.plain, buf, n, headerLen);
}
