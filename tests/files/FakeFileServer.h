// A connection without a network for GetFile: what the client sends is kept, what it receives is laid out in pieces.
#pragma once

#include <algorithm>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "files/GetFile.h"
#include "net/CSyncSocket.h"

class FakeFileServer : public CSyncSocket {
 public:
  // Each piece is what one receive brings at most; a longer one is given in several. Behind the last: end.
  FakeFileServer& Reply(const std::string& piece) {
    pieces_.push_back(piece);
    return *this;
  }

  // What a receive gives behind the last piece, and what each send gives instead of its length when not 1.
  int atEnd = -1;
  int sendResult = 1;

  std::vector<std::string> sent;  // one entry a send
  std::vector<int> asked;         // the room of each receive

  bool IsSocket() const override { return true; }

  int _Send(const void* buf, int len, int flags) override {
    flagsSeen |= flags;
    sent.emplace_back(static_cast<const char*>(buf), static_cast<size_t>(len));
    return sendResult == 1 ? len : sendResult;
  }

  int _Recv(void* buf, int len, int flags) override {
    flagsSeen |= flags;
    asked.push_back(len);
    if (pieces_.empty()) return atEnd;
    std::string& piece = pieces_.front();
    const size_t n = std::min(piece.size(), static_cast<size_t>(len));
    std::memcpy(buf, piece.data(), n);
    piece.erase(0, n);
    if (piece.empty()) pieces_.pop_front();
    return static_cast<int>(n);
  }

  int flagsSeen = 0;

 private:
  std::deque<std::string> pieces_;
};

// Keeps what it is told.
class ProgressLog : public IGetFileCB {
 public:
  void OnProgress(int bytes, int done) override { calls.emplace_back(bytes, done); }
  std::vector<std::pair<int, int>> calls;
};
