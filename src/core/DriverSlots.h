// DriverSlots: the drivers by driver index. The JavaScript thread fills a slot when a driver is first asked for, the
// receive thread reads it for each notification: a slot is published with release and read with acquire. The length
// changes only while no receive thread runs.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

class CDBDriver;

class DriverSlots {
 public:
  size_t size() const { return size_; }

  // The driver in slot index, or null. REQUIRES: index < size().
  CDBDriver* operator[](size_t index) const { return slots_[index].load(std::memory_order_acquire); }

  void Publish(size_t index, CDBDriver* driver) { slots_[index].store(driver, std::memory_order_release); }

  // Keeps the slots up to count as they are; new ones are null. REQUIRES: no receive thread runs.
  void resize(size_t count) {
    auto slots = std::make_unique<std::atomic<CDBDriver*>[]>(count);
    for (size_t i = 0; i < count; ++i) {
      slots[i].store(i < size_ ? (*this)[i] : nullptr, std::memory_order_relaxed);
    }
    slots_ = std::move(slots);
    size_ = count;
  }

  // Empties every slot; the length stays.
  void Forget() {
    for (size_t i = 0; i < size_; ++i) Publish(i, nullptr);
  }

 private:
  std::unique_ptr<std::atomic<CDBDriver*>[]> slots_;
  size_t size_ = 0;
};
