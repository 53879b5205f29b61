#ifndef QKMEM_TABLE_POINTER_TABLE_H_
#define QKMEM_TABLE_POINTER_TABLE_H_

#include <optional>

#include "core/records.h"
#include "core/registry.h"
#include "diag/site.h"
#include "table/pointer_array.h"

/**
 * A handle's pointer table: the index from an address to its record. Eight arrays, chosen by bits 4
 * to 6 of the address; slot 0 of each is the array's own record; arrays only grow.
 *
 * The calls below find, make and remove a record with all its fields and sums as one step under the
 * handle's lock and hand out copies, since a slot can move or be given away as soon as the lock is
 * gone.
 */
namespace qk::mem {

/** What a new record holds beside its address, kind and place. */
struct Contents {
  std::uint64_t count;
  std::uint64_t size;
  qk::MemTracker* tracker = nullptr;
};

/** Which totals the bytes of a record are part of. */
enum class Totals {
  kData,              // the handle's and its tag's amount
  kDataOfOrdinary,    // the same, except on block-managed handles, which are charged for blocks
  kDataExceptPieces,  // the same, but external memory counts on every handle
  kOverhead,          // the handle's overhead
  kNone               // the bytes stay where they are
};

/**
 * The locks for recording a pointer. Growing replaces an array that a report may be reading, so a
 * full array asks for the registry's lock, under which reports run, and that one comes first.
 */
class RecordingLock {
 public:
  RecordingLock(const qk_mem_handle& handle, const qk_mem_ptr_array& array);
  RecordingLock(const RecordingLock&) = delete;
  RecordingLock& operator=(const RecordingLock&) = delete;
  ~RecordingLock();

 private:
  qk::Mtx* handle_;  // null where the handle has none
  bool holds_registry_ = false;
};

/**
 * Finds a slot for a new record, growing the array if need be. Needs a RecordingLock.
 *
 * @return kNoSlot when there is none to be had, which is reported.
 */
[[nodiscard]] std::int32_t reserve_slot(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                        const Site& site);

/** A record that was taken out, and the slot where it stood. */
struct Taken {
  qk_mem_ptr record;
  std::int32_t index;
};

/**
 * Records a pointer, counts the event and adds the bytes to the totals.
 *
 * @return the record; nothing when the array couldn't grow (logged, and the code is set).
 */
std::optional<qk_mem_ptr> record_pointer(qk_mem_handle& handle, void* address, unsigned char kind,
                                         const Contents& contents, const Site& site, Totals totals);

/**
 * Removes the record of an address and subtracts its bytes from the totals. The event isn't
 * counted.
 *
 * @return nothing when there is no record.
 */
std::optional<Taken> take_pointer(qk_mem_handle& handle, const void* address, Totals totals);

/**
 * Finds an address on a handle; of several records the one of the lowest slot, or the last used.
 */
[[nodiscard]] std::optional<qk_mem_ptr> find_pointer(qk_mem_handle& handle, const void* address);

/** Undoes take_pointer(), into the same slot unless another record has come there meanwhile. */
void put_back(qk_mem_handle& handle, const Taken& taken, Totals totals);

/** Removes the record of a slot that a walk over a table has reached, in constant time. */
void remove_visited(qk_mem_handle& handle, qk_mem_ptr_array& array, std::int32_t index);

/** Adds bytes to the totals of a handle; unsigned, so that a negated number subtracts. Locks it. */
void add_bytes(qk_mem_handle& handle, Totals totals, unsigned char kind, std::uint64_t bytes);

}  // namespace qk::mem

extern "C" {

/**
 * Removes the record of array `index` itself, before its memory is released. The caller holds the
 * handle's lock.
 */
void qk_mem_free_ptrs(qk_mem_handle* handle, int index);

}  // extern "C"

#endif  // QKMEM_TABLE_POINTER_TABLE_H_
