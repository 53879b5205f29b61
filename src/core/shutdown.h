#ifndef QKMEM_CORE_SHUTDOWN_H_
#define QKMEM_CORE_SHUTDOWN_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"

/**
 * The registry at the end of the process, while other threads may go on: what is not given out any
 * more, what is not freed, and the handles that are still live when the handle array is gone.
 */
namespace qk::mem {

/**
 * From now on no handle is given the overhead handle's number if the process has several threads.
 * For the clean-up, which deletes that handle while other threads may still make theirs.
 */
void retire_overhead_number();

/** The slot from which on new handles take theirs. */
[[nodiscard]] std::int32_t first_slot_for_new();

/**
 * From now on memory of handles isn't freed any more if the process has several threads. For a
 * process that is being ended while they go on.
 */
void keep_memory();
[[nodiscard]] bool keeps_memory();

/** Frees memory that a handle consisted of, unless keep_memory() was called. */
void free_unless_kept(void* memory);

/**
 * Takes the handle array out of use, at the end of the process, and returns it. Handles that are
 * still live stay with the process, where leak checkers find them in use. Needs the registry's
 * lock.
 */
[[nodiscard]] qk_mem_handle** retire_registry() QK_REQUIRES(Qk_mem_mtx);

/**
 * Puts handles that the registry's end has left live back into a new handle array, if the process
 * has several threads: one that still goes by an old number must not come upon another's handle.
 * Needs the registry's lock.
 */
void restore_surviving_handles(qk_mem_handle** array, std::int32_t count) QK_REQUIRES(Qk_mem_mtx);

/**
 * Takes a handle out of the registry, or out of those that were left behind when the registry was
 * retired: other threads can go on after that. Needs the registry's lock.
 */
void unlist_handle(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_CORE_SHUTDOWN_H_
