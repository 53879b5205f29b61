#ifndef QKMEM_PROFILE_REPORT_LIBRARY_MEMORY_H_
#define QKMEM_PROFILE_REPORT_LIBRARY_MEMORY_H_

#include <cstdint>
#include <optional>

#include "profile/report/known_blocks.h"
#include "support/line.h"

namespace qk::mem::profile {

enum class LibraryPart : std::uint8_t {
  kHandle,
  kLock,     // of a handle
  kRecords,  // of a handle
  kTracker,  // of an object on a handle
  kHandles,  // the table of them
  kTags,
  kProfile
};

/** Memory of the library itself. */
struct LibraryMemory {
  LibraryPart part;
  HandleName handle;  // if the part is of one
};

/**
 * What of the library lies at an address. Its indexes, which are in no record, are not known. Takes
 * the registry's lock, and that of the profile's growth.
 */
[[nodiscard]] std::optional<LibraryMemory> find_library_memory(const void* address);

/** Appends "memory of the library itself: records of handle 3 SE". */
void put_library_memory(qk::Line& line, const LibraryMemory& memory);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_LIBRARY_MEMORY_H_
