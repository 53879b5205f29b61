#include "support/thread_stack.h"

#include <unistd.h>

#include <algorithm>

#include "support/thread_pointer.h"

namespace qk {
namespace {

#ifdef __x86_64__

using Word [[gnu::may_alias]] = std::uint64_t;
using Half [[gnu::may_alias]] = std::int32_t;

/** What a thread has behind its thread pointer takes between so many bytes. */
constexpr std::uintptr_t kLeast = 0x280;
constexpr std::uintptr_t kMost = 0x2000;
constexpr std::uintptr_t kAlignment = 16;

[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] std::uint64_t thread_word(
    std::uintptr_t address) {
  return *reinterpret_cast<const Word*>(address);  // NOLINT(performance-no-int-to-ptr)
}

[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] std::int32_t thread_half(
    std::uintptr_t address) {
  return *reinterpret_cast<const Half*>(address);  // NOLINT(performance-no-int-to-ptr)
}

/** Its first and third word are its own address. */
bool is_thread(std::uintptr_t address) {
  return thread_word(address) == address && thread_word(address + 16) == address;
}

/** Where a thread's number is, behind its thread pointer; 0 if that can't be told. */
std::uintptr_t offset_of_number() {
  const auto self = thread_pointer();
  constexpr std::uintptr_t kUsual = 0x2D0;
  return is_thread(self) && thread_half(self + kUsual) == gettid() ? kUsual : 0;
}

#endif

}  // namespace

std::uintptr_t thread_of_stack([[maybe_unused]] AddressRange mapping) noexcept {
#ifdef __x86_64__
  if (mapping.end - mapping.begin < kMost) return 0;
  const std::uintptr_t lowest = mapping.end - kMost;
  std::uintptr_t at = (mapping.end - kLeast) & ~(kAlignment - 1);
  for (; at >= lowest; at -= kAlignment) {
    if (is_thread(at)) return at;
  }
#endif
  return 0;
}

/** The system makes the number zero when the thread ends. */
bool has_thread_ended([[maybe_unused]] std::uintptr_t thread_pointer) noexcept {
#ifdef __x86_64__
  const std::uintptr_t offset = offset_of_number();
  return offset != 0 && thread_half(thread_pointer + offset) == 0;
#else
  return false;
#endif
}

}  // namespace qk
