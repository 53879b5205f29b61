#ifndef QKMEM_CORE_KINDS_H_
#define QKMEM_CORE_KINDS_H_

#include "core/records.h"
#include "formats/trace_letters.h"
#include "support/shared_variable.h"

namespace qk::mem {

[[nodiscard]] constexpr bool is_blockmgmt(const qk_mem_handle& handle) {
  return handle.blockmgmt != 0;
}

/** Whether a handle can have records of pointers. */
[[nodiscard]] inline bool keeps_records(const qk_mem_handle& handle) {
  return handle.track != 0 || qk::load(handle.registered) != 0;
}

/** The kind under which an allocation is recorded: pieces of blocks have kinds of their own. */
[[nodiscard]] constexpr unsigned char kind_on(const qk_mem_handle& handle, unsigned char kind) {
  return is_blockmgmt(handle) ? as_piece(kind) : kind;
}

/**
 * Whether a new record of a kind is counted in overhead_qty. A pointer array counts itself when it
 * gets its first slots.
 */
[[nodiscard]] constexpr bool counts_as_overhead(unsigned char kind) {
  return kind == kind::kHandleMemory || kind == kind::kTracker;
}

/** Whether a record stands for memory that the program has asked for. */
[[nodiscard]] constexpr bool belongs_to_program(unsigned char kind) {
  return !is_management(kind) && kind != kind::kBlock;
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_KINDS_H_
