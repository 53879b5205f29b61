#include "support/apart_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>

#include "support/mtx_lock.h"

namespace qk::apart {

constinit std::uint8_t is_wanted = 0;
constinit Mtx lock;

namespace {

/** Precedes memory that is handed out, and keeps its alignment. */
struct alignas(16) Header {
  std::size_t bytes;  // with the header
  Header* next_free;  // while it is free
};

constexpr std::size_t kStep = std::size_t{1} << 20;
constexpr std::size_t kSmallest = 64;
constexpr int kClasses = 32;  // powers of two from the smallest on

/** All lies in one range of addresses, so that it is told from the heap by a comparison. */
constexpr std::size_t kRange = std::size_t{1} << 38;

struct Range {
  char* begin;
  std::size_t used;
  std::size_t accessible;
  Header* free[kClasses];  // by their size
};
constinit Range range QK_GUARDED_BY(lock) = {};
constinit char* first_address = nullptr;

bool reserve_range() QK_REQUIRES(lock) {
  lock.assert_held();
  if (range.begin != nullptr) return true;
  void* const begin =
      mmap(nullptr, kRange, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (begin == MAP_FAILED) return false;
  range.begin = static_cast<char*>(begin);
  publish(first_address, range.begin);
  return true;
}

bool make_accessible(std::size_t end) QK_REQUIRES(lock) {
  lock.assert_held();
  if (end <= range.accessible) return true;
  if (end > kRange) return false;
  const std::size_t next = std::min((end + kStep - 1) / kStep * kStep, kRange);
  if (mprotect(range.begin + range.accessible, next - range.accessible, PROT_READ | PROT_WRITE)) {
    return false;
  }
  range.accessible = next;
  return true;
}

Header* take_unused(std::size_t bytes) QK_REQUIRES(lock) {
  lock.assert_held();
  if (!reserve_range() || bytes > kRange || !make_accessible(range.used + bytes)) return nullptr;
  return reinterpret_cast<Header*>(range.begin + std::exchange(range.used, range.used + bytes));
}

Header* header_of(void* memory) { return static_cast<Header*>(memory) - 1; }

int class_of(std::size_t bytes) { return std::countr_zero(bytes / kSmallest); }

}  // namespace

void use() { store(is_wanted, 1); }

void* allocate(std::size_t bytes) {
  const std::size_t whole = std::bit_ceil(std::max(bytes + sizeof(Header), kSmallest));
  const MtxLock held(lock);
  Header*& free = range.free[std::min(class_of(whole), kClasses - 1)];
  Header* const header =
      free != nullptr ? std::exchange(free, free->next_free) : take_unused(whole);
  if (header == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  header->bytes = whole;
  header->next_free = nullptr;
  return header + 1;
}

void* resize(void* memory, std::size_t bytes) {
  if (memory != nullptr && bytes <= header_of(memory)->bytes - sizeof(Header)) return memory;
  void* const resized = allocate(bytes);
  if (memory == nullptr || resized == nullptr) return resized;
  std::memcpy(resized, memory, header_of(memory)->bytes - sizeof(Header));
  release(memory);
  return resized;
}

bool has(const void* memory) {
  const char* const begin = acquire(first_address);
  const auto offset =
      reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(begin);
  return begin != nullptr && offset < kRange;
}

void release(void* memory) {
  Header* const header = header_of(memory);
  // A search for lost blocks must not take addresses that are left in it for references.
  std::memset(memory, 0, header->bytes - sizeof(Header));
  const MtxLock held(lock);
  Header*& free = range.free[std::min(class_of(header->bytes), kClasses - 1)];
  header->next_free = std::exchange(free, header);
}

}  // namespace qk::apart
