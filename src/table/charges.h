#ifndef QKMEM_TABLE_CHARGES_H_
#define QKMEM_TABLE_CHARGES_H_

#include "core/kinds.h"
#include "core/records.h"

/** Which sum the bytes of a record belong to: those of the data, the overhead, or neither. */
namespace qk::mem {

/** The sum that the bytes of a record are part of. */
enum class ChargedTo {
  kNothing,
  kData,     // the handle's amount and its tag's
  kOverhead  // the handle's overhead_amount
};

/**
 * The handle is charged for a whole block when the block is linked, so neither the block's record
 * nor those of its pieces add anything.
 */
[[nodiscard]] constexpr ChargedTo charged_to(unsigned char kind) {
  if (is_management(kind)) return ChargedTo::kOverhead;
  return is_piece(kind) || kind == kind::kBlock ? ChargedTo::kNothing : ChargedTo::kData;
}

/**
 * How a removal finds the sum that loses the record's bytes. Calls of the allocation interface go
 * by what they do, even where the address turns out to be recorded as something else.
 */
enum class Removal {
  kByKind,        // the sum that the insertion was charged to
  kByFree,        // data; on a block-managed handle external memory only
  kByRealloc,     // data; nothing on a block-managed handle
  kByDeregister,  // data
  kOfTracker      // overhead
};

/** The sum that loses the bytes of a record of `kind`. */
[[nodiscard]] constexpr ChargedTo sum_for(const qk_mem_handle& handle, Removal removal,
                                          unsigned char kind) {
  switch (removal) {
    case Removal::kByFree:
      return !is_blockmgmt(handle) || kind == kind::kExternal ? ChargedTo::kData
                                                              : ChargedTo::kNothing;
    case Removal::kByRealloc:
      return is_blockmgmt(handle) ? ChargedTo::kNothing : ChargedTo::kData;
    case Removal::kByDeregister:
      return ChargedTo::kData;
    case Removal::kOfTracker:
      return ChargedTo::kOverhead;
    case Removal::kByKind:
      break;
  }
  return charged_to(kind);
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_CHARGES_H_
