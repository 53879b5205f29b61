#include "table/blocks.h"

#include <cerrno>
#include <cstdint>

#include "core/kinds.h"
#include "core/registry.h"
#include "core/system_memory.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/log.h"
#include "diag/system_failure.h"
#include "table/first_fit.h"
#include "table/pointer_table.h"

namespace qk::mem {
namespace {

constexpr char kNewBlock[] = "qk_mem_new_block";
constexpr char kBlockFree[] = "qk_mem_block_free";

/** Bytes of a block and its header. */
std::size_t total_size(std::size_t capacity) { return sum(capacity, Qk_mem_blocksize); }

/** An empty block that belongs to nobody yet, for a request of `size`; a failure is reported. */
qk_mem_block* make_block(const qk_mem_handle& handle, std::size_t size, const Site& site) {
  const std::size_t capacity = size < handle.blocksize ? handle.blocksize : size;
  const std::size_t total = total_size(capacity);
  auto* block = static_cast<qk_mem_block*>(own_memory::allocate(total));
  if (block != nullptr) {
    *block = {nullptr, capacity, 0, 0};
    return block;
  }
  SystemFailure failure;
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: malloc of %zu at %s:%d for block failed: %d %s\n", site.routine,
                     total, site.file(), site.line, failure.number(), failure.text());
  }
  return nullptr;
}

/**
 * The head or the last of the blocks behind it that are not full, if the list goes on there: a big
 * block, which will be full at once, goes behind it, so that blocks with room stay in front.
 */
qk_mem_block* place_of_big_block(const qk_mem_handle& handle) {
  qk_mem_block* block = handle.blocks;
  if (block == nullptr) return nullptr;
  auto has_room = [](const qk_mem_block& next) { return next.high_mark < next.capacity; };
  while (block->next != nullptr && has_room(*block->next)) block = block->next;
  return block->next == nullptr ? nullptr : block;
}

/** Needs the handle's lock. */
void link_block(qk_mem_handle& handle, qk_mem_block& block, bool big) {
  assert_held(handle);
  qk_mem_block* before = big ? place_of_big_block(handle) : nullptr;
  qk_mem_block*& link = before == nullptr ? handle.blocks : before->next;
  block.next = link;
  link = &block;
  qk::add(handle.num_blocks, 1);
  add_bytes(handle, Totals::kData, kind::kBlock, total_size(block.capacity));
}

bool is_big(const qk_mem_handle& handle, std::size_t size) { return handle.blocksize <= size; }

void record_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t total, const Site& site) {
  if (handle.track_blocks == 0) return;
  const auto record = record_pointer(handle, &block, kind::kBlock, {1, total}, site, Totals::kNone);
  if (!record) return;
  announce_made(lines::kRegistered, site, handle.id, *record, gain_of(*record), Located::kByCaller);
  dump_control_blocks(*site.switches);
}

/** The block whose data area a pointer lies in, or null. Needs the handle's lock. */
qk_mem_block* block_of(qk_mem_handle& handle, const void* ptr) {
  assert_held(handle);
  const auto address = reinterpret_cast<std::uintptr_t>(ptr);
  for (qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    const auto data = reinterpret_cast<std::uintptr_t>(data_of(*block));
    if (address >= data && address - data < block->capacity) return block;
  }
  return nullptr;
}

/**
 * Moves a mark when the piece lies at an end of what is live; an empty block starts anew. A piece
 * larger than all that is live isn't one of this block's any more.
 */
void reclaim(qk_mem_handle& handle, qk_mem_block& block, const void* ptr, std::uint64_t amount) {
  assert_held(handle);
  const auto offset = static_cast<std::uint64_t>(static_cast<const char*>(ptr) - data_of(block));
  if (amount > block.high_mark - block.low_mark) return;
  if (offset == block.low_mark) {
    block.low_mark += amount;
  } else if (offset == block.high_mark - amount) {
    block.high_mark -= amount;
  }
  if (block.low_mark == block.high_mark) {
    block.low_mark = 0;
    block.high_mark = 0;
  }
  gained_room(handle, block);
}

/** Links a new block in and takes a piece from its start. Needs the lock. */
void* take_from_new_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t size) {
  assert_held(handle);
  const qk_mem_block* head = handle.blocks;
  link_block(handle, block, is_big(handle, size));
  block.high_mark = size;
  block_was_added(handle, head);
  handle.block_used += size;
  return data_of(block);
}

/**
 * The same with a block that is obtained first, without the lock, and recorded last. `prepare` runs
 * between, under the lock.
 */
template <class Prepare>
void* allocate_from_new_block(qk_mem_handle& handle, std::size_t size, const Site& site,
                              Prepare prepare) {
  qk_mem_block* block = make_block(handle, size, site);
  if (block == nullptr) return nullptr;
  const std::size_t total = total_size(block->capacity);
  HandleLock lock(handle);
  prepare();
  void* piece = take_from_new_block(handle, *block, size);
  lock.release();
  record_block(handle, *block, total, site);
  return piece;
}

/** False when the piece lies in no block. */
bool reclaim_piece(qk_mem_handle& handle, const void* ptr, std::uint64_t amount) {
  const HandleLock lock(handle);
  qk_mem_block* block = block_of(handle, ptr);
  if (block == nullptr) return false;
  reclaim(handle, *block, ptr, amount);
  return true;
}

/** The same as replace_piece() for what lies in no block. External memory goes last, if at all. */
void* replace_foreign(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record, std::size_t size,
                      int alignment, const Site& site) {
  const bool external = record.kind == kind::kExternal;
  if (!external) release_piece(handle, ptr, record, site);
  void* piece = allocate_piece(handle, size, alignment, site);
  if (external && piece != nullptr) release_piece(handle, ptr, record, site);
  return piece;
}

}  // namespace

bool refuses(int alignment) {
  if (alignment > 0) return false;
  Qk_mem_error.set(qk_error_no(EINVAL));
  return true;
}

void* take_piece(qk_mem_handle& handle, std::size_t size, int alignment) {
  assert_held(handle);
  const Piece piece = take_first_fit(handle, size, static_cast<std::uint64_t>(alignment));
  if (piece.block == nullptr) return nullptr;
  handle.block_used += size + piece.padding;
  return data_of(*piece.block) + piece.offset;
}

void* allocate_piece(qk_mem_handle& handle, std::size_t size, int alignment, const Site& site) {
  if (refuses(alignment)) return nullptr;
  HandleLock lock(handle);
  if (void* piece = take_piece(handle, size, alignment)) return piece;
  lock.release();
  return allocate_from_new_block(handle, size, site.as(kNewBlock), [] {});
}

void report_unknown_piece(const qk_mem_handle& handle, const void* ptr, const Site& site) {
  if (reports(site)) warn_not_found(site.as(kBlockFree), handle.id, shown(ptr));
}

void release_piece(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record, const Site& site) {
  if (record.kind == kind::kExternal) {
    user_memory::release(ptr);
    return;
  }
  if (handle.blockfree == 0 || reclaim_piece(handle, ptr, bytes_of(record)) || !reports(site)) {
    return;
  }
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] ptr not found in any block at %s:%d\n", kBlockFree,
                   handle.id, Qk_mem_ptr_display_size, shown(ptr), site.file(), site.line);
}

void* replace_piece(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record, std::size_t size,
                    int alignment, const Site& site) {
  const std::uint64_t amount = bytes_of(record);
  HandleLock lock(handle);
  qk_mem_block* block = record.kind == kind::kExternal ? nullptr : block_of(handle, ptr);
  if (block == nullptr) {
    lock.release();
    return replace_foreign(handle, ptr, record, size, alignment, site);
  }
  const qk_mem_block before = *block;
  reclaim(handle, *block, ptr, amount);
  if (void* piece = take_piece(handle, size, alignment)) return piece;
  // A new block may not be had, and the caller would be left with memory that others are given.
  block->low_mark = before.low_mark;
  block->high_mark = before.high_mark;
  lock.release();
  return allocate_from_new_block(handle, size, site.as(kNewBlock),
                                 [&] { reclaim(handle, *block, ptr, amount); });
}

void reset_blocks(qk_mem_handle& handle) {
  const HandleLock lock(handle);
  for (qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    block->low_mark = 0;
    block->high_mark = 0;
  }
  forget_room(handle);
}

}  // namespace qk::mem

extern "C" qk_mem_block* qk_mem_new_block(qk_mem_handle* handle, std::size_t size, const char* file,
                                          int line, qk_mem_debug* entry) {
  using namespace qk::mem;
  const Site site(kNewBlock, file, line, *entry);
  qk_mem_block* block = make_block(*handle, size, site);
  if (block == nullptr) return nullptr;
  const std::size_t total = total_size(block->capacity);
  {
    const HandleLock lock(*handle);
    link_block(*handle, *block, is_big(*handle, size));
    forget_room(*handle);
  }
  record_block(*handle, *block, total, site);
  return block;
}
