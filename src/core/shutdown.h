#ifndef QKMEM_CORE_SHUTDOWN_H_
#define QKMEM_CORE_SHUTDOWN_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"

/**
 * The registry at the end of the process, while other threads may still run: which number is not
 * reused, and which handles survive the handle array.
 */
namespace qk::mem {

/**
 * From now on no new handle gets the overhead handle's number, if the process has several threads.
 * The clean-up deletes that handle while other threads may still create handles.
 */
void retire_overhead_number();

/** The first slot that a new handle may take. */
[[nodiscard]] std::int32_t first_slot_for_new();

/**
 * Takes a handle out of all reports, and its sums out of its tag, as its deletion would, while
 * other threads may be using it. Nothing is freed, and nothing changes that they look at: it
 * survives. Needs the registry's lock.
 */
void hide_handle(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

/**
 * Takes the handle array out of use at the end of the process and returns it. Handles that are
 * still live are kept in a list, so that leak checkers see them as reachable. Needs the registry's
 * lock.
 */
[[nodiscard]] qk_mem_handle** retire_registry() QK_REQUIRES(Qk_mem_mtx);

/**
 * Puts the surviving handles back into a new handle array, if the process has several threads: a
 * thread that still uses an old number must not reach another thread's handle. Hidden ones come
 * back with their sums. Needs the registry's lock.
 */
void restore_surviving_handles() QK_REQUIRES(Qk_mem_mtx);

/** Calls `visit` with the survivors that were not hidden. Needs the registry's lock. */
void for_each_shown_survivor(void (*visit)(qk_mem_handle&)) QK_REQUIRES(Qk_mem_mtx);

/**
 * Removes a handle from the registry, or from the list of survivors: threads can still delete
 * handles after the registry was retired. Needs the registry's lock.
 */
void unlist_handle(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_CORE_SHUTDOWN_H_
