#include "accounting/pieces.h"

#include <cerrno>
#include <cstdint>

#include "accounting/recording.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/failure.h"
#include "diag/log.h"
#include "support/system.h"
#include "support/system_memory.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

constexpr const char* kNewBlock = names_of(Routine::kNewBlock).logged;
constexpr char kBlockFree[] = "qk_mem_block_free";

/** Allocates a block that is not linked yet. A failure is reported. */
qk_mem_block* obtain_block(const qk_mem_handle& handle, std::size_t size,
                           const CallContext& context) {
  qk_mem_block* block = allocate_block(handle, size);
  if (block == nullptr) {
    report_failure(context, "malloc of %zu at %s:%d for block failed",
                   bytes_of_block(capacity_for(handle, size)), context.file(), context.line);
  }
  return block;
}

/** Records and announces a block of `bytes`, header included, where the handle records blocks. */
void record_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t bytes,
                  const CallContext& context) {
  if (handle.track_blocks == 0) return;
  const auto record = record_pointer(handle, &block, kind::kBlock, {1, bytes}, context);
  if (!record) return;
  announce_recorded(lines::kRegistered, context, handle.id, *record, gain_of(*record),
                    RowLine::kOfCaller);
  dump_control_blocks(*context.switches);
}

/** A piece from a new block. `prepare` runs under the lock just before the block is linked. */
template <class Prepare>
void* allocate_from_new_block(qk_mem_handle& handle, std::size_t size, const CallContext& context,
                              Prepare prepare) {
  qk_mem_block* block = obtain_block(handle, size, context);
  if (block == nullptr) return nullptr;
  const std::size_t bytes = bytes_of_block(block->capacity);
  HandleLock lock(handle);
  prepare();
  void* piece = take_from_new_block(handle, *block, size);
  lock.release();
  record_block(handle, *block, bytes, context);
  return piece;
}

/** replace_piece() for memory that lies in no block. External memory is freed once that is safe. */
void* replace_foreign(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record, std::size_t size,
                      int alignment, const CallContext& context) {
  const bool external = record.kind == kind::kExternal;
  if (!external) release_piece(handle, ptr, record, context);
  void* piece = allocate_piece(handle, size, alignment, context);
  if (external && piece != nullptr) release_piece(handle, ptr, record, context);
  return piece;
}

}  // namespace

bool refuse_alignment(int alignment) {
  if (alignment > 0) return false;
  Qk_mem_error.set(qk_error_no(EINVAL));
  return true;
}

void* allocate_piece(qk_mem_handle& handle, std::size_t size, int alignment,
                     const CallContext& context) {
  if (refuse_alignment(alignment)) return nullptr;
  HandleLock lock(handle);
  if (void* piece = take_piece(handle, size, alignment)) return piece;
  lock.release();
  return allocate_from_new_block(handle, size, context.as(kNewBlock), [] {});
}

void report_unknown_piece(const qk_mem_handle& handle, const void* ptr,
                          const CallContext& context) {
  if (logs_errors(context)) warn_not_found(context.as(kBlockFree), handle.id, as_number(ptr));
}

void release_piece(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record,
                   const CallContext& context) {
  if (record.kind == kind::kExternal) {
    user_memory::release(ptr);
    return;
  }
  if (handle.blockfree == 0 || reclaim_piece(handle, ptr, bytes_of(record))) return;
  if (!logs_errors(context)) return;
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] ptr not found in any block at %s:%d\n", kBlockFree,
                   handle.id, Qk_mem_ptr_display_size, as_number(ptr), context.file(),
                   context.line);
}

void* replace_piece(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record, std::size_t size,
                    int alignment, const CallContext& context) {
  const std::uint64_t amount = bytes_of(record);
  HandleLock lock(handle);
  qk_mem_block* block = record.kind == kind::kExternal ? nullptr : block_of(handle, ptr);
  if (block == nullptr) {
    lock.release();
    return replace_foreign(handle, ptr, record, size, alignment, context);
  }
  const qk_mem_block before = *block;
  reclaim(handle, *block, ptr, amount);
  if (void* piece = take_piece(handle, size, alignment)) return piece;
  // The piece stays taken until there is a new block: without one the caller keeps it.
  block->low_mark = before.low_mark;
  block->high_mark = before.high_mark;
  lock.release();
  return allocate_from_new_block(handle, size, context.as(kNewBlock),
                                 [&] { reclaim(handle, *block, ptr, amount); });
}

}  // namespace qk::mem

extern "C" qk_mem_block* qk_mem_new_block(qk_mem_handle* handle, std::size_t size, const char* file,
                                          int line, qk_mem_debug* entry) {
  using namespace qk::mem;
  const CallContext context(kNewBlock, file, line, *entry);
  qk_mem_block* block = obtain_block(*handle, size, context);
  if (block == nullptr) return nullptr;
  const std::size_t bytes = bytes_of_block(block->capacity);
  link_empty_block(*handle, *block, size);
  record_block(*handle, *block, bytes, context);
  return block;
}
