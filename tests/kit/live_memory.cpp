#include "tests/kit/live_memory.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace kit {
namespace {

/** A lock that can be used where the allocator is called. */
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

constexpr std::size_t kPlaces = std::size_t{1} << 16;

std::atomic<bool> watched = false;
SpinLock lock;

/** Addresses by their hash, each at the first place that was free for it. */
const void* places[kPlaces];
const char kGone = 0;  // stands where an address was, so that those behind it are still found

std::size_t first_place(const void* memory) {
  return (reinterpret_cast<std::uintptr_t>(memory) >> 4) * 0x9e3779b97f4a7c15U % kPlaces;
}

/** The place of an address, or null. */
const void** slot_of(const void* memory) {
  std::size_t place = first_place(memory);
  for (std::size_t seen = 0; seen < kPlaces; ++seen) {
    if (places[place] == nullptr) return nullptr;
    if (places[place] == memory) return &places[place];
    place = (place + 1) % kPlaces;
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
  for (const void* memory : places) {
    if (memory != nullptr && memory != &kGone) visit(memory);
  }
}

void note_allocated(void* memory) {
  if (!watched || memory == nullptr) return;
  const std::lock_guard guard(lock);
  std::size_t place = first_place(memory);
  for (std::size_t seen = 0; seen < kPlaces; ++seen) {
    if (places[place] == nullptr || places[place] == &kGone) {
      places[place] = memory;
      return;
    }
    place = (place + 1) % kPlaces;
  }
  std::fputs("more live memory than a test can note\n", stderr);
  std::abort();
}

void note_freed(void* memory) {
  if (!watched || memory == nullptr) return;
  const std::lock_guard guard(lock);
  if (const void** place = slot_of(memory)) *place = &kGone;
}

}  // namespace kit
