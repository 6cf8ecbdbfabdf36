// Notification records, back to back on the notification connection, little-endian:
//
//   driver record                           | core record
//   off  size  field                        | off  size  field
//   0    2     driver index, not 0xFFFF     | 0    2     0xFFFF
//   2    2     tag index in that driver     | 2    1     command; it fixes the length, see below
//   4    ...   value, without type word     | 3    ...   body
#include <node_api.h>

#include <cstring>

#include "base/Wire.h"
#include "core/CDBCore.h"

namespace {

constexpr uint16_t kCoreRecord = 0xFFFF;
constexpr int kDriverHead = 4;
constexpr size_t kCoreHead = 3;
constexpr int kAlarmRecord = 35;
constexpr size_t kTagEventHead = 7;  // core head, driver index, tag index

// Whole lengths of the core records that are skipped, by command.
int SkippedLength(uint8_t command) {
  switch (command) {
    case 2:
    case 5:
    case 7:
      return 7;
    case 4:
      return 43;
    case 6:
      return 20;
    case 8:
      return 5;
    case 255:
      return 3;
    default:
      return CDBCore::kDropChunk;
  }
}

}  // namespace

int CDBCore::OnDBNotify(const uint8_t* record, size_t available) {
  if (available < 2) return kDropChunk;
  return wire::LoadU16(record) == kCoreRecord ? OnCoreRecord(record, available) : OnDriverRecord(record, available);
}

CDBDriver* CDBCore::DriverInSlot(uint16_t index) const {
  if (index >= driverSlots.size()) return nullptr;
  return driverSlots[index];
}

int CDBCore::OnDriverRecord(const uint8_t* record, size_t available) {
  CDBDriver* driver = DriverInSlot(wire::LoadU16(record));
  if (driver == nullptr || available < static_cast<size_t>(kDriverHead)) return kDropChunk;
  return driver->OnDBNotify(wire::LoadU16(record + 2), record + kDriverHead, available - kDriverHead) + kDriverHead;
}

int CDBCore::OnCoreRecord(const uint8_t* record, size_t available) {
  if (available < kCoreHead) return kDropChunk;
  const uint8_t command = record[2];
  if (command == 1 || command == 3) return OnAlarmRecord(record, available);
  if (command >= 9 && command <= 22) return OnTagEvent(command, record, available);
  return SkippedLength(command);
}

int CDBCore::OnAlarmRecord(const uint8_t* record, size_t available) {
  if (available < static_cast<size_t>(kAlarmRecord)) return kDropChunk;
  napi_threadsafe_function func = alarmFunc.load(std::memory_order_acquire);
  if (func == nullptr) return kAlarmRecord;
  auto* alarm = new S2RtAlarm2(S2RtAlarm2::FromBytes(record + kCoreHead));
  const napi_status status = napi_call_threadsafe_function(func, alarm, napi_tsfn_nonblocking);
  if (status != napi_ok) delete alarm;
  // The environment is ending: this reference is used up, and the handle must not be touched again.
  if (status == napi_closing) alarmFunc.store(nullptr, std::memory_order_release);
  return kAlarmRecord;
}

// Tag events are checked and skipped: u16 driver index at 3, u16 tag index at 5; commands 16 to 21 have a text at 7.
int CDBCore::OnTagEvent(uint8_t command, const uint8_t* record, size_t available) {
  if (available < kTagEventHead) return kDropChunk;
  const CDBDriver* driver = DriverInSlot(wire::LoadU16(record + 3));
  if (driver == nullptr || wire::LoadU16(record + 5) >= driver->tags.size()) return kDropChunk;
  if (command >= 10 && command <= 13) return 15;
  if (command < 16 || command > 21) return 8;
  const auto* text = reinterpret_cast<const char*>(record + kTagEventHead);
  const size_t room = available - kTagEventHead;
  const size_t length = strnlen(text, room);
  return length < room ? static_cast<int>(kTagEventHead + length + 1) : kDropChunk;
}
