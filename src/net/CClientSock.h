// CClientSock: the session with one database server: two connections, registered by a scrambled handshake, and the
// local directory in which the project's files are mirrored.
// Threads: every operation runs on the JavaScript thread, and none may overlap with another thread's use of the same
// connection. The handshake reseeds the process-wide rand().
#pragma once

#include <cstdint>

#include "base/CString.h"
#include "net/CReqTimeSock.h"
#include "net/CScnSocket.h"

// Results of ConnectDB.
constexpr uint32_t kHandshakeOk = 0;                    // both connections registered
constexpr uint32_t kHandshakeFailed = 1;                // a connect, send or receive failed, or a reply out of place
constexpr uint32_t kHandshakeBadAddress = 0x80070057u;  // relay form without ':'
constexpr uint32_t kHandshakeRefused = 0x80004005u;     // device name too long, or the first reply began with '0'
constexpr uint32_t kHandshakeClientRefused = 1244;      // the second reply was a lone '0'

constexpr unsigned int kRelayPort = 3968;          // the relay; a direct server there gets the extended registration
constexpr unsigned int kDefaultPort = 80;          // direct address without a usable port
constexpr char kDefaultRelay[] = "127.0.0.1";      // relay address when the text names none
constexpr long kDirectTimeOutMs = 8000;            // both connections during the handshake, direct mode
constexpr long kRelayTimeOutMs = 13000;            // the same in relay mode
constexpr long kSessionTimeOutMs = 0x7FFFFFFF;     // notification connection after success
constexpr int kMaxDeviceName = 255;                // bytes of a relay device name
constexpr char kMirrorRoot[] = "/tmp/vqbrowser/";  // below it lie the local project trees

// The server's acknowledgement, byte for byte as received in the second reply.
//
//   offset  size  field
//   21      1     16 is rewritten to 6 by the handshake, other values are kept
//   50      4     modification time of RecData/drvinfo.dat, big-endian
//   54      4     size of RecData/drvinfo.dat, big-endian
//   58      1     also the first byte of the project name
//
// The other bytes are carried but not read.
struct SNAckRegReq {
  uint8_t bytes[59] = {};

  uint32_t DrvInfoTime() const;
  uint32_t DrvInfoSize() const;
};
static_assert(sizeof(SNAckRegReq) == 59, "the acknowledgement is packed");

// True when a project name from the server can be a directory name below the server's directory: it holds no '/' and
// no zero byte and is neither "." nor "..", in its own bytes and in its UTF-8 form. An empty name passes here.
bool IsSafeProjectName(const CString& projectName);

class CClientSock {
 public:
  // Registers the client on both connections; one of the kHandshake... codes. Address forms:
  //   HOST, HOST:PORT                        direct; HOST is dotted IPv4 or a name; no port, 0 or nonsense means 80
  //   p2p:DEVICE, p2p(RELAY_IPv4):DEVICE     through a relay server ("p2p" in any case)
  // A relay (or a server at port 3968) may answer "lan", which is followed to the direct address that it names, as
  // often as it comes; each hop is bounded by its own connect and the 8 or 13 s time-outs. Servers that send a client
  // round in a ring for ever hold the calling thread until one of them is stopped: nothing here counts the hops.
  // flag is passed to the server. projectName, second (GB2312) and ack are filled on success only. After success both
  // connections are open; after a failure they are left as the failing step left them, until the next call.
  uint32_t ConnectDB(const char* address, CString& projectName, CString& second, SNAckRegReq& ack, bool flag);

  // Decides the project path and makes the project tree for the address given to ConnectDB and the project name that
  // it gave (REQUIRES: IsSafeProjectName). 1; directories that cannot be made fail nothing. For a local database the
  // server is asked for the path instead: 1, or 0 with error set to a GB2312 message.
  int AfterConnect(const char* address, const CString& projectName, CString& error);

  // Asks the server for the project path and three further texts: 1, or 0 with the texts unchanged. A text that the
  // reply (at most 2048 bytes) does not hold is empty.
  int GetPrjPath(CString& path, CString& s2, CString& s3, CString& s4);

  // Sends a request on the request connection: len, or the failing send's result (0 or negative), or len itself when
  // it is below 1. After a short send the buffer is sent again from its start, until the bytes sent reach len.
  int ReqSend(const void* buf, int len);

  // Whether the host is a local database: always 0.
  int _IsLocalDB(const char* host);

  // Fields. The connections come first, so that they are closed last.

  // JavaScript thread only.
  bool localDB = true;   // AfterConnect asks the server for the project path
  bool sameLan = false;  // some relay has answered "lan"; never cleared

  // JavaScript thread only, but for Shutdown.
  CReqTimeSock requestSock;

  // The handshake runs on the JavaScript thread; afterwards the receive thread reads, until it has ended.
  CScnSocket notifySock;

  // JavaScript thread only.
  CString projectPath;  // GB2312, ending with '/'
  CString path2;        // path2 to path4: from GetPrjPath, read by nothing
  CString path3;
  CString path4;

 private:
  struct Registration;  // one attempt: where to, which body, which time-outs

  void Prepare();
  uint32_t ParseDirect(const CString& address, Registration& reg);
  uint32_t ParseRelay(const CString& address, Registration& reg);
  uint32_t RegisterRequest(Registration& reg, CString& redirect);
  uint32_t RegisterNotify(Registration& reg, CString& projectName, CString& second, SNAckRegReq& ack, bool flag);
  void FollowLan(const unsigned char* reply, CString& redirect);
};
