#include "tests/kit/failing_allocator.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>

#include "tests/kit/placement.h"

namespace {

constexpr int kNever = 0;
constexpr int kAlways = -1;

std::atomic<int> requests_left = kNever;
std::atomic<bool> failed = false;

bool fails_now() {
  int left = requests_left.load();
  if (left == kNever) return false;
  if (left != kAlways && requests_left.fetch_sub(1) != 1) return false;
  failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

// The linker leads the calls of a symbol to its __wrap_ twin.
extern "C" {
void* __wrap_malloc(std::size_t size) { return fails_now() ? nullptr : kit::placed::malloc(size); }
void* __wrap_calloc(std::size_t num, std::size_t size) {
  return fails_now() ? nullptr : kit::placed::calloc(num, size);
}
void* __wrap_realloc(void* ptr, std::size_t size) {
  return fails_now() ? nullptr : kit::placed::realloc(ptr, size);
}
char* __wrap_strdup(const char* text) { return fails_now() ? nullptr : kit::placed::strdup(text); }
void* __wrap__Znwm(std::size_t size) {
  if (fails_now()) throw std::bad_alloc();
  return kit::placed::operator_new(size);
}
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return fails_now() ? nullptr : kit::placed::operator_new(size, tag);
}
}

namespace kit {

void fail_request(int nth) {
  failed = false;
  requests_left = nth;
}

void fail_all_requests() { fail_request(kAlways); }

void let_succeed() { requests_left = kNever; }

bool has_failed() { return failed; }

}  // namespace kit
