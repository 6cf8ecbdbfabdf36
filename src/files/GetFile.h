// Brings one file of the local mirror up to date from the server.
#pragma once

#include <cstdint>

#include "base/CString.h"
#include "net/CSyncSocket.h"

// A caller's view of a transfer's progress. Called on the thread that runs GetFile.
class IGetFileCB {
 public:
  // bytes: count of the receive just finished (the first one with its header); done: 0 between chunks, 1 once at the
  // successful end.
  virtual void OnProgress(int bytes, int done) = 0;

 protected:
  ~IGetFileCB() = default;
};

// Fetches the file localDir + remotePath unless the local copy has fileTime (within 3 s) and fileSize.
//   remotePath  path in the project, GB2312, chosen by the client: no name from the server ever becomes a path
//   sock        connected to the server; used by this call alone until it returns, left open
//   cmd         first byte of the request and of each acknowledgement
//   localDir    GB2312, ending with '/'; must exist
//   cb, prefix  may be null; prefix stands between cmd and remotePath, and makes the acknowledgement window smaller
// 1: the copy is current, was brought up to date, was removed as the server no longer has it, or could not be opened
// for writing (its body is then left unread on the connection). 0: the request could not be sent, no reply came, or
// the body ended early; what was received of it is kept, with the server's file time.
// Bounds: the header must come within the first 2048 bytes; the body is at most 4 GiB and one receive; every receive
// and send is bounded by the socket's own time-outs.
int GetFile(const CString& remotePath, CSyncSocket& sock, char cmd, const CString& localDir, uint32_t fileTime,
            uint32_t fileSize, IGetFileCB* cb, const char* prefix);
