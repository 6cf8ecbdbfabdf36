// FuzzCore: a core in mid-session without a server behind it: its request connection ends at the peer, and its one
// driver "D" (slot 1 of 3, the others are empty) has kTags tags "T0", "T1", ... of every type code, all resolved.
#pragma once

#include <string>

#include "core/CDBCore.h"
#include "support/NapiStub.h"
#include "support/Peer.h"

class FuzzCore : public CDBCore {
 public:
  static constexpr uint16_t kSlot = 1;
  static constexpr uint16_t kTags = 40;

  explicit FuzzCore(Peer& peer) {
    env = napi_stub::Env();
    rights = 0xFFFFFFFF;
    driverInfo["D"] = {kSlot, kTags, nullptr};
    driverSlots.resize(3);
    driver = _GetDriver("D");
    for (uint16_t i = 0; i < kTags; ++i) {
      driver->tagIds[TagName(i)] = i;
      driver->tags[i].name = TagName(i);
      driver->tags[i].type = TypeOf(i);
    }
    requestSock.Attach(peer.Open());
    connected = true;
  }
  ~FuzzCore() {
    connected = false;  // there is no receive thread to wait for
    if (alarmFunc.load() != nullptr) ReleaseAlarmFunc();
  }

  static CString TagName(uint16_t index) { return "T" + std::to_string(index); }

  // Every code up to 24, then the two array codes, then an unknown one; tags behind these have the usual types.
  static uint16_t TypeOf(uint16_t index) {
    static constexpr uint16_t kRare[] = {VT_ARRAY, VT_ARRAY | VT_VARIANT, 0xFFFF};
    static constexpr uint16_t kUsual[] = {VT_R8, VT_I4, VT_BSTR, VT_BOOL, VT_R4};
    if (index <= 24) return index;
    if (index < 28) return kRare[(index - 25) % 3];
    return kUsual[(index - 28) % 5];
  }

  // The list "T0,T1,..." of the first count tags.
  static std::string TagList(size_t count) {
    std::string list;
    for (uint16_t i = 0; i < count; ++i) list += (i != 0 ? "," : "") + TagName(i % kTags);
    return list;
  }

  // Looks at every value, as JavaScript would.
  void ReadAll() {
    for (CDBDriver::STag& tag : driver->tags) driver->ValueToValue(tag.Value());
  }

  CDBDriver* driver;
};
