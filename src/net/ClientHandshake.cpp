// The registration of a client with a server, directly or through a relay.
//
//   request connection     ->  '7', then scrambled: identifier (16)
//                              at port 3968 scrambled: identifier (16), gateway address (6), target text, zero
//                          <-  in clear: '7' accepted
//                                        '7' "lan" IPv4 (4) port (2, big-endian): go there instead (port 3968 only)
//                                        '0' refused
//   notification conn.     ->  '8', then scrambled: identifier (16), host name, zero, flag (1), the byte 1
//                          <-  all scrambled: '8' acknowledgement (59), whose last byte begins the project name, zero,
//                              a second text, zero; or '0' refused
//
// Each packet is one send and one receive of at most 512 bytes; the type byte of the client's packets is in clear.
#include <arpa/inet.h>
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "base/Wire.h"
#include "net/CClientSock.h"
#include "net/ClientIdentity.h"
#include "net/PacketScramble.h"

struct CClientSock::Registration {
  CString target;  // the host, or the device behind the relay
  unsigned int port = kDefaultPort;
  long timeOutMs = kDirectTimeOutMs;
  uint8_t identifier[kGuidBytes] = {};
};

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kPacketRoom = 512;                     // every send and receive buffer
constexpr unsigned int kBodyRoom = kPacketRoom - 1;  // behind the type byte
constexpr int kHostNameRoom = 236;                   // with the terminating zero
constexpr int kLanReplyBytes = 10;                   // '7' "lan" address port
constexpr unsigned int kAckBytes = 59;
constexpr unsigned int kMinSecondReply = kAckBytes + 1;  // type byte and acknowledgement
constexpr unsigned int kProjectNameAt = 59;              // in the decoded reply: the acknowledgement's last byte

// A notification connection may be silent for days; a peer that has vanished is noticed after 60 + 6 x 10 s.
constexpr int kKeepAliveIdleS = 60;
constexpr int kKeepAliveIntervalS = 10;
constexpr int kKeepAliveProbes = 6;

bool IsRelayAddress(const CString& address) { return strncasecmp(address.c_str(), "p2p", 3) == 0; }

// The port behind a direct address's colon; 80 when there is no usable one.
unsigned int ParsePort(const char* text) {
  const unsigned int port = static_cast<unsigned int>(std::strtol(text, nullptr, 10)) & 0xFFFFu;
  return port != 0 ? port : kDefaultPort;
}

// Opens one of the two connections; the registration's time-outs begin behind the connect, which takes as long as the
// system tries.
bool OpenConnection(CScnSocket& sock, const CString& target, unsigned int port, long timeOutMs) {
  if (sock.Create(0, SOCK_STREAM, nullptr, 0) != 1) return false;
  sock.SetNoDelay();  // requests are small and each waits for its answer
  if (sock._Connect(target.c_str(), port) != 1) return false;
  sock.SetTimeOut(timeOutMs);
  return true;
}

// Puts the type byte and the scrambled body into packet (kPacketRoom bytes); returns the length to send. A body too
// long to be scrambled leaves the type byte alone.
int MakePacket(char type, const Bytes& body, unsigned char* packet) {
  packet[0] = static_cast<unsigned char>(type);
  const unsigned int len = EncryptPacket(static_cast<unsigned int>(body.size()), body.data(), kBodyRoom, packet + 1);
  return static_cast<int>(len) + 1;
}

void AppendText(Bytes& body, const char* text) { body.insert(body.end(), text, text + std::strlen(text) + 1); }

bool IsLanAnswer(const unsigned char* reply, int len, unsigned int port) {
  return len >= kLanReplyBytes && port == kRelayPort &&
         strncasecmp(reinterpret_cast<const char*>(reply) + 1, "lan", 3) == 0;
}

// The zero-terminated text at pos of reply; pos moves behind its zero. REQUIRES: a zero byte at or behind pos.
CString TakeText(const unsigned char* reply, unsigned int& pos) {
  CString text(reinterpret_cast<const char*>(reply) + pos);
  pos += static_cast<unsigned int>(text.size()) + 1;
  return text;
}

// Takes a second reply of kMinSecondReply decoded bytes or more apart. REQUIRES: zero bytes behind the decoded ones.
void TakeSecondReply(const unsigned char* reply, CString& projectName, CString& second, SNAckRegReq& ack) {
  std::memcpy(ack.bytes, reply + 1, kAckBytes);
  unsigned int pos = kProjectNameAt;
  projectName = TakeText(reply, pos);
  second = TakeText(reply, pos);
  if (ack.bytes[21] == 16) ack.bytes[21] = 6;
}

}  // namespace

uint32_t SNAckRegReq::DrvInfoTime() const { return wire::LoadU32BE(bytes + 50); }

uint32_t SNAckRegReq::DrvInfoSize() const { return wire::LoadU32BE(bytes + 54); }

uint32_t CClientSock::ConnectDB(const char* address, CString& projectName, CString& second, SNAckRegReq& ack,
                                bool flag) {
  CString target(address);
  for (;;) {
    Prepare();
    Registration reg;
    CString redirect;
    uint32_t result = IsRelayAddress(target) ? ParseRelay(target, reg) : ParseDirect(target, reg);
    if (result == kHandshakeOk) result = RegisterRequest(reg, redirect);
    if (result != kHandshakeOk) return result;
    if (redirect.empty()) return RegisterNotify(reg, projectName, second, ack, flag);
    target = redirect;
  }
}

int CClientSock::_IsLocalDB(const char* /*host*/) { return 0; }

void CClientSock::Prepare() {
  requestSock.SetFixedPeer(0);
  requestSock.Close();
  requestSock.BackInStep();  // a new connection begins in step
  notifySock.SetFixedPeer(0);
  notifySock.Close();
  srand(static_cast<unsigned int>(time(nullptr)));  // process-wide, once an attempt
  localDB = true;
}

uint32_t CClientSock::ParseDirect(const CString& address, Registration& reg) {
  reg.target = address;
  const size_t colon = address.rfind(':');
  if (colon != CString::npos && colon != 0) {  // a colon in front belongs to the host
    reg.port = ParsePort(address.c_str() + colon + 1);
    reg.target.resize(colon);
  }
  localDB = _IsLocalDB(reg.target.c_str()) != 0;
  return kHandshakeOk;
}

uint32_t CClientSock::ParseRelay(const CString& address, Registration& reg) {
  localDB = false;
  const size_t colon = address.find(':');
  if (colon == CString::npos) return kHandshakeBadAddress;
  reg.target = address.substr(colon + 1);
  if (reg.target.size() > kMaxDeviceName) return kHandshakeRefused;
  reg.port = kRelayPort;
  reg.timeOutMs = kRelayTimeOutMs;

  CString relay(kDefaultRelay);
  const CString prefix(address.substr(0, colon));
  const size_t open = prefix.find('(');
  if (open != CString::npos) {
    relay = prefix.substr(open + 1);
    relay.TrimRight(')');
  }
  const uint32_t relayAddr = inet_addr(relay.c_str());
  requestSock.SetFixedPeer(relayAddr);
  notifySock.SetFixedPeer(relayAddr);
  return kHandshakeOk;
}

uint32_t CClientSock::RegisterRequest(Registration& reg, CString& redirect) {
  _GUID guid{};
  CoCreateGuid(&guid);
  GuidToBytes(guid, reg.identifier);
  if (!OpenConnection(requestSock, reg.target, reg.port, reg.timeOutMs)) return kHandshakeFailed;

  Bytes body(reg.identifier, reg.identifier + kGuidBytes);
  if (reg.port == kRelayPort) {
    body.resize(kGuidBytes + kMacBytes);
    GetGatewayMac(requestSock.FixedPeer(), body.data() + kGuidBytes);
    AppendText(body, reg.target.c_str());
  }
  unsigned char packet[kPacketRoom] = {};
  if (requestSock._Send(packet, MakePacket('7', body, packet), 0) < 1) return kHandshakeFailed;

  unsigned char reply[kPacketRoom] = {};
  const int len = requestSock._Recv(reply, kPacketRoom, 0);
  if (len >= 1 && reply[0] == '7') {
    if (IsLanAnswer(reply, len, reg.port)) FollowLan(reply, redirect);
    return kHandshakeOk;
  }
  return reply[0] == '0' ? kHandshakeRefused : kHandshakeFailed;
}

void CClientSock::FollowLan(const unsigned char* reply, CString& redirect) {
  sameLan = true;
  std::printf("Is same lan ...\n");
  std::fflush(stdout);
  requestSock.SetFixedPeer(0);
  requestSock.Close();
  notifySock.SetFixedPeer(0);
  char text[sizeof "255.255.255.255:65535"];
  std::snprintf(text, sizeof text, "%d.%d.%d.%d:%d", reply[4], reply[5], reply[6], reply[7],
                (reply[8] << 8) | reply[9]);
  redirect = text;
}

uint32_t CClientSock::RegisterNotify(Registration& reg, CString& projectName, CString& second, SNAckRegReq& ack,
                                     bool flag) {
  usleep(0);  // gives the processor away once between the two registrations
  if (!OpenConnection(notifySock, reg.target, reg.port, reg.timeOutMs)) return kHandshakeFailed;
  notifySock.SetKeepAlive(kKeepAliveIdleS, kKeepAliveIntervalS, kKeepAliveProbes);

  char host[kHostNameRoom] = {};
  gethostname(host, sizeof host);  // a failure leaves the name empty
  host[kHostNameRoom - 1] = '\0';  // a longer name may come without its zero
  Bytes body(reg.identifier, reg.identifier + kGuidBytes);
  AppendText(body, host);
  body.push_back(flag ? 1 : 0);
  body.push_back(1);
  unsigned char packet[kPacketRoom] = {};
  if (notifySock._Send(packet, MakePacket('8', body, packet), 0) < 1) return kHandshakeFailed;

  unsigned char received[kPacketRoom];
  unsigned char reply[kPacketRoom] = {};  // decodes to at most 384 bytes, so the texts always end
  const int len = notifySock._Recv(received, kPacketRoom, 0);
  const unsigned int plain = DecryptPacket(static_cast<unsigned int>(len), received, kPacketRoom, reply);
  if (plain < kMinSecondReply) return plain == 1 && reply[0] == '0' ? kHandshakeClientRefused : kHandshakeFailed;
  if (reply[0] != '8') return kHandshakeFailed;
  notifySock.SetTimeOut(kSessionTimeOutMs);
  usleep(0);
  TakeSecondReply(reply, projectName, second, ack);
  return kHandshakeOk;
}
