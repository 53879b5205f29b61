#ifndef QKMEM_HANDLE_RELEASE_WALK_H_
#define QKMEM_HANDLE_RELEASE_WALK_H_

#include <optional>

#include "core/records.h"
#include "diag/call_context.h"

/**
 * The walk that deletion and clear of a handle make over its records, releasing what they stand
 * for.
 */
namespace qk::mem {

/** What a walk does with the records that it meets. */
class WalkRules {
 public:
  WalkRules() = default;
  WalkRules(const WalkRules&) = delete;
  WalkRules& operator=(const WalkRules&) = delete;
  virtual ~WalkRules() = default;

  /** Whether a record stays where it is. */
  [[nodiscard]] virtual bool keeps(const qk_mem_ptr& record) const = 0;

  /** The letter under which a record goes. */
  [[nodiscard]] virtual unsigned char letter_of(const qk_mem_ptr& record) = 0;

  /** Which totals lose the bytes of a record that goes under a letter. */
  virtual void charge(const qk_mem_ptr& record, unsigned char letter) = 0;
};

/**
 * Removes and announces the records of a handle in the order of arrays and slots. Memory of the
 * system's allocator is freed, objects and arrays are destroyed through their trackers, each once.
 */
void release_records(qk_mem_handle& handle, const CallContext& context, WalkRules& rules);

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_RELEASE_WALK_H_
