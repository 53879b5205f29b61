#ifndef QKMEM_HANDLE_RELEASE_WALK_H_
#define QKMEM_HANDLE_RELEASE_WALK_H_

#include <optional>

#include "core/records.h"
#include "diag/call_context.h"

/** The walk of deletion and clear over a handle's records, which releases what is recorded. */
namespace qk::mem {

/** What a walk does with each record. */
class WalkRules {
 public:
  WalkRules() = default;
  WalkRules(const WalkRules&) = delete;
  WalkRules& operator=(const WalkRules&) = delete;
  virtual ~WalkRules() = default;

  /** Whether a record is kept. */
  [[nodiscard]] virtual bool keeps(const qk_mem_ptr& record) const = 0;

  /** The event letter of a record's release. */
  [[nodiscard]] virtual unsigned char letter_of(const qk_mem_ptr& record) = 0;

  /** Subtracts the bytes of a record that is released with a letter. */
  virtual void charge(const qk_mem_ptr& record, unsigned char letter) = 0;
};

/**
 * Removes and announces the records of a handle in the order of arrays and slots. Memory of the
 * system's allocator is freed; objects and arrays are destroyed through their trackers. What has
 * several records is released once, and so is what an object on the handle owns, see
 * accounting/walks.h.
 */
void release_records(qk_mem_handle& handle, const CallContext& context, WalkRules& rules);

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_RELEASE_WALK_H_
