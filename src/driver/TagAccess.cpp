// Connecting, reading and writing tags on the request connection; all integers little-endian, typed values in the
// variant's encoding with type word.
//
//   connect request                 | reply, repeated until all values are there
//   off     size  field             | off  size  field
//   0       1     'b'               | 0    1     'b'
//   1       2     count n           | 1    2     length of the values
//   3 + 5i  2     driver number     | 3    ...   values, back to back
//   5 + 5i  2     tag id            |
//   7 + 5i  1     0                 |
//
//   read request                    | reply, repeated while "more" is 1
//   0       1     'H'               | 0    1     'H'
//   1       2     count n           | 1    1     more
//   3 + 4i  2     driver number     | 2    2     length of the values
//   5 + 4i  2     tag id            | 4    ...   values, back to back
//
//   write request                   | no reply
//   0       1     'g'
//   1       2     count n
//   3       ...   per tag: u16 driver number, u16 tag id, typed value
#include <js_native_api.h>

#include <cstring>

#include "base/Wire.h"
#include "driver/CDBDriver.h"
#include "driver/NapiCheck.h"

namespace {

constexpr unsigned int kRequestHead = 3;  // command and count
constexpr unsigned int kConnectEntry = 5;
constexpr unsigned int kReadEntry = 4;
constexpr unsigned int kWriteEntryHead = 4;
constexpr unsigned int kTypeWord = 2;
constexpr size_t kMaxWriteText = 128;  // with the NUL

// Receives the values behind a chunk's head. False when they are cut short.
bool ReceiveValues(CReqTimeSock& sock, uint16_t length, std::vector<uint8_t>& values) {
  values.resize(length);
  return sock.RecvAll(values.data(), length, 0) == 1;
}

// Receives one chunk of a connect reply: the letter first, the rest only behind the right one.
bool ReceiveConnectChunk(CReqTimeSock& sock, std::vector<uint8_t>& values) {
  uint8_t letter = 0;
  uint8_t length[2];
  if (sock.RecvAll(&letter, 1, 0) == 0 || letter != 'b') return false;
  return sock.RecvAll(length, sizeof length, 0) == 1 && ReceiveValues(sock, wire::LoadU16(length), values);
}

// Receives one chunk of a read reply, its head in one piece.
bool ReceiveReadChunk(CReqTimeSock& sock, std::vector<uint8_t>& values, uint8_t& more) {
  uint8_t head[4];
  if (sock.RecvAll(head, sizeof head, 0) == 0 || head[0] != 'H') return false;
  more = head[1];
  return ReceiveValues(sock, wire::LoadU16(head + 2), values);
}

}  // namespace

// Sends a request and has its answer read. An answer that could not be read whole leaves the connection out of step.
template <class ReadReply>
bool CDBDriver::Exchange(const std::vector<uint8_t>& request, ReadReply readReply) {
  CReqTimeSock& sock = core->RequestSock();
  sock.BackInStep();
  if (sock.SendAll(request.data(), static_cast<int>(request.size()), 0) == 0) return false;
  if (readReply()) return true;
  sock.MarkOutOfStep();
  return false;
}

bool CDBDriver::_ConnectTag(const char* list) {
  const SessionUse use(*core);
  if (!use) return false;
  std::vector<STag*> entries;
  if (!CheckTagId(list, entries)) return false;

  std::vector<uint8_t> request{'b', 0, 0};
  std::vector<STag*> asked;
  for (STag* tag : entries) {
    if (tag == nullptr || tag->connected != 0) continue;
    tag->Value();  // what was notified before the request is older than its answer
    request.resize(request.size() + kConnectEntry);
    uint8_t* entry = request.data() + request.size() - kConnectEntry;
    wire::StoreU16(entry, number);
    wire::StoreU16(entry + 2, tag->id);
    asked.push_back(tag);
    if (asked.size() == static_cast<size_t>(kMaxConnect)) break;
  }
  if (asked.empty()) return true;
  wire::StoreU16(request.data() + 1, static_cast<uint16_t>(asked.size()));
  return Exchange(request, [&] { return ReadConnectReply(asked); });
}

bool CDBDriver::ReadConnectReply(const std::vector<STag*>& asked) {
  std::vector<uint8_t> chunk;
  size_t offset = 0;
  int emptyChunks = 0;
  for (STag* tag : asked) {
    while (offset >= chunk.size()) {
      if (!ReceiveConnectChunk(core->RequestSock(), chunk)) return false;
      offset = 0;
      if (chunk.empty() && ++emptyChunks > kMaxEmptyChunks) return false;
    }
    const size_t consumed = tag->Decode(chunk.data() + offset, chunk.size() - offset);
    if (consumed == 0) return false;
    tag->connected = 1;
    offset += consumed;
  }
  return true;
}

bool CDBDriver::_GetTagValue(const char* list, std::vector<STag*>& out) {
  const SessionUse use(*core);
  if (!use || !CheckTagId(list, out)) return false;

  std::vector<uint8_t> request{'H', 0, 0};
  std::vector<STag*> asked;
  for (STag* tag : out) {
    if (tag == nullptr || tag->connected != 0) continue;
    if (asked.size() == static_cast<size_t>(kMaxRead)) break;
    tag->Value();  // what was notified before the request is older than its answer
    request.resize(request.size() + kReadEntry);
    uint8_t* entry = request.data() + request.size() - kReadEntry;
    wire::StoreU16(entry, number);
    wire::StoreU16(entry + 2, tag->id);
    asked.push_back(tag);
  }
  if (asked.empty()) return true;
  wire::StoreU16(request.data() + 1, static_cast<uint16_t>(asked.size()));
  return Exchange(request, [&] { return ReadReadReply(asked); });
}

bool CDBDriver::ReadReadReply(const std::vector<STag*>& asked) {
  std::vector<uint8_t> chunk;
  size_t next = 0;
  int emptyChunks = 0;
  uint8_t more = 1;
  while (more == 1 && next < asked.size()) {
    if (!ReceiveReadChunk(core->RequestSock(), chunk, more)) return false;
    if (chunk.empty() && ++emptyChunks > kMaxEmptyChunks) return false;
    for (size_t offset = 0; offset < chunk.size() && next < asked.size(); ++next) {
      const size_t consumed = asked[next]->Decode(chunk.data() + offset, chunk.size() - offset);
      if (consumed == 0) return false;
      offset += consumed;
    }
  }
  return true;
}

napi_value CDBDriver::GetTagValue(napi_env environment, const char* list) {
  const SessionUse use(*core);
  std::vector<STag*> entries;
  if (!use || !_GetTagValue(list, entries) || entries.empty()) return nullptr;
  if (entries.size() > 1) return ValuesToArray(environment, entries);
  return entries[0] != nullptr ? ValueToValue(environment, entries[0]->Value()) : nullptr;
}

napi_value CDBDriver::ValuesToArray(napi_env environment, const std::vector<STag*>& entries) {
  napi_value array = nullptr;
  if (!NapiCheck(environment, napi_create_array_with_length(environment, entries.size(), &array))) return nullptr;
  for (uint32_t i = 0; i < entries.size(); ++i) {
    if (entries[i] == nullptr) continue;  // stays unset
    napi_value element = ValueToValue(environment, entries[i]->Value());
    if (element == nullptr) {
      bool pending = false;
      napi_is_exception_pending(environment, &pending);
      if (pending) return nullptr;
      if (!NapiCheck(environment, napi_get_undefined(environment, &element))) return nullptr;
    }
    if (!NapiCheck(environment, napi_set_element(environment, array, i, element))) return nullptr;
  }
  return array;
}

bool CDBDriver::ValueToBuf(napi_env environment, napi_value value, uint8_t* buffer, unsigned int& length) {
  napi_valuetype kind = napi_undefined;
  if (!NapiCheck(environment, napi_typeof(environment, value, &kind))) return false;

  uint8_t encoded[kTypeWord + kMaxWriteText];
  unsigned int size = kTypeWord;
  if (kind == napi_string) {
    char text[kMaxWriteText];
    size_t textLen = 0;
    if (!NapiCheck(environment, napi_get_value_string_utf8(environment, value, text, sizeof text, &textLen))) {
      return false;
    }
    wire::StoreU16(encoded, VT_BSTR);
    const size_t upToNul = strnlen(text, textLen);  // a NUL inside would end the value on the wire
    std::memcpy(encoded + size, text, upToNul);
    encoded[size + upToNul] = 0;
    size += static_cast<unsigned int>(upToNul) + 1;
  } else if (kind == napi_boolean) {
    bool flag = false;
    if (!NapiCheck(environment, napi_get_value_bool(environment, value, &flag))) return false;
    wire::StoreU16(encoded, VT_BOOL);
    encoded[size++] = flag ? 1 : 0;
  } else if (kind == napi_number) {
    double number64 = 0;
    if (!NapiCheck(environment, napi_get_value_double(environment, value, &number64))) return false;
    wire::StoreU16(encoded, VT_R8);
    wire::StoreF64(encoded + size, number64);
    size += sizeof number64;
  } else {
    return false;
  }
  if (length > kWriteRoom || size > kWriteRoom - length) return false;
  std::memcpy(buffer + length, encoded, size);
  length += size;
  return true;
}

bool CDBDriver::AppendWrite(napi_env environment, const STag& tag, napi_value value, uint8_t* buffer,
                            unsigned int& length) {
  if (length + kWriteEntryHead > kWriteRoom) return false;
  wire::StoreU16(buffer + length, number);
  wire::StoreU16(buffer + length + 2, tag.id);
  length += kWriteEntryHead;
  return ValueToBuf(environment, value, buffer, length);
}

// Returns how many tags were appended, or kWriteBadValue.
int CDBDriver::AppendWrites(napi_env environment, const std::vector<STag*>& entries, napi_value values, uint8_t* buffer,
                            unsigned int& length) {
  bool isArray = false;
  if (!NapiCheck(environment, napi_is_array(environment, values, &isArray)) || !isArray) return kWriteBadValue;
  uint32_t elements = 0;
  if (!NapiCheck(environment, napi_get_array_length(environment, values, &elements))) return kWriteBadValue;
  int count = 0;
  for (uint32_t i = 0; i < entries.size(); ++i) {
    if (entries[i] == nullptr) continue;
    napi_value element = nullptr;
    if (i >= elements || !NapiCheck(environment, napi_get_element(environment, values, i, &element))) {
      return kWriteBadValue;
    }
    if (!AppendWrite(environment, *entries[i], element, buffer, length)) return kWriteBadValue;
    ++count;
  }
  return count;
}

int CDBDriver::SetTagValue(napi_env environment, const char* list, napi_value value) {
  const SessionUse use(*core);
  if (!use) return kWriteNotSent;
  if ((core->Rights() & kWriteRight) == 0) return kWriteNoRight;
  std::vector<STag*> entries;
  if (!CheckTagId(list, entries)) return kWriteNotSent;
  return entries.empty() ? kWriteSent : SendWrites(entries, environment, value);
}

int CDBDriver::SendWrites(const std::vector<STag*>& entries, napi_env environment, napi_value value) {
  uint8_t buffer[kWriteRoom] = {'g'};
  unsigned int length = kRequestHead;
  int count = 1;
  if (entries.size() == 1) {
    if (entries[0] == nullptr || !AppendWrite(environment, *entries[0], value, buffer, length)) return kWriteBadValue;
  } else {
    count = AppendWrites(environment, entries, value, buffer, length);
    if (count < 0) return kWriteBadValue;
  }
  wire::StoreU16(buffer + 1, static_cast<uint16_t>(count));
  const int size = static_cast<int>(length);
  return core->RequestSock()._Send(buffer, size, 0) == size ? kWriteSent : kWriteNotSent;
}
