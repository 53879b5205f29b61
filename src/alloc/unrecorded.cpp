#include "alloc/unrecorded.h"

#include "accounting/recording.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "profile/filling.h"
#include "profile/report/misuse.h"
#include "support/system_memory.h"

namespace qk::mem {

qk_mem_handle* watched_data_handle() {
  qk_mem_handle* const handle = find_handle_fast(QK_MEM_DATA_HANDLE);
  return handle != nullptr && profile::is_watched(*handle) ? handle : nullptr;
}

void note_unrecorded(qk_mem_handle& handle, const void* memory, std::uint64_t bytes,
                     const CallContext& context) {
  if (!profile::is_watched(handle)) return;
  profile::Site* const site = site_for(handle, bytes, context);
  const HandleLock lock(handle);
  if (is_blockmgmt(handle)) {
    profile::note_piece(handle, bytes, site);
  } else {
    profile::note_unrecorded(handle, memory, bytes, site);
  }
}

void note_unrecorded_gone(qk_mem_handle& handle, const void* memory) {
  if (!profile::is_watched(handle) || is_blockmgmt(handle)) return;
  const HandleLock lock(handle);
  profile::note_unrecorded_gone(handle, memory);
}

void* note_direct(void* memory, std::uint64_t bytes, const CallContext& context) {
  qk_mem_handle* const handle = memory == nullptr ? nullptr : watched_data_handle();
  if (handle != nullptr) note_unrecorded(*handle, memory, bytes, context);
  return memory;
}

void* note_direct_gone(void* memory) {
  qk_mem_handle* const handle = watched_data_handle();
  if (handle == nullptr) return memory;
  if (memory != nullptr) {
    note_unrecorded_gone(*handle, memory);
  } else {
    profile::count_null_free(*handle);
  }
  return memory;
}

UnrecordedRealloc::UnrecordedRealloc(qk_mem_handle* handle, const void* old) : handle_(handle) {
  if (handle_ == nullptr || !profile::is_watched(*handle_)) {
    handle_ = nullptr;
  } else if (old != nullptr) {
    const HandleLock lock(*handle_);
    old_ = profile::note_unrecorded_set_aside(*handle_, old);
  }
}

void* UnrecordedRealloc::resize(void* old, std::size_t size, const CallContext& context) {
  void* const memory = user_memory::resize(old, size);
  if (handle_ == nullptr) return memory;
  if (memory != nullptr) {
    if (old == nullptr || old_) profile::fill_new(memory, old_ ? old_->bytes : 0, size);
    note_unrecorded(*handle_, memory, size, context);
  } else if (old_ && size != 0) {
    const HandleLock lock(*handle_);
    profile::note_unrecorded_back(*handle_, *old_);
  }
  return memory;
}

}  // namespace qk::mem
