#ifndef QKMEM_CHECK_REPORT_LOOK_H_
#define QKMEM_CHECK_REPORT_LOOK_H_

#include <cstdint>

#include "check/guards.h"
#include "core/records.h"
#include "table/slot.h"

/**
 * Looks at the guards of live blocks, at blocks in quarantine and at memory that no piece has, and
 * tells of damage.
 */
namespace qk::mem::check {

/** Whether a look may wait for the locks of handles. */
enum class Waiting : std::uint8_t { kAllowed, kForbidden };

/**
 * Looks at everything. No handle's lock may be held. Handles without a mutex are left out while there
 * are other threads, and those whose lock another thread has if waiting is forbidden.
 *
 * @return blocks that are damaged now, whether or not that was told before.
 */
std::uint64_t look_at_all(Waiting waiting = Waiting::kAllowed);

/** Guards of live blocks, as the last look at everything saw them. */
struct Added {
  std::uint64_t blocks;       // that have guards
  std::uint64_t guard_bytes;  // of these
};
[[nodiscard]] Added added_by_checks();

/** Looks at the blocks of one handle, which the caller knows to stay. Returns as above. */
std::uint64_t look_at_handle(qk_mem_handle& handle);

/**
 * Looks at the blocks beside the slot that a record had: what was written near a block that is
 * released may have hit them too.
 */
void look_beside(qk_mem_handle& handle, const qk_mem_ptr& record, std::int32_t index);

/** How far a look from a block may go: other pages may have been given back to the system. */
[[nodiscard]] inline bool is_in_same_page(const char* address, const char* other) {
  constexpr std::uintptr_t kPage = 4096;
  return (reinterpret_cast<std::uintptr_t>(address) ^ reinterpret_cast<std::uintptr_t>(other)) <
         kPage;
}

/** Calls `visit` with slot and guard of the block in a slot, if it ends near `end`. */
template <class Visit>
[[gnu::always_inline]] inline void visit_near(const qk_mem_ptr_array& array,
                                              const profile::Marks& marks, std::int32_t slot_index,
                                              const char* end, Visit visit) {
  if (slot_index < 1 || slot_index >= slots_of(array) || !marks.has(slot_index)) return;
  const std::uint32_t bytes = bytes_behind(marks.at(slot_index));
  if (bytes == 0) return;
  const qk_mem_ptr& slot = array.ptrs[slot_index];
  const void* const address = recorded_address(slot);
  if (address == nullptr) return;
  const char* const guard = guard_behind(address, qk::load(slot.count) * qk::load(slot.size));
  if (is_in_same_page(guard, end) && is_in_same_page(guard + bytes - 1, end)) {
    visit(slot_index, guard, bytes);
  }
}

/** The same of the two slots beside one. */
template <class Visit>
[[gnu::always_inline]] inline void for_each_neighbour(const qk_mem_ptr_array& array,
                                                      const profile::Marks& marks,
                                                      std::int32_t index, const char* end,
                                                      Visit visit) {
  visit_near(array, marks, index - 1, end, visit);
  visit_near(array, marks, index + 1, end, visit);
}

/** Looks at everything when the calling thread leaves the scope, if that is due. */
class DueLook {
 public:
  DueLook() = default;
  DueLook(const DueLook&) = delete;
  DueLook& operator=(const DueLook&) = delete;
  ~DueLook();
};

/** Sets after how many events everything is looked at; 0 for never. */
void look_every(std::uint64_t events);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_REPORT_LOOK_H_
