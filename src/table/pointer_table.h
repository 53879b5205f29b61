#ifndef QKMEM_TABLE_POINTER_TABLE_H_
#define QKMEM_TABLE_POINTER_TABLE_H_

#include <cstdint>
#include <optional>

#include "core/records.h"
#include "core/source_location.h"
#include "profile/marks.h"
#include "table/charges.h"
#include "table/pointer_array.h"

/**
 * A handle's pointer table: the index from an address to its record. Bits 4 to 6 of the address
 * choose one of eight arrays. Slot 0 of an array is the array's own record. Arrays only grow.
 *
 * Each call below inserts, removes or finds a record with all its fields and sums in one step under
 * the handle's lock. The results are copies: without the lock, a slot can move or be reused.
 */
namespace qk::mem {

/** What a record holds besides its address, kind and location. */
struct Contents {
  std::uint64_t count;
  std::uint64_t size;
  qk::MemTracker* tracker = nullptr;
};

/** Whether an insertion is a numbered event. */
enum class EventCount { kCounted, kNotCounted };

enum class InsertResult {
  kInserted,
  kUnmarked,   // nothing has changed; there is no memory for a mark, which the block needs
  kArrayFull,  // nothing has changed; grow_array() makes room
  kArrayLost   // the array could not grow earlier, and has no slots any more
};

struct Insertion {
  InsertResult result;
  qk_mem_ptr record = {};  // as it was inserted
};

/**
 * Inserts a record and adds it to the sums that its kind is charged to. `record.seq` is replaced
 * where the event is counted. `origin` is for its mark in the profile.
 */
[[nodiscard]] Insertion insert_pointer(qk_mem_handle& handle, qk_mem_ptr record, EventCount event,
                                       const profile::Origin& origin);

/** What became of an array that was full. */
struct ArrayGrowth {
  bool failed = false;           // with errno; see enlarge() for what is lost
  std::uint64_t bytes = 0;       // of all slots, as they are or as they were asked for
  std::uint64_t added = 0;       // bytes of the new slots; 0 if the array had room after all
  qk_mem_ptr array_record = {};  // the array's own record as it is now
};

/**
 * Adds slots to the array of an address, if it is still full, and records its new size. Takes the
 * registry's lock before the handle's: reports read arrays under it, and growth replaces them.
 */
[[nodiscard]] ArrayGrowth grow_array(qk_mem_handle& handle, const void* address,
                                     SourceLocation location);

/** A record that was removed or set aside. */
struct Removed {
  qk_mem_ptr record;
  std::int32_t index;    // the slot where it was, or is set aside
  ChargedTo charged_to;  // the sum that lost its bytes
  profile::Mark mark;    // that it had in the profile
};

/**
 * Removes the record of an address and subtracts its bytes. The event isn't counted. `by` is who
 * releases the memory, with the file as it was passed, if that is to be remembered.
 *
 * @return nothing if there is no record.
 */
std::optional<Removed> remove_pointer(qk_mem_handle& handle, const void* address, Removal removal,
                                      SourceLocation by = {});

/**
 * Removes the record of an address for a realloc, but keeps its place in the array. The caller ends
 * that by restore_pointer(), which can't fail, or by free_place_of().
 *
 * @return nothing if there is no record.
 */
std::optional<Removed> set_aside_pointer(qk_mem_handle& handle, const void* address,
                                         SourceLocation by);

/** A record of data that is set aside, by the address that it had and its slot. */
[[nodiscard]] Removed set_aside_in(qk_mem_handle& handle, void* address, std::int32_t index);

/** Undoes set_aside_pointer(). */
void restore_pointer(qk_mem_handle& handle, const Removed& set_aside);

/** Gives up the place of a record that was set aside. */
void free_place_of(qk_mem_handle& handle, const Removed& set_aside);

/**
 * Finds the record of an address. Of several it returns the one used last if it matches, otherwise
 * the one in the lowest slot.
 */
[[nodiscard]] std::optional<qk_mem_ptr> find_pointer(qk_mem_handle& handle, const void* address);

/** Removes the record of a slot that a walk over a table has reached, in constant time. */
void remove_visited(qk_mem_handle& handle, qk_mem_ptr_array& array, std::int32_t index);

/** Adds bytes to a sum, under the handle's lock. Sums wrap, so a negated number subtracts. */
void add_bytes(qk_mem_handle& handle, ChargedTo sum, std::uint64_t bytes);

}  // namespace qk::mem

extern "C" {

/** Removes array `index`'s own record, before the memory is released. Needs the handle's lock. */
void qk_mem_free_ptrs(qk_mem_handle* handle, int index);

}  // extern "C"

#endif  // QKMEM_TABLE_POINTER_TABLE_H_
