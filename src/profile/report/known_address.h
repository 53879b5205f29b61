#ifndef QKMEM_PROFILE_REPORT_KNOWN_ADDRESS_H_
#define QKMEM_PROFILE_REPORT_KNOWN_ADDRESS_H_

#include <cstdint>
#include <optional>

#include "profile/marks.h"
#include "profile/pool.h"
#include "support/line.h"

/** What the library knows of an address that a call did not expect. */
namespace qk::mem::profile {

[[nodiscard]] inline std::uint64_t offset_in(const void* begin, const void* address) {
  return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(begin);
}

/** Where memory was allocated. Without a name it isn't known. */
struct AllocationPlace {
  const char* file = nullptr;
  std::uint32_t line = 0;
  bool is_from_before = false;  // the profile was switched on
};

/** A live block of the program. */
struct LiveBlock {
  std::uint64_t offset;  // of the address in it
  std::uint64_t bytes;
  std::int32_t hid;
  char tag[8];
  AllocationPlace place;
};

/**
 * The live block in which an address lies, preferably one that begins there. Looks at all records
 * of all handles. Takes the registry's lock, and that of the data handle.
 */
[[nodiscard]] std::optional<LiveBlock> find_live_block(const void* address);

/** Where a block was allocated, by the mark that it had in a pool. */
[[nodiscard]] AllocationPlace place_of(Pool& pool, Mark mark);

/** Appends "4 SE", a handle's number and tag. */
void put_handle(qk::Line& line, std::int32_t hid, const char* tag);

/** Appends `verb` and the place, as in ", was allocated at a.c:7". Nothing if it isn't known. */
void put_allocation(qk::Line& line, const char* verb, const AllocationPlace& place);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_KNOWN_ADDRESS_H_
