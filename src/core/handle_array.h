#ifndef QKMEM_CORE_HANDLE_ARRAY_H_
#define QKMEM_CORE_HANDLE_ARRAY_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"
#include "support/shared_variable.h"

/**
 * The array that leads from a handle's number to its record. It is changed under the registry's
 * lock and read without one, by every call of every thread:
 *
 *     real_slots ------ how many slots there are; what a reader reads first
 *     Qk_mem_handles -> [ handle 1 | handle 2 | null | handle 4 | … ]
 *
 *     grow      new array, then the count     an old count fits the new array
 *     retire    count 0, then no array        a reader with an old count still has the old array
 *
 * Each step is published, so a reader that has read the count can't run over the end of the array
 * it reads next. An array that was replaced stays readable while there are other threads.
 */
namespace qk::mem {

/** Slots that are added at a time. */
inline constexpr std::int32_t kHandleStep = 512;

/** The handle array as one reader sees it. */
struct HandleSlots {
  qk_mem_handle** slots;
  std::int32_t count;

  [[nodiscard]] qk_mem_handle* at(std::uint32_t index) const {
    return index < static_cast<std::uint32_t>(count) ? qk::acquire(slots[index]) : nullptr;
  }

  /** The handle of any number, which a caller may have made up; null where there is none. */
  [[nodiscard]] qk_mem_handle* numbered(std::int32_t hid) const {
    return at(static_cast<std::uint32_t>(hid) - 1);
  }
};

/** Real length of Qk_mem_handles; Qk_mem_avail_handles may be larger after a failed growth. */
extern std::int32_t real_slots;

[[nodiscard]] inline HandleSlots handle_slots() {
  const std::int32_t count = qk::acquire(real_slots);
  qk_mem_handle** slots = qk::acquire(Qk_mem_handles);
  return {slots, slots == nullptr ? 0 : count};
}

/**
 * The same for the shortest way to a handle: no slots before the library has started up and after
 * the registry is retired. The array of a count above 0 can be read as it stands: it is released
 * only where nobody else can be running.
 */
struct QuickSlots {
  qk_mem_handle** slots;
  std::uint32_t count;
};
extern QuickSlots quick_slots;

/** The handle of any number, or null; also where the general way would find one. */
[[nodiscard]] inline qk_mem_handle* handle_at_once(std::int32_t hid) {
  const std::uint32_t count = qk::acquire(quick_slots.count);
  const std::uint32_t index = static_cast<std::uint32_t>(hid) - 1;
  return index < count ? qk::acquire(qk::acquire(quick_slots.slots)[index]) : nullptr;
}

/** Lets handle_at_once() find handles, once the start-up is over. Needs the registry's lock. */
void open_quick_slots() QK_REQUIRES(Qk_mem_mtx);

/** Makes `array` of `count` slots the handle array. Needs the registry's lock. */
void replace_handle_array(qk_mem_handle** array, std::int32_t count) QK_REQUIRES(Qk_mem_mtx);

/**
 * Gives a handle array that was replaced back to the system, once nobody can be reading it. Needs
 * the registry's lock.
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

}  // namespace qk::mem

#endif  // QKMEM_CORE_HANDLE_ARRAY_H_
