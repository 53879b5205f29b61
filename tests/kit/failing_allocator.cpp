#include "tests/kit/failing_allocator.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>

#include "tests/kit/live_memory.h"
#include "tests/kit/placement.h"

// The functions themselves; the linker redirects calls by their plain names to __wrap_ functions.
extern "C" {
void __real_free(void* memory);
void* __real__Znam(std::size_t size);
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void __real__ZdlPv(void* memory);
void __real__ZdlPvm(void* memory, std::size_t size);
void __real__ZdaPv(void* memory);
void __real__ZdaPvm(void* memory, std::size_t size);
}

namespace {

constexpr int kNever = 0;

std::atomic<int> requests_left = kNever;
std::atomic<bool> keeps_failing = false;
std::atomic<bool> failed = false;
std::atomic<void (*)()> action_of_next = nullptr;

/** Counts down to the request that fails. If later ones fail too, the count stays there. */
bool is_to_fail() {
  int left = requests_left.load();
  do {
    if (left == kNever) return false;
    if (left == 1 && keeps_failing) break;
  } while (!requests_left.compare_exchange_weak(left, left - 1));
  return left == 1;
}

bool fails_now() {
  const bool fails = is_to_fail();
  if (action_of_next != nullptr) {
    if (void (*const action)() = action_of_next.exchange(nullptr)) action();
  }
  if (!fails) return false;
  failed = true;
  errno = ENOMEM;
  return true;
}

template <class T>
T* noted(T* memory) {
  kit::note_allocated(memory);
  return memory;
}

template <class T>
T* noted_or_thrown(T* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return noted(memory);
}

}  // namespace

// The linker redirects calls of malloc to __wrap_malloc, and so on.
extern "C" {
void* __wrap_malloc(std::size_t size) {
  return fails_now() ? nullptr : noted(kit::placed::malloc(size));
}
void* __wrap_calloc(std::size_t num, std::size_t size) {
  return fails_now() ? nullptr : noted(kit::placed::calloc(num, size));
}
void* __wrap_realloc(void* ptr, std::size_t size) {
  if (fails_now()) return nullptr;
  kit::note_freed(ptr);
  void* memory = kit::placed::realloc(ptr, size);
  if (memory == nullptr && size != 0) kit::note_allocated(ptr);
  return noted(memory);
}
char* __wrap_strdup(const char* text) {
  return fails_now() ? nullptr : noted(kit::placed::strdup(text));
}
void __wrap_free(void* memory) {
  kit::note_freed(memory);
  __real_free(memory);
}

void* __wrap__Znwm(std::size_t size) {
  return noted_or_thrown(fails_now() ? nullptr : kit::placed::operator_new(size));
}
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return fails_now() ? nullptr : noted(kit::placed::operator_new(size, tag));
}
void* __wrap__Znam(std::size_t size) {
  return noted_or_thrown(fails_now() ? nullptr : __real__Znam(size));
}
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return fails_now() ? nullptr : noted(__real__ZnamRKSt9nothrow_t(size, tag));
}
void __wrap__ZdlPv(void* memory) {
  kit::note_freed(memory);
  __real__ZdlPv(memory);
}
void __wrap__ZdlPvm(void* memory, std::size_t size) {
  kit::note_freed(memory);
  __real__ZdlPvm(memory, size);
}
void __wrap__ZdaPv(void* memory) {
  kit::note_freed(memory);
  __real__ZdaPv(memory);
}
void __wrap__ZdaPvm(void* memory, std::size_t size) {
  kit::note_freed(memory);
  __real__ZdaPvm(memory, size);
}
}

namespace kit {

void fail_request(int nth) {
  failed = false;
  keeps_failing = false;
  requests_left = nth;
}

void fail_requests_from(int nth) {
  fail_request(nth);
  keeps_failing = true;
}

void during_next_request(void (*action)()) { action_of_next = action; }

void fail_all_requests() { fail_requests_from(1); }

void let_succeed() { requests_left = kNever; }

bool has_failed() { return failed; }

}  // namespace kit
