#ifndef PROFILE_STACK_TABLE_H_
#define PROFILE_STACK_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "support/number_index.h"
#include "support/numbered_store.h"
#include "support/page_arena.h"
#include "support/unwinder.h"

namespace qk::mem {

/** Return addresses, innermost first. */
struct Stack {
  const std::uintptr_t* frames = nullptr;
  int depth = 0;
};

/**
 * Keeps each stack once, under a number: 1 for the first one, then 2 and so on. 0 is the stack
 * without frames. Stacks are never removed, and neither move nor change.
 *
 * Reading takes no lock, and works at a signal that interrupts intern(). A stack of 16 frames takes
 * some 160 to 190 bytes of the arena. Constant initialized and never destroyed.
 */
class StackTable {
 public:
  /** The arena is the caller's, stays, and is used under the lock that intern() needs. */
  explicit constexpr StackTable(PageArena& arena) noexcept : arena_(&arena) {}
  StackTable(const StackTable&) = delete;
  StackTable& operator=(const StackTable&) = delete;

  /**
   * Returns a stack's number; 0 if it isn't there, which another thread can be about to change. At
   * most kMostFrames frames. Threads: any.
   */
  [[nodiscard]] std::uint32_t find(const Stack& stack) const noexcept;

  /**
   * Returns a stack's number, a new one if it isn't there yet; nothing if the arena refuses memory.
   * At most kMostFrames frames. Needs the caller's lock, one for all calls on table and arena.
   */
  [[nodiscard]] std::optional<std::uint32_t> intern(const Stack& stack) noexcept;

  /** A stack by its number; without frames if there is no such number. Threads: any. */
  [[nodiscard]] Stack stack(std::uint32_t number) const noexcept;

  /** How many stacks there are, which is the highest number. Threads: any. */
  [[nodiscard]] std::uint32_t size() const noexcept;

 private:
  struct Entry;

  [[nodiscard]] std::uint32_t find(const Stack& stack, std::uint32_t print) const noexcept;
  [[nodiscard]] bool is(std::uint32_t number, const Stack& stack) const noexcept;
  [[nodiscard]] Entry* carve_entry(const Stack& stack) noexcept;

  PageArena* arena_;
  qk::NumberIndex index_;
  qk::NumberedStore<const Entry*> entries_;
  char* next_ = nullptr;  // the rest of the chunk that entries are carved from
  std::size_t left_ = 0;
};

}  // namespace qk::mem

#endif  // PROFILE_STACK_TABLE_H_
