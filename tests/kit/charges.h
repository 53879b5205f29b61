#ifndef TESTS_KIT_CHARGES_H_
#define TESTS_KIT_CHARGES_H_

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "core/records.h"
#include "core/registry.h"

/**
 * The accounting rules: which call changes which sum by how much. Stated here once, independently
 * of the library, for all tests that keep sums of their own.
 */
namespace kit {

/** What a handle records of the memory that it allocates. */
enum class HandleKind {
  kOrdinary,  // the memory
  kBlocks,    // BLOCKMGMT: blocks, but not their pieces
  kPieces,    // BLOCKMGMT BLOCKFREE: blocks and their pieces
};

/** The sums of a handle, or of a tag, which has no overhead. They wrap, as the library's do. */
struct Sums {
  std::uint64_t amount = 0;           // bytes of data
  std::uint32_t qty = 0;              // pointers to data
  std::uint64_t overhead_amount = 0;  // the same for overhead
  std::uint32_t overhead_qty = 0;

  constexpr Sums& operator+=(const Sums& other) {
    amount += other.amount;
    qty += other.qty;
    overhead_amount += other.overhead_amount;
    overhead_qty += other.overhead_qty;
    return *this;
  }
  constexpr Sums& operator-=(const Sums& other) {
    amount -= other.amount;
    qty -= other.qty;
    overhead_amount -= other.overhead_amount;
    overhead_qty -= other.overhead_qty;
    return *this;
  }
};

/** All that changes a sum. A realloc is kFree and then kAllocate. */
enum class Event {
  kAllocate,     // malloc, calloc, strdup, realloc of null
  kFree,         // free, or deregistration on an ordinary handle
  kCreateArray,  // a managed array; the bytes of its header and of its capacity
  kGrowArray,    // the bytes that are added
  kFreeArray,
  kLinkBlock,  // when the handle is created, or for a piece that fits into no other block
  kRecordBlock,
  kRegisterExternal,
  kRemoveExternal,  // deregistration, free, or realloc on an ordinary handle
  kRegisterObject,
  kRecordTracker,  // follows kRegisterObject
  kDeregisterObject,
  kRemoveTracker,  // follows kDeregisterObject

  kClearAllocated,
  kClearExternal,
  kClearObject,
  kClearTracker,

  kRecordHandle,  // the record of the handle itself; once more for its mutex
  kRecordPointerArray,

  kDeleteAllocated,
  kDeleteRegistered,  // external memory, objects
  kDeleteTracker,
  kDeleteBlock,
  kDeleteOwnMemory,  // of kRecordHandle
  kDeleteHandle,     // the bytes are the handle's amount
};

/** By how much an event changes the sums; amounts are for each byte. */
struct Charge {
  int amount = 0;
  int qty = 0;
  int overhead_amount = 0;
  int overhead_qty = 0;
};

/** What an event changes on a handle of each kind. */
struct ChargeRow {
  Event event;
  Charge ordinary;
  Charge blocks;
  Charge pieces;
};

/**
 * The table. `amount` and `qty` are those of the handle and of its tag, except in rows of a
 * deletion: these change the tag only, since the handle's own sums go with it.
 *
 * A piece has no bytes of its own: a block is charged as a whole, until its handle is deleted.
 *
 * Three oddities:
 *   - The record of a tracker is overhead, but its removal lowers `qty`. `overhead_qty` stays.
 *   - Clear subtracts a tracker's bytes from the data as well, which never contained them.
 *   - Deletion lowers the tag's `qty` for the handle's own records and for trackers as well, so a
 *     tag can end below zero.
 */
inline constexpr ChargeRow kCharges[] = {
    // clang-format off
    // event                      ordinary        BLOCKMGMT       BLOCKMGMT BLOCKFREE
    {Event::kAllocate,           {+1, +1},       {},             {0, +1}},
    {Event::kFree,               {-1, -1},       {},             {0, -1}},
    {Event::kCreateArray,        {+1, +1},       {},             {0, +1}},
    {Event::kGrowArray,          {+1, 0},        {},             {}},
    {Event::kFreeArray,          {-1, -1},       {},             {0, -1}},
    {Event::kLinkBlock,          {},             {+1, 0},        {+1, 0}},
    {Event::kRecordBlock,        {},             {0, +1},        {0, +1}},
    {Event::kRegisterExternal,   {+1, +1},       {+1, +1},       {+1, +1}},
    {Event::kRemoveExternal,     {-1, -1},       {-1, -1},       {-1, -1}},
    {Event::kRegisterObject,     {+1, +1},       {+1, +1},       {+1, +1}},
    {Event::kRecordTracker,      {0, 0, +1, +1}, {0, 0, +1, +1}, {0, 0, +1, +1}},
    {Event::kDeregisterObject,   {-1, -1},       {-1, -1},       {-1, -1}},
    {Event::kRemoveTracker,      {0, -1, -1, 0}, {0, -1, -1, 0}, {0, -1, -1, 0}},

    {Event::kClearAllocated,     {},             {},             {0, -1}},
    {Event::kClearExternal,      {},             {-1, -1},       {-1, -1}},
    {Event::kClearObject,        {},             {-1, -1},       {-1, -1}},
    {Event::kClearTracker,       {},             {-1, -1, -1},   {-1, -1, -1}},

    {Event::kRecordHandle,       {0, 0, +1, +1}, {},             {0, 0, +1, +1}},
    {Event::kRecordPointerArray, {0, 0, +1, +1}, {0, 0, +1, +1}, {0, 0, +1, +1}},

    {Event::kDeleteAllocated,    {0, -1},        {},             {0, -1}},
    {Event::kDeleteRegistered,   {0, -1},        {0, -1},        {0, -1}},
    {Event::kDeleteTracker,      {0, -1},        {0, -1},        {0, -1}},
    {Event::kDeleteBlock,        {},             {0, -1},        {0, -1}},
    {Event::kDeleteOwnMemory,    {0, -1},        {},             {0, -1}},
    {Event::kDeleteHandle,       {-1, 0},        {-1, 0},        {-1, 0}},
    // clang-format on
};

[[nodiscard]] constexpr const Charge& charge_of(Event event, HandleKind kind) {
  const ChargeRow& row = kCharges[static_cast<std::size_t>(event)];
  if (kind == HandleKind::kOrdinary) return row.ordinary;
  return kind == HandleKind::kBlocks ? row.blocks : row.pieces;
}

/** Changes the sums of a handle, or of its tag, by an event. */
constexpr void charge(Sums& sums, Event event, HandleKind kind, std::uint64_t bytes) {
  const Charge& by = charge_of(event, kind);
  sums.amount += static_cast<std::uint64_t>(by.amount) * bytes;
  sums.qty += static_cast<std::uint32_t>(by.qty);
  sums.overhead_amount += static_cast<std::uint64_t>(by.overhead_amount) * bytes;
  sums.overhead_qty += static_cast<std::uint32_t>(by.overhead_qty);
}

[[nodiscard]] constexpr bool has_a_row_for_each_event() {
  for (std::size_t i = 0; i < std::size(kCharges); ++i) {
    if (static_cast<std::size_t>(kCharges[i].event) != i) return false;
  }
  return std::size(kCharges) == static_cast<std::size_t>(Event::kDeleteHandle) + 1;
}
static_assert(has_a_row_for_each_event(), "rows are in the order of the events");

[[nodiscard]] inline std::uint64_t bytes_of(const qk_mem_block& block) {
  return block.capacity + Qk_mem_blocksize;
}

/**
 * What a handle is charged for itself, for its blocks and for its pointer arrays. How many of these
 * there are is read from the handle, since it depends on where the allocator puts memory.
 */
[[nodiscard]] inline Sums sums_of_structure(const qk_mem_handle& handle, HandleKind kind,
                                            bool records_blocks = true) {
  Sums sums;
  charge(sums, Event::kRecordHandle, kind, sizeof handle);
  if (handle.mtx != nullptr) charge(sums, Event::kRecordHandle, kind, sizeof *handle.mtx);
  for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    charge(sums, Event::kLinkBlock, kind, bytes_of(*block));
    if (records_blocks) charge(sums, Event::kRecordBlock, kind, bytes_of(*block));
  }
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::uint64_t bytes = static_cast<std::uint64_t>(array.capacity) * sizeof(qk_mem_ptr);
    if (bytes > 0) charge(sums, Event::kRecordPointerArray, kind, bytes);
  }
  return sums;
}

}  // namespace kit

#endif  // TESTS_KIT_CHARGES_H_
