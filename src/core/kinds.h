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

/** The sum that the bytes of a record are part of. */
enum class ChargedTo {
  kNothing,
  kData,     // the handle's amount and its tag's
  kOverhead  // the handle's overhead_amount
};

/**
 * The sum by kind. The handle is charged for a whole block when the block is linked, so neither the
 * block's record nor those of its pieces add anything.
 */
[[nodiscard]] constexpr ChargedTo charged_to(unsigned char kind) {
  if (is_management(kind)) return ChargedTo::kOverhead;
  return is_piece(kind) || kind == kind::kBlock ? ChargedTo::kNothing : ChargedTo::kData;
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_KINDS_H_
