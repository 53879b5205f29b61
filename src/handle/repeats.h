#ifndef QKMEM_HANDLE_REPEATS_H_
#define QKMEM_HANDLE_REPEATS_H_

#include "core/records.h"

namespace qk::mem {

/**
 * Marks the records of an array that have the address of an earlier one, so that a walk releases
 * each piece of memory once. All records of an address are in the same array. Takes time
 * proportional to n log n, or to n² if there is no memory for sorting.
 */
void mark_repeats(qk_mem_handle& handle, qk_mem_ptr_array& array);

/** Whether an earlier record has the same address. */
[[nodiscard]] bool is_repeat(const qk_mem_ptr& record);

/** Whether an earlier record of the same address has the same tracker. */
[[nodiscard]] bool has_tracker_of_earlier(const qk_mem_ptr& record);

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_REPEATS_H_
