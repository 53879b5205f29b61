#include "support/thread_stack.h"

#include <unistd.h>

#include <algorithm>

#include "support/careful_reading.h"
#include "support/thread_pointer.h"

namespace qk {
namespace {

#ifdef __x86_64__

using Word [[gnu::may_alias]] = std::uint64_t;
using Half [[gnu::may_alias]] = std::int32_t;

/** What a thread has behind its thread pointer takes so many bytes at least. */
constexpr std::uintptr_t kLeast = 0x280;
constexpr std::uintptr_t kAlignment = 16;

[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] std::uint64_t thread_word(
    std::uintptr_t address) {
  return *reinterpret_cast<const Word*>(address);  // NOLINT(performance-no-int-to-ptr)
}

[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] std::int32_t thread_half(
    std::uintptr_t address) {
  return *reinterpret_cast<const Half*>(address);  // NOLINT(performance-no-int-to-ptr)
}

/**
 * Its first and third word are its own address.
 *
 * @param word_at  reads a word of memory.
 */
template <class WordAt>
bool is_thread(std::uintptr_t address, WordAt word_at) {
  return word_at(address) == address && word_at(address + 16) == address;
}

/** The thread at the end of a mapping, or 0. */
template <class WordAt>
std::uintptr_t thread_at_end(AddressRange mapping, WordAt word_at) {
  const std::uintptr_t lowest = mapping.end - kMostOfThread;
  std::uintptr_t at = (mapping.end - kLeast) & ~(kAlignment - 1);
  for (; at >= lowest; at -= kAlignment) {
    if (is_thread(at, word_at)) return at;
  }
  return 0;
}

/** Where a thread's number is, behind its thread pointer; 0 if that can't be told. */
std::uintptr_t offset_of_number() {
  const auto self = thread_pointer();
  constexpr std::uintptr_t kUsual = 0x2D0;
  return is_thread(self, thread_word) && thread_half(self + kUsual) == gettid() ? kUsual : 0;
}

#endif

}  // namespace

std::uintptr_t thread_of_stack([[maybe_unused]] AddressRange mapping) noexcept {
#ifdef __x86_64__
  if (mapping.end - mapping.begin >= kMostOfThread) return thread_at_end(mapping, thread_word);
#endif
  return 0;
}

bool is_stack_of_thread([[maybe_unused]] AddressRange mapping) noexcept {
#ifdef __x86_64__
  std::uint64_t words[kMostOfThread / sizeof(std::uint64_t)];
  if (mapping.end - mapping.begin < sizeof words) return false;
  const std::uintptr_t begin = mapping.end - sizeof words;
  if (!copy_if_there(begin, words, sizeof words)) return false;
  return thread_at_end(mapping, [&](std::uintptr_t address) {
           return words[(address - begin) / sizeof(std::uint64_t)];
         }) != 0;
#else
  return false;
#endif
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
