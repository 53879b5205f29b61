#ifndef QKMEM_CORE_RECORDS_H_
#define QKMEM_CORE_RECORDS_H_

#include <cstddef>
#include <cstdint>

#include "qkmem/qkmem.h"
#include "support/mtx.h"

/**
 * The record of a live pointer: one slot of a pointer array. A slot whose `address` is null is
 * free; see table/slot.h for records that are set aside. Reports read slots without the lock under
 * which they are written, so the slots of a table are accessed through table/slot.h only.
 */
struct qk_mem_ptr {
  void* address;
  qk::MemTracker* tracker;  // of objects and arrays; null for every other kind
  const char* file;         // last component of the caller's file name, never copied
  std::uint64_t count;      // elements; slot 0: the array's capacity
  std::uint64_t size;       // bytes of one element
  std::uint32_t seq;        // Qk_mem_seq right after the increment for this record
  std::uint16_t line;       // deliberately narrow: the low 16 bits of the caller's line
  unsigned char kind;       // see formats/trace_letters.h
  std::uint8_t baselined;   // marks; not 0 if the record was live when a baseline was set
};

namespace qk::mem {
class SlotIndex;
}

/** Descriptor of one of a handle's eight pointer arrays, see table/pointer_array.h. */
struct qk_mem_ptr_array {
  std::int32_t capacity;     // slots; 0 until the first pointer arrives
  std::int32_t used;         // occupied slots, slot 0 included
  qk_mem_ptr* ptrs;          // null after a growth that failed, although `capacity` is above 0 then
  std::int32_t last;         // slot most recently found or filled
  std::uint32_t free_slots;  // of a small array: bit n for a free slot n; 0 for other arrays
  union {
    std::uint64_t prints[2];  // of a small array: prints of the addresses, see table/prints.h
    struct {
      qk::mem::SlotIndex* index;  // null until a search, and if there was no memory
      std::int32_t spare;         // without an index: a free slot below `free_from`; 0 for none
      std::int32_t free_from;     // and no slot below this one is free except `spare`
    } larger;                     // of an array that is not small
  };
};

struct qk_mem_handle;

namespace qk::mem {
class BlockIndex;
namespace profile {
struct Pool;
}
}  // namespace qk::mem

/** An accounting tag: the sums of all handles that carry it. */
struct qk_mem_tag {
  char name[8];  // one or two characters, upper case; empty for the global tag
  std::uint64_t amount;
  std::uint32_t qty;
  std::uint64_t base_amount;
  std::uint32_t base_qty;
  qk_mem_tag* next;  // in the same hash bucket
};

/** What a handle adds to the sums of its tag, see core/tag_shares.h. */
struct qk_mem_tag_share {
  std::uint64_t amount;
  std::uint32_t qty;
};

/** Header of a block; the data area begins Qk_mem_blocksize bytes behind its start. */
struct qk_mem_block {
  qk_mem_block* next;
  std::uint64_t capacity;   // bytes of the data area
  std::uint64_t low_mark;   // the data area is free below this offset
  std::uint64_t high_mark;  // and from this one on
};

/** The most room that any block of a run has, for pieces of any alignment, of 8 and of 16. */
struct qk_mem_room {
  std::uint64_t any;
  std::uint64_t by8;
  std::uint64_t by16;
};

/**
 * What is known about the room in a handle's blocks, see table/first_fit.h. All zero means that
 * nothing is known. An allocation skips blocks by it, but finds the same block as without it.
 */
struct qk_mem_skips {
  struct Run {
    qk_mem_block* first;  // the run ends before the first block of the next one
    qk_mem_room room;
    std::uint64_t length;  // in blocks, roughly: it only estimates the cost of a walk
  };
  static constexpr int kMaxRuns = 12;
  static constexpr int kCursors = 20;

  const qk_mem_block* head;  // of the list that this describes
  qk_mem_block* unexplored;  // first block after the last run; null at the end of the list
  qk_mem_room most_room;     // in any run
  std::int32_t count;
  std::int32_t same_cursors;  // as many, from the first on, are known to be the same
  Run runs[kMaxRuns];
  qk_mem_block* cursors[kCursors];  // by sizes; null is unknown
};

/** A live handle. Zero-filled at creation; owned by the registry. */
struct qk_mem_handle {
  std::int32_t id;
  std::uint32_t generation;  // tells handles with the same number apart; never 0
  std::uint64_t block_used;  // bytes ever handed out from blocks, padding included
  std::uint32_t seq;
  std::uint8_t roads[4];  // of malloc, calloc, realloc and free, see core/roads.h
  std::uint64_t amount;   // bytes of live data records, or of the blocks
  std::uint32_t qty;
  std::uint64_t base_amount;
  std::uint32_t base_qty;
  std::uint64_t overhead_amount;  // bytes of pointer arrays, handle memory, trackers
  std::uint32_t overhead_qty;
  std::uint64_t base_overhead_amount;
  std::uint32_t base_overhead_qty;
  qk_mem_tag* tag;  // never null
  char type;        // 'D' for data, 'O' for overhead
  char autofree;    // 'a' or zero
  std::uint8_t has_growth;
  std::uint8_t track;         // pointers are recorded
  std::uint8_t track_blocks;  // blocks are recorded
  char blockmgmt;             // 'B' or zero
  std::uint64_t blocksize;
  std::uint8_t blockfree;
  std::uint32_t num_blocks;
  std::uint8_t baselined;
  std::uint8_t registered;         // something was registered on it at least once
  std::uint8_t is_walked;          // a walk takes notes, see accounting/walks.h
  std::uint8_t serves_containers;  // a container of the C++ front has asked for memory
  std::int32_t line;
  const char* file;
  qk_mem_block* blocks;
  qk::mem::profile::Pool* profile_pool;  // null if the profile does not watch the handle
  qk_mem_ptr_array ptrs[8];
  qk::Mtx* mtx;                      // null unless MULTITHREADED
  qk::mem::BlockIndex* block_index;  // null until a search in many blocks
  qk_mem_skips skips;
  qk_mem_tag_share tag_share;     // changes together with the handle's own sums
  qk_mem_tag_share folded_share;  // the part of it that the tag has; under the registry's lock
  qk_mem_handle* next_survivor;   // among the handles that outlive the registry
};

/** The debug switches of one routine. */
struct qk_mem_debug {
  std::int32_t on;
  std::int32_t ctrlblks;
  std::int32_t debug;
  std::int32_t exceptions;
  std::int32_t summary;
  std::int32_t trace;
  char routine[36];
};

namespace qk::mem {

/** The mark in qk_mem_ptr::baselined that a baseline sets. */
inline constexpr std::uint8_t kBaselined = 1;

/** Bytes of a slot in the accounting. */
inline constexpr std::uint64_t kSlotBytes = 48;
static_assert(sizeof(qk_mem_ptr) == kSlotBytes, "accounted and real size of a slot must agree");

inline constexpr int kArraysPerHandle = 8;

/** Bytes that a record stands for. Unsigned, as the sums are. */
[[nodiscard]] constexpr std::uint64_t bytes_of(const qk_mem_ptr& record) {
  return record.count * record.size;
}

/** The change of tracked bytes when a record is inserted. */
[[nodiscard]] constexpr long gain_of(const qk_mem_ptr& record) {
  return static_cast<long>(bytes_of(record));
}

/** The change of tracked bytes when a record is removed. */
[[nodiscard]] constexpr long loss_of(const qk_mem_ptr& record) {
  return static_cast<long>(-bytes_of(record));
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_RECORDS_H_
