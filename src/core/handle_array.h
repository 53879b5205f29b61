#ifndef QKMEM_CORE_HANDLE_ARRAY_H_
#define QKMEM_CORE_HANDLE_ARRAY_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"
#include "support/shared_variable.h"

/**
 * The array that maps a number to its handle. It is changed under the registry's lock and read
 * without one, by every call of every thread:
 *
 *     real_slots     the number of slots, which a reader reads first
 *     Qk_mem_handles -> [ handle 1 | handle 2 | null | handle 4 | … ]
 *
 *     grow      new array, then the count     an old count fits the new array, or the array has room
 *     retire    count 0, then no array        a reader with an old count has the old array or null
 *
 * Each step is published, so a reader that has read the count can't run past the end of the array
 * it reads next. An array that is replaced while there are other threads is kept for good.
 *
 * Which slots are taken is noted a second time, in a set that finds the lowest free one.
 */
namespace qk::mem {

/** The number of slots that are added at a time. */
inline constexpr std::int32_t kHandleStep = 512;

/** One reader's view of the handle array. */
struct HandleSlots {
  qk_mem_handle** slots;
  std::int32_t count;

  [[nodiscard]] qk_mem_handle* at(std::uint32_t index) const {
    return index < static_cast<std::uint32_t>(count) ? qk::acquire(slots[index]) : nullptr;
  }

  /** The handle of a number, which need not be valid; null if there is none. */
  [[nodiscard]] qk_mem_handle* numbered(std::int32_t hid) const {
    return at(static_cast<std::uint32_t>(hid) - 1);
  }
};

/** Real length of Qk_mem_handles; Qk_mem_avail_handles may be larger after a failed growth. */
[[gnu::visibility("hidden")]] extern std::int32_t real_slots;

[[nodiscard]] inline HandleSlots handle_slots() {
  const std::int32_t count = qk::acquire(real_slots);
  qk_mem_handle** slots = qk::acquire(Qk_mem_handles);
  return {slots, slots == nullptr ? 0 : count};
}

/**
 * The same for the fast path. It has no slots until the library has started up, and none once the
 * registry is retired. While the count is above 0 the array can be read at any time: it is released
 * only in a process with one thread.
 */
struct FastSlots {
  qk_mem_handle** slots;
  std::uint32_t count;
};
[[gnu::visibility("hidden")]] extern FastSlots fast_slots;

/** Finds a handle for the fast path. May return null for a number that find_handle() finds. */
[[nodiscard]] inline qk_mem_handle* find_handle_fast(std::int32_t hid) {
  const std::uint32_t count = qk::acquire(fast_slots.count);
  const std::uint32_t index = static_cast<std::uint32_t>(hid) - 1;
  return index < count ? qk::acquire(qk::acquire(fast_slots.slots)[index]) : nullptr;
}

/**
 * The handle of any number, or null. Takes no lock unless the array is about to be replaced: within
 * a few slots of its end.
 */
[[nodiscard]] qk_mem_handle* find_handle(std::int32_t hid);

/** Lets find_handle_fast() find handles, once the start-up is over. Needs the registry's lock. */
void open_fast_slots() QK_REQUIRES(Qk_mem_mtx);

/** The lowest slot from `first` on without a handle; kNoHandleSlot if the array has none. */
inline constexpr std::int32_t kNoHandleSlot = -1;
[[nodiscard]] std::int32_t lowest_free_handle_slot(std::int32_t first) QK_REQUIRES(Qk_mem_mtx);

/** Puts a handle into a free slot. Needs the registry's lock. */
void fill_handle_slot(std::int32_t index, qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

/** Empties the slot of a handle. Needs the registry's lock. */
void empty_handle_slot(std::int32_t index) QK_REQUIRES(Qk_mem_mtx);

/**
 * An array for replace_handle_array() that has the present handles and room for `count`. If other
 * threads may be reading the present array, it grows in place as long as it has room, and a new one
 * has room for twice as many. Null, with errno, if there is no memory. Needs the registry's lock.
 */
[[nodiscard]] qk_mem_handle** handle_array_for(std::int32_t count) QK_REQUIRES(Qk_mem_mtx);

/** Makes `array` of `count` slots the handle array. Needs the registry's lock. */
void replace_handle_array(qk_mem_handle** array, std::int32_t count) QK_REQUIRES(Qk_mem_mtx);

/**
 * Frees a handle array that was replaced, unless other threads may still be reading it: then it is
 * kept for good. Does nothing to the present array. Needs the registry's lock.
 */
void release_handle_array(qk_mem_handle** array) QK_REQUIRES(Qk_mem_mtx);

/** Calls `visit` with every live handle, in the order of the numbers. Needs the registry's lock. */
template <class Visit>
void for_each_handle(Visit visit) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const HandleSlots handles = handle_slots();
  for (std::int32_t i = 0; i < handles.count; ++i) {
    if (qk_mem_handle* handle = handles.at(static_cast<std::uint32_t>(i))) visit(*handle);
  }
}

/** The lock of a handle, if it has one, for those who take the locks of all handles. */
void lock_handle(const qk_mem_handle& handle) QK_UNCHECKED_LOCKING;
void unlock_handle(const qk_mem_handle& handle) QK_UNCHECKED_LOCKING;

}  // namespace qk::mem

#endif  // QKMEM_CORE_HANDLE_ARRAY_H_
