#ifndef QKMEM_CHECK_QUARANTINE_H_
#define QKMEM_CHECK_QUARANTINE_H_

#include <cstdint>
#include <optional>

#include "check/damage.h"
#include "support/modules.h"
#include "support/mtx.h"

/**
 * Released blocks that stay out of use for a while, so that a write to one of them shows. They leave
 * in the order in which they came, and are looked at then.
 */
namespace qk::mem::check {

/** An entry of the quarantine: a line of the processor's cache. */
struct alignas(64) Quarantined {
  char* base;
  std::uint64_t bytes;  // of the block, without its guards
  profile::Mark mark;
  const char* file;
  const char* released_path;
  std::uint64_t released_event;
  std::uint32_t line;
  std::int32_t released_line;
  std::uint32_t pool;
  history::Ending ending;
  bool is_told;  // that it is damaged
};
static_assert(sizeof(Quarantined) == 64);

/**
 * Sets how many bytes are kept, none at 0. What is there leaves. Where there is no memory for the
 * list itself, none are kept, and it returns false.
 */
[[nodiscard]] bool set_quarantine(std::uint64_t bytes);

/**
 * Keeps a released block of a pool, filled, unless it is too large. `base` is the address that the
 * allocator knows it by. False if it is not kept.
 */
[[nodiscard]] bool quarantine(const BlockFacts& facts, void* base, std::uint32_t pool);

/** Releases all blocks. Returns whether there were any. */
bool empty_quarantine();

/** The block of the quarantine in which an address lies. */
[[nodiscard]] std::optional<BlockFacts> find_in_quarantine(const void* address);

/** Looks at all blocks, and adds what is found for the first time. Returns how many are damaged. */
std::uint64_t look_at_quarantine(DamageList& damages);

/** How many blocks there are, and calls `visit` with the memory of each. */
[[nodiscard]] std::uint64_t count_in_quarantine();
void for_each_in_quarantine(void (*visit)(void* data, qk::AddressRange range), void* data);

/** What the quarantine's own list takes. */
[[nodiscard]] qk::AddressRange list_of_quarantine();

/** Guards all of it. No other lock is taken under it. */
[[gnu::visibility("hidden")]] extern qk::Mtx quarantine_lock;

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_QUARANTINE_H_
