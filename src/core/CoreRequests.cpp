// The core's own requests on the request connection, answered in order; little-endian.
//
//   tag id request                  | reply, one read of up to 16 bytes
//   off  size  field                | off  size  field
//   0    1     'L'                  | 0    1     'L'
//   1    2     driver index         | 1    2     tag id; 65535: no such tag
//   3    n+1   name (GB2312), NUL   |
//
//   unadvise request                | reply, one read of up to 16 bytes
//   0    1     'd'                  | 0    1     'd' when done
//   1    4     id, signed           |
#include <cstring>

#include "base/Wire.h"
#include "core/CDBCore.h"

namespace {
constexpr size_t kTagIdRoom = 256;
constexpr size_t kTagIdHead = 3;
constexpr int kReplyRoom = 16;
constexpr int kTagIdReply = 3;
}  // namespace

int CDBCore::RequestAll(const void* request, uint32_t requestLen, uint32_t replyLen, void* reply) {
  const SessionUse use(*this);
  if (!use) return 0;
  requestSock.BackInStep();
  if (requestSock.SendAll(request, static_cast<int>(requestLen), 0) == 0) return 0;
  if (requestSock.RecvAll(reply, static_cast<int>(replyLen), 0) == 1) return 1;
  requestSock.MarkOutOfStep();
  return 0;
}

bool CDBCore::GetTagId(uint16_t driverIndex, const char* name, uint16_t& id) {
  const SessionUse use(*this);
  if (!use || !connected.load() || name == nullptr) return false;
  const size_t nameSize = std::strlen(name) + 1;
  uint8_t request[kTagIdRoom] = {'L'};
  if (kTagIdHead + nameSize > sizeof request) return false;
  wire::StoreU16(request + 1, driverIndex);
  std::memcpy(request + kTagIdHead, name, nameSize);
  requestSock.BackInStep();
  if (requestSock._Send(request, static_cast<int>(kTagIdHead + nameSize), 0) < 1) return false;
  if (ReadTagId(id)) return true;
  requestSock.MarkOutOfStep();
  return false;
}

bool CDBCore::ReadTagId(uint16_t& id) {
  uint8_t reply[kReplyRoom] = {};
  int received = requestSock._Recv(reply, kReplyRoom, 0);
  if (received < 1 || reply[0] != 'L') return false;
  while (received < kTagIdReply) {  // an answer that the network split
    const int more = requestSock._Recv(reply + received, kReplyRoom - received, 0);
    if (more < 1) return false;
    received += more;
  }
  id = wire::LoadU16(reply + 1);
  return true;
}

bool CDBCore::UnadviseTag(int32_t id) {
  const SessionUse use(*this);
  if (!use) return false;
  uint8_t request[5] = {'d'};
  wire::StoreU32(request + 1, static_cast<uint32_t>(id));
  requestSock.BackInStep();
  if (requestSock._Send(request, sizeof request, 0) == 0) return false;  // intended: after -1 the answer decides
  uint8_t reply[kReplyRoom] = {};
  requestSock._Recv(reply, kReplyRoom, 0);
  if (reply[0] == 'd') return true;
  requestSock.MarkOutOfStep();
  return false;
}
