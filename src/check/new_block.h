#ifndef QKMEM_CHECK_NEW_BLOCK_H_
#define QKMEM_CHECK_NEW_BLOCK_H_

#include <cstddef>
#include <cstdint>

#include "check/damage.h"
#include "check/guards.h"
#include "check/settings.h"

/**
 * Memory of the system's allocator for the program, with guards where they are wanted. Without them
 * each call is that of the allocator. Before one fails, the quarantine is emptied.
 */
namespace qk::mem::check {

/** A block that the program gets, and the room around it. */
struct NewBlock {
  void* address = nullptr;  // null if there was no memory
  Layout layout = {};
  std::uint32_t era = 0;  // see profile::Origin

  /** Moves a block that can't be recorded to the allocator's address, where no record is needed. */
  void give_up_front(std::uint64_t bytes);
};

/** A block in memory of the allocator, which can be null. */
[[nodiscard, gnu::always_inline]] inline NewBlock block_in(void* memory, std::uint64_t bytes,
                                                           const Layout& layout) {
  if (memory == nullptr) [[unlikely]]
    return {};
  NewBlock block = {static_cast<char*>(memory) + layout.front, layout};
  lay_guards(block.address, bytes, layout);
  return block;
}

/** A block when the allocator has refused one: with what the quarantine has kept. */
[[nodiscard, gnu::cold]] NewBlock allocate_after_emptying(std::size_t size, const Layout& layout);

/** A block of a handle. Its contents are a filling, if one is wanted. */
[[nodiscard]] NewBlock allocate(const qk_mem_handle& handle, std::size_t size);

/** The same, filled with zeros. */
[[nodiscard]] NewBlock allocate_zeroed(const qk_mem_handle& handle, std::size_t num,
                                       std::size_t size);

/** The same with a copy of a text. */
[[nodiscard]] NewBlock copy_of(const qk_mem_handle& handle, const char* text);

/**
 * Resizes a block in the allocator, which keeps its contents. `mark` tells the room that it has.
 * Null, and nothing has changed, if there is no memory. The size is above 0.
 */
[[nodiscard]] NewBlock resize(const qk_mem_handle& handle, void* old, std::uint64_t old_bytes,
                              profile::Mark mark, std::size_t size);

/**
 * A block with the contents of another one, as far as it is large enough. While there is a
 * quarantine a block that is resized moves: so the old one can go there. None otherwise.
 */
[[nodiscard]] NewBlock copy_elsewhere(const qk_mem_handle& handle, const BlockFacts& old,
                                      std::size_t size);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_NEW_BLOCK_H_
