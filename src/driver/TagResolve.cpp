// Batch resolution of tag names: request 'L', answered in order on the request connection; little-endian.
//
//   request, at most 768 bytes                      | reply, exactly 1 + 4 n bytes for n names
//   off  size  field                                | off     size  field
//   0    1     'L'                                  | 0       1     'L'
//   1    n+3   per name: u16 driver number,         | 1 + 4i  2     tag id of the i-th name; 65535: no such tag
//              the name (GB2312), NUL               | 3 + 4i  2     not used
#include <cstring>

#include "base/Wire.h"
#include "driver/CDBDriver.h"

namespace {
constexpr unsigned int kBatchRoom = 768;
constexpr unsigned int kEntryFrame = 3;  // driver number and NUL around each name
constexpr unsigned int kReplyEntry = 4;
constexpr unsigned int kMaxNames = (kBatchRoom - 1) / (kEntryFrame + 1);
}  // namespace

struct CDBDriver::PendingBatch {
  uint8_t bytes[kBatchRoom] = {'L'};
  unsigned int length = 1;
  std::vector<CString> names;

  bool HasRoomFor(const CString& name) const { return length + name.size() + kEntryFrame <= kBatchRoom; }

  // Whether a request can carry the name at all.
  static bool CanHold(const CString& name) { return 1 + name.size() + kEntryFrame <= kBatchRoom; }

  void Add(uint16_t driverNumber, const CString& name) {
    wire::StoreU16(bytes + length, driverNumber);
    std::memcpy(bytes + length + 2, name.c_str(), name.size() + 1);
    length += static_cast<unsigned int>(name.size()) + kEntryFrame;
    names.push_back(name);
  }
};

bool CDBDriver::ReqBatchGetPoss(const std::vector<CString>& names, const void* request, unsigned int requestLen,
                                std::vector<STag*>& out) {
  const SessionUse use(*core);
  if (!use) return false;
  std::vector<uint8_t> reply(1 + kReplyEntry * names.size());
  if (core->RequestAll(request, requestLen, static_cast<uint32_t>(reply.size()), reply.data()) == 0) return false;
  if (reply[0] != 'L') {
    core->RequestSock().MarkOutOfStep();
    return false;
  }
  const uint8_t* entry = reply.data() + 1;
  for (const CString& name : names) {
    const uint16_t id = wire::LoadU16(entry);
    tagIds[name] = id;
    out.push_back(StoreName(id, name));
    entry += kReplyEntry;
  }
  return true;
}

bool CDBDriver::FlushBatch(PendingBatch& batch, std::vector<STag*>& out) {
  const bool answered = ReqBatchGetPoss(batch.names, batch.bytes, batch.length, out);
  batch.names.clear();
  batch.length = 1;
  return answered;
}

bool CDBDriver::CheckTagId(const char* list, std::vector<STag*>& out) {
  const SessionUse use(*core);
  if (!use) return false;
  PendingBatch batch;
  batch.names.reserve(kMaxNames);
  const CString names(list);
  int pos = 0;
  for (CString name = names.Tokenize(",", pos); pos >= 0; name = names.Tokenize(",", pos)) {
    name.Trim(' ');
    const auto known = tagIds.find(name);
    if (known != tagIds.end()) {
      out.push_back(name.empty() ? nullptr : TagOrNull(known->second));
    } else if (name.empty() || !PendingBatch::CanHold(name)) {
      out.push_back(nullptr);
    } else {
      // Intended behaviour: nothing goes to out before the batch is answered, so these names come after cached ones.
      if (!batch.HasRoomFor(name) && !FlushBatch(batch, out)) return false;
      batch.Add(number, name);
    }
  }
  return batch.names.empty() || FlushBatch(batch, out);
}
