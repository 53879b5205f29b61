#include "alloc/unrecorded.h"

#include <cerrno>

#include "accounting/recording.h"
#include "check/release.h"
#include "check/report/wrong_release.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/failure.h"
#include "profile/filling.h"
#include "profile/report/misuse.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

/** Who releases memory, which is remembered only while the checks are on. */
history::Release release_by(const CallContext& context, history::Ending ending) {
  return {check::is_on() ? context.path : nullptr, context.line, ending};
}

void release_unknown(qk_mem_handle& handle, void* memory, const CallContext& context) {
  if (!check::refuses_release(handle, memory, Routine::kFree, context)) {
    user_memory::release(memory);
  }
}

}  // namespace

qk_mem_handle* watched_data_handle() {
  qk_mem_handle* const handle = find_handle_fast(QK_MEM_DATA_HANDLE);
  return handle != nullptr && profile::is_watched(*handle) ? handle : nullptr;
}

void* note_unrecorded(qk_mem_handle& handle, check::NewBlock block, std::uint64_t bytes,
                      const CallContext& context) {
  if (!profile::is_watched(handle)) return block.address;
  const profile::Origin origin = {site_for(handle, bytes, context), block.layout.flags, block.era};
  const HandleLock lock(handle);
  if (is_blockmgmt(handle)) {
    profile::note_piece(handle, block.address, bytes, origin);
  } else if (!profile::note_unrecorded(handle, block.address, bytes, origin) &&
             block.layout.front != 0) {
    block.give_up_front(bytes);
  }
  return block.address;
}

void* note_direct(qk_mem_handle& handle, const check::NewBlock& block, std::uint64_t bytes,
                  const CallContext& context) {
  if (block.address != nullptr) return note_unrecorded(handle, block, bytes, context);
  set_error_from_errno();
  return nullptr;
}

void release_unrecorded(qk_mem_handle& handle, void* memory, const CallContext& context) {
  if (!profile::is_watched(handle)) return user_memory::release(memory);
  if (memory == nullptr) return profile::count_null_free(handle);
  const history::Release by = release_by(context, history::Ending::kFreed);
  std::optional<profile::Unrecorded> known;
  {
    const HandleLock lock(handle);
    known = profile::note_unrecorded_gone(handle, memory, by);
  }
  if (known) {
    check::release(profile::pool_of(handle), *known, by);
  } else {
    release_unknown(handle, memory, context);
  }
}

UnrecordedRealloc::UnrecordedRealloc(qk_mem_handle* handle, const void* old,
                                     const CallContext& context)
    : handle_(handle), by_(release_by(context, history::Ending::kResized)) {
  if (handle_ == nullptr || !profile::is_watched(*handle_)) {
    handle_ = nullptr;
  } else if (old != nullptr) {
    const HandleLock lock(*handle_);
    old_ = profile::note_unrecorded_set_aside(*handle_, old, by_);
  }
}

check::NewBlock UnrecordedRealloc::resize_known(void* old, std::size_t size) {
  if (old == nullptr) return check::resize(*handle_, nullptr, 0, {}, size);
  profile::Pool& pool = profile::pool_of(*handle_);
  const check::BlockFacts facts = check::facts_of(pool, *old_);
  if (size == 0) {
    check::release(pool, *old_, by_);
    errno = 0;
    return {};
  }
  check::look_before_release(facts);
  if (const check::NewBlock moved = check::copy_elsewhere(*handle_, facts, size);
      moved.address != nullptr) {
    check::release(pool, *old_, by_);
    return moved;
  }
  return check::resize(*handle_, old, old_->bytes, old_->mark, size);
}

void* UnrecordedRealloc::resize(void* old, std::size_t size, const CallContext& context) {
  if (handle_ == nullptr) return user_memory::resize(old, size);
  if (old != nullptr && !old_) {
    if (check::refuses_release(*handle_, old, Routine::kRealloc, context)) {
      errno = EINVAL;
      return nullptr;
    }
    void* const memory = user_memory::resize(old, size);
    return memory == nullptr ? nullptr : note_unrecorded(*handle_, {memory, {}}, size, context);
  }
  const check::NewBlock block = resize_known(old, size);
  if (block.address != nullptr) return note_unrecorded(*handle_, block, size, context);
  if (old_ && size != 0) {
    const HandleLock lock(*handle_);
    profile::note_unrecorded_back(*handle_, *old_);
  }
  return nullptr;
}

}  // namespace qk::mem
