#ifndef QKMEM_ALLOC_UNRECORDED_H_
#define QKMEM_ALLOC_UNRECORDED_H_

#include <cstddef>
#include <optional>

#include "core/records.h"
#include "diag/call_context.h"
#include "profile/notes.h"

/**
 * Memory without a record: on handles that keep none, and all of the data handle while its calls go
 * to the system's allocator directly. Only the profile is told of it, if it watches the handle.
 */
namespace qk::mem {

/** Notes memory of a handle that keeps no records. */
void note_unrecorded(qk_mem_handle& handle, const void* memory, std::uint64_t bytes,
                     const CallContext& context);

/** Notes that such memory will be freed. */
void note_unrecorded_gone(qk_mem_handle& handle, const void* memory);

/** The same for the data handle. Both return `memory`, which can be null. */
void* note_direct(void* memory, std::uint64_t bytes, const CallContext& context);
void* note_direct_gone(void* memory);

/** A realloc of memory without a record. Other threads can get the old address once it is free. */
class UnrecordedRealloc {
 public:
  /** `handle` is null if no handle is to be told. */
  UnrecordedRealloc(qk_mem_handle* handle, const void* old);

  /** Resizes `old`, and notes what has become of it. */
  [[nodiscard]] void* resize(void* old, std::size_t size, const CallContext& context);

 private:
  qk_mem_handle* handle_;
  std::optional<profile::Unrecorded> old_;
};

/** The data handle, if the profile watches it. */
[[nodiscard]] qk_mem_handle* watched_data_handle();

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_UNRECORDED_H_
