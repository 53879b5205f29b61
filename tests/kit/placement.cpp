#include "tests/kit/placement.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// The functions themselves, see failing_allocator.cpp.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t num, std::size_t size);
void* __real_realloc(void* ptr, std::size_t size);
char* __real_strdup(const char* text);
void* __real__Znwm(std::size_t size);
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
}

namespace kit {
namespace {

constexpr std::size_t kAlignment = 128;
constexpr std::size_t kOffsetOfObjects = 16;

std::atomic<bool> aligned = false;

/** For memory that is released with free. */
void* aligned_memory(std::size_t size) {
  void* memory = nullptr;
  const int error = posix_memalign(&memory, kAlignment, size);
  if (error == 0) return memory;
  errno = error;
  return nullptr;
}

bool is_well_placed(const void* object) {
  return reinterpret_cast<std::uintptr_t>(object) % kAlignment == kOffsetOfObjects;
}

/**
 * For memory that is released with the ordinary operator delete, which takes no aligned memory:
 * allocates until a piece is well placed, and releases the others.
 */
void* placed_object(std::size_t size) {
  constexpr int kTries = 1000;
  constexpr std::size_t kSpacer = 40;  // shifts the next allocation by an odd multiple of 16
  void* unfit[2 * kTries];
  int count = 0;
  bool spaced = false;
  void* object = __real__ZnwmRKSt9nothrow_t(size, std::nothrow);
  while (object != nullptr && !is_well_placed(object) && count < 2 * kTries - 1) {
    unfit[count++] = object;
    // Only every other time, for allocators that serve both sizes from one row of slots in turn.
    spaced = !spaced;
    if (spaced) unfit[count++] = __real__ZnwmRKSt9nothrow_t(kSpacer, std::nothrow);
    object = __real__ZnwmRKSt9nothrow_t(size, std::nothrow);
  }
  while (count > 0) ::operator delete(unfit[--count]);
  return object;
}

}  // namespace

void align_requests() { aligned = true; }

namespace placed {

void* malloc(std::size_t size) { return aligned ? aligned_memory(size) : __real_malloc(size); }

void* calloc(std::size_t num, std::size_t size) {
  std::size_t bytes = 0;
  if (!aligned || __builtin_mul_overflow(num, size, &bytes)) return __real_calloc(num, size);
  void* memory = aligned_memory(bytes);
  return memory == nullptr ? nullptr : std::memset(memory, 0, bytes);
}

void* realloc(void* ptr, std::size_t size) {
  if (!aligned || (ptr != nullptr && size == 0)) return __real_realloc(ptr, size);
  void* memory = aligned_memory(size);
  if (ptr == nullptr || memory == nullptr) return memory;
  std::memcpy(memory, ptr, std::min(size, malloc_usable_size(ptr)));
  std::free(ptr);
  return memory;
}

char* strdup(const char* text) {
  if (!aligned) return __real_strdup(text);
  const std::size_t size = std::strlen(text) + 1;
  void* memory = aligned_memory(size);
  return memory == nullptr ? nullptr : static_cast<char*>(std::memcpy(memory, text, size));
}

void* operator_new(std::size_t size) {
  if (!aligned) return __real__Znwm(size);
  void* object = placed_object(size);
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

void* operator_new(std::size_t size, const std::nothrow_t& tag) {
  return aligned ? placed_object(size) : __real__ZnwmRKSt9nothrow_t(size, tag);
}

}  // namespace placed
}  // namespace kit
