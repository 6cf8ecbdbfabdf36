// DriverSlots: the drivers by driver index. The JavaScript thread fills a slot when a driver is first asked for, the
// receive thread reads it for each notification: a slot is written with release and read with acquire. The length
// changes only while no receive thread runs.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>

class CDBDriver;

// A pointer to a driver, or null, that one thread may write while another reads it.
class DriverSlot {
 public:
  DriverSlot& operator=(CDBDriver* driver) {
    driver_.store(driver, std::memory_order_release);
    return *this;
  }
  // NOLINTNEXTLINE(google-explicit-constructor): it stands for the pointer
  operator CDBDriver*() const { return driver_.load(std::memory_order_acquire); }
  CDBDriver* operator->() const { return *this; }

 private:
  std::atomic<CDBDriver*> driver_{nullptr};
};

class DriverSlots {
 public:
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // REQUIRES: index < size().
  DriverSlot& operator[](size_t index) { return slots_[index]; }
  const DriverSlot& operator[](size_t index) const { return slots_[index]; }

  DriverSlot* begin() { return slots_.get(); }
  DriverSlot* end() { return slots_.get() + size_; }

  // Keeps the slots up to count as they are; new ones are null. REQUIRES: no receive thread runs.
  void resize(size_t count) {
    auto slots = std::make_unique<DriverSlot[]>(count);
    for (size_t i = 0; i < count && i < size_; ++i) slots[i] = static_cast<CDBDriver*>((*this)[i]);
    slots_ = std::move(slots);
    size_ = count;
  }

  // REQUIRES: no receive thread runs.
  void push_back(CDBDriver* driver) {
    resize(size_ + 1);
    slots_[size_ - 1] = driver;
  }

  // Empties every slot; the length stays.
  void Forget() { std::fill(begin(), end(), nullptr); }

 private:
  std::unique_ptr<DriverSlot[]> slots_;
  size_t size_ = 0;
};
