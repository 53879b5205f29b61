#include "tests/kit/live_memory.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace kit {
namespace {

/** A lock that allocates nothing. */
class SpinLock {
 public:
  void lock() {
    while (held_.test_and_set(std::memory_order_acquire)) {
    }
  }
  void unlock() { held_.clear(std::memory_order_release); }

 private:
  std::atomic_flag held_;
};

constexpr std::size_t kSlots = std::size_t{1} << 16;

std::atomic<bool> watched = false;
SpinLock lock;

/** A hash table of addresses with linear probing. */
const void* slots[kSlots];
const char kRemoved = 0;  // replaces a removed address, so that later ones are still found

std::size_t first_slot(const void* memory) {
  return (reinterpret_cast<std::uintptr_t>(memory) >> 4) * 0x9e3779b97f4a7c15U % kSlots;
}

/** The slot of an address, or null. */
const void** slot_of(const void* memory) {
  std::size_t slot = first_slot(memory);
  for (std::size_t seen = 0; seen < kSlots; ++seen) {
    if (slots[slot] == nullptr) return nullptr;
    if (slots[slot] == memory) return &slots[slot];
    slot = (slot + 1) % kSlots;
  }
  return nullptr;
}

}  // namespace

void watch_memory() { watched = true; }

bool is_live(const void* memory) {
  const std::lock_guard guard(lock);
  return slot_of(memory) != nullptr;
}

void for_each_live(const std::function<void(const void*)>& visit) {
  for (const void* memory : slots) {
    if (memory != nullptr && memory != &kRemoved) visit(memory);
  }
}

void note_allocated(void* memory) {
  if (!watched || memory == nullptr) return;
  const std::lock_guard guard(lock);
  std::size_t slot = first_slot(memory);
  for (std::size_t seen = 0; seen < kSlots; ++seen) {
    if (slots[slot] == nullptr || slots[slot] == &kRemoved) {
      slots[slot] = memory;
      return;
    }
    slot = (slot + 1) % kSlots;
  }
  std::fputs("more live memory than the table can hold\n", stderr);
  std::abort();
}

void note_freed(void* memory) {
  if (!watched || memory == nullptr) return;
  const std::lock_guard guard(lock);
  if (const void** slot = slot_of(memory)) *slot = &kRemoved;
}

}  // namespace kit
