// The tag table: sizing, the hand-over of values between the two threads, and the single-name id lookup.
#include "driver/CDBDriver.h"

CDBDriver::STag::STag(STag&& other) noexcept
    : value(std::move(other.value)),
      name(std::move(other.name)),
      id(other.id),
      connected(other.connected),
      type(other.type.load(std::memory_order_relaxed)),
      incoming(other.incoming.exchange(nullptr, std::memory_order_relaxed)) {}

const XVariant& CDBDriver::STag::Value() {
  std::unique_ptr<XVariant> newest(incoming.exchange(nullptr, std::memory_order_acquire));
  if (newest) value = std::move(*newest);
  return value;
}

size_t CDBDriver::STag::Decode(const uint8_t* bytes, size_t size) {
  XVariant decoded;
  size_t consumed = 0;
  if (!decoded.FromBuffer(bytes, size, true, consumed)) return 0;
  value = std::move(decoded);
  type.store(value.vt, std::memory_order_release);
  return consumed;
}

void CDBDriver::SetTagCount(unsigned long count) {
  tags.resize(count);
  for (unsigned long i = 0; i < count; ++i) tags[i].id = static_cast<uint16_t>(i);
}

CDBDriver::STag* CDBDriver::TagOrNull(uint16_t id) { return id < tags.size() ? &tags[id] : nullptr; }

CDBDriver::STag* CDBDriver::StoreName(uint16_t id, const CString& name) {
  STag* tag = TagOrNull(id);
  if (tag != nullptr) tag->name = name;
  return tag;
}

uint16_t CDBDriver::GetTagId(const char* name) {
  if (name == nullptr || *name == '\0' || tags.empty()) return kNoTag;
  const CString key(name);
  const auto known = tagIds.find(key);
  if (known != tagIds.end()) return known->second;

  const SessionUse use(*core);
  if (!use) return kNoTag;
  uint16_t id = kNoTag;
  core->GetTagId(number, name, id);
  StoreName(id, key);
  // Intended behaviour: kept also without an answer, so that a name is asked for once in the driver's life.
  tagIds.emplace(key, id);
  return id;
}
