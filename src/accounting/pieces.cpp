#include "accounting/pieces.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "accounting/recording.h"
#include "check/quarantine.h"
#include "check/release.h"
#include "check/unused.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/failure.h"
#include "diag/log.h"
#include "profile/filling.h"
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
  if (block == nullptr && check::empty_quarantine()) block = allocate_block(handle, size);
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

/** How much of a block a piece takes. */
std::uint64_t extent_of(const Removed& piece) {
  return bytes_of(piece.record) + check::layout_of(piece.mark).behind;
}

/**
 * A piece that was taken with the room that it needs, which can be null. Under the same lock: once
 * another thread has cleared the handle the memory can be part of its piece.
 */
check::NewBlock piece_in(const qk_mem_handle& handle, void* piece, std::size_t size,
                         const check::Layout& layout) {
  assert_held(handle);
  if (piece == nullptr) return {};
  profile::filled(handle, piece, size);
  check::lay_guards(piece, size, layout);
  return {piece, layout, profile::era_of(handle)};
}

/** Takes a piece of the blocks there are, and looks whether it was written to while it was free. */
void* take_looked_at(qk_mem_handle& handle, std::size_t extent, int alignment,
                     check::DamageList& damages) {
  void* const piece = take_piece(handle, extent, alignment);
  if (piece != nullptr) check::look_before_use(handle, piece, extent, damages);
  return piece;
}

/** Looks at the guard of a piece that is released, and fills it. */
void leave_piece(const qk_mem_handle& handle, void* ptr, const Removed& removed) {
  if (!check::checks(handle)) return;
  check::look_before_release(check::facts_of(handle, removed.record, removed.mark));
  if (qk::load(check::settings.fills_released) != 0) {
    std::memset(ptr, check::kReleasedFilling, extent_of(removed));
  }
}

/**
 * A piece from a new block, with the room around it. `prepare` runs under the lock just before the
 * block is linked.
 */
template <class Prepare>
check::NewBlock allocate_from_new_block(qk_mem_handle& handle, std::size_t size,
                                        const check::Layout& layout, const CallContext& context,
                                        Prepare prepare) {
  const std::size_t extent = sum(size, layout.behind);
  qk_mem_block* block = obtain_block(handle, extent, context);
  if (block == nullptr) return {};
  const std::size_t bytes = bytes_of_block(block->capacity);
  HandleLock lock(handle);
  prepare();
  const check::NewBlock piece =
      piece_in(handle, take_from_new_block(handle, *block, extent), size, layout);
  lock.release();
  record_block(handle, *block, bytes, context);
  return piece;
}

/** replace_piece() for memory that lies in no block. External memory is freed once that is safe. */
check::NewBlock replace_foreign(qk_mem_handle& handle, void* ptr, const Removed& old,
                                std::size_t size, int alignment, const CallContext& context) {
  const bool external = old.record.kind == kind::kExternal;
  if (!external) release_piece(handle, ptr, old, context);
  const check::NewBlock piece = allocate_piece(handle, size, alignment, context);
  if (external && piece.address != nullptr) release_piece(handle, ptr, old, context);
  return piece;
}

/** The same while checks are on: the old piece keeps its contents until there is another one. */
check::NewBlock replace_checked(qk_mem_handle& handle, void* ptr, const Removed& old,
                                std::size_t size, int alignment, const CallContext& context) {
  const check::NewBlock piece = allocate_piece(handle, size, alignment, context);
  if (piece.address != nullptr) release_piece(handle, ptr, old, context);
  return piece;
}

}  // namespace

bool refuse_alignment(int alignment) {
  if (alignment > 0) return false;
  Qk_mem_error.set(qk_error_no(EINVAL));
  return true;
}

check::NewBlock allocate_piece(qk_mem_handle& handle, std::size_t size, int alignment,
                               const CallContext& context) {
  if (refuse_alignment(alignment)) return {};
  const check::Layout layout = check::layout_of_new_piece(handle);
  check::DamageList damages;
  HandleLock lock(handle);
  const check::NewBlock piece = piece_in(
      handle, take_looked_at(handle, sum(size, layout.behind), alignment, damages), size, layout);
  lock.release();
  check::tell_all(damages);
  if (piece.address != nullptr) return piece;
  return allocate_from_new_block(handle, size, layout, context.as(kNewBlock), [] {});
}

void report_unknown_piece(const qk_mem_handle& handle, const void* ptr,
                          const CallContext& context) {
  if (logs_errors(context)) warn_not_found(context.as(kBlockFree), handle.id, as_number(ptr));
}

void release_piece(qk_mem_handle& handle, void* ptr, const Removed& removed,
                   const CallContext& context) {
  if (removed.record.kind == kind::kExternal) {
    user_memory::release(ptr);
    return;
  }
  if (handle.blockfree == 0) return;
  leave_piece(handle, ptr, removed);
  if (reclaim_piece(handle, ptr, extent_of(removed))) return;
  if (!logs_errors(context)) return;
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] ptr not found in any block at %s:%d\n", kBlockFree,
                   handle.id, Qk_mem_ptr_display_size, as_number(ptr), context.file(),
                   context.line);
}

check::NewBlock replace_piece(qk_mem_handle& handle, void* ptr, const Removed& old,
                              std::size_t size, int alignment, const CallContext& context) {
  if (check::checks(handle)) return replace_checked(handle, ptr, old, size, alignment, context);
  const std::uint64_t amount = extent_of(old);
  HandleLock lock(handle);
  qk_mem_block* block = old.record.kind == kind::kExternal ? nullptr : block_of(handle, ptr);
  if (block == nullptr) {
    lock.release();
    return replace_foreign(handle, ptr, old, size, alignment, context);
  }
  const qk_mem_block before = *block;
  reclaim(handle, *block, ptr, amount);
  if (void* piece = take_piece(handle, size, alignment)) return piece_in(handle, piece, size, {});
  // The piece stays taken until there is a new block: without one the caller keeps it.
  block->low_mark = before.low_mark;
  block->high_mark = before.high_mark;
  lock.release();
  return allocate_from_new_block(handle, size, {}, context.as(kNewBlock),
                                 [&] { reclaim(handle, *block, ptr, amount); });
}

check::NewBlock shrink_piece(qk_mem_handle& handle, void* ptr, const Removed& old,
                             std::size_t size) {
  const check::Layout layout = check::layout_of(old.mark);
  if (layout.behind == 0 && !check::checks(handle)) return {ptr, layout};
  check::look_before_release(check::facts_of(handle, old.record, old.mark));
  check::lay_guards(ptr, size, layout);
  if (qk::load(check::settings.fills_released) != 0) {
    std::memset(static_cast<char*>(ptr) + size + layout.behind, check::kReleasedFilling,
                bytes_of(old.record) - size);
  }
  const HandleLock lock(handle);
  return {ptr, layout, profile::era_of(handle)};
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
