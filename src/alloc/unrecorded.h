#ifndef QKMEM_ALLOC_UNRECORDED_H_
#define QKMEM_ALLOC_UNRECORDED_H_

#include <cstddef>
#include <optional>

#include "check/new_block.h"
#include "core/records.h"
#include "diag/call_context.h"
#include "profile/notes.h"

/**
 * Memory without a record: on handles that keep none, and all of the data handle while its calls go
 * to the system's allocator directly. Only the profile is told of it, if it watches the handle.
 */
namespace qk::mem {

/** Notes memory of a handle that keeps no records. Returns what the program gets. */
[[nodiscard]] void* note_unrecorded(qk_mem_handle& handle, check::NewBlock block,
                                    std::uint64_t bytes, const CallContext& context);

/** The same for memory of the data handle, which can be null. That sets the error code. */
[[nodiscard]] void* note_direct(qk_mem_handle& handle, const check::NewBlock& block,
                                std::uint64_t bytes, const CallContext& context);

/** Releases memory of such a handle, which can be null. */
void release_unrecorded(qk_mem_handle& handle, void* memory, const CallContext& context);

/** A realloc of memory without a record. Other threads can get the old address once it is free. */
class UnrecordedRealloc {
 public:
  /** `handle` is null if no handle is to be told. */
  UnrecordedRealloc(qk_mem_handle* handle, const void* old, const CallContext& context);

  /** Resizes `old`, and notes what has become of it. */
  [[nodiscard]] void* resize(void* old, std::size_t size, const CallContext& context);

 private:
  [[nodiscard]] check::NewBlock resize_known(void* old, std::size_t size);

  qk_mem_handle* handle_;
  history::Release by_;
  std::optional<profile::Unrecorded> old_;
};

/** The data handle, if the profile watches it. */
[[nodiscard]] qk_mem_handle* watched_data_handle();

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_UNRECORDED_H_
