#ifndef QKMEM_PROFILE_REPORT_KNOWN_BLOCKS_H_
#define QKMEM_PROFILE_REPORT_KNOWN_BLOCKS_H_

#include <cstdint>
#include <optional>

#include "profile/marks.h"
#include "profile/pool.h"
#include "support/line.h"

/** The live blocks of the program in which, or near which, an address lies. */
namespace qk::mem::profile {

/** Wraps around for an address in front. */
[[nodiscard]] inline std::uint64_t offset_in(const void* begin, const void* address) {
  return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(begin);
}

/** Where memory was allocated. Without a name it isn't known. */
struct AllocationPlace {
  const char* file = nullptr;
  std::uint32_t line = 0;
  bool is_from_before = false;  // the profile was switched on
};

/** A handle for people. */
struct HandleName {
  std::int32_t hid;
  char tag[8];
};
[[nodiscard]] HandleName name_of(const qk_mem_handle& handle);

/** A live block of the program. */
struct LiveBlock {
  std::uint64_t offset;  // of the address in it, see offset_in()
  std::uint64_t bytes;
  HandleName handle;
  AllocationPlace place;
  std::uint64_t event;  // the profile's number of the allocation; 0 if it has none
};

/** So many bytes from a block, an address is near it. */
inline constexpr std::uint64_t kNear = 4096;

/** Bytes between a block and an address outside. */
[[nodiscard]] constexpr bool is_in_front(std::uint64_t offset) {
  return static_cast<std::int64_t>(offset) < 0;
}
[[nodiscard]] constexpr std::uint64_t distance_of(std::uint64_t offset, std::uint64_t bytes) {
  return is_in_front(offset) ? 0 - offset : offset - bytes;
}

/** Whether an address is one of a block's. An empty block has the one at which it begins. */
[[nodiscard]] constexpr bool is_in_block(std::uint64_t offset, std::uint64_t bytes) {
  return offset == 0 || offset < bytes;
}

struct LiveBlocks {
  std::optional<LiveBlock> around;   // preferably one that begins at the address
  std::optional<LiveBlock> nearest;  // of those that are near, if none is around the address
};

/**
 * Looks at all records of all handles, and at what the profile knows besides. Takes the registry's
 * lock, and those of handles.
 */
[[nodiscard]] LiveBlocks find_live_blocks(const void* address);

/**
 * The same for a signal handler, which waits for no lock. Nothing if one that it needs is held, by
 * the calling thread as well.
 */
[[nodiscard]] std::optional<LiveBlocks> try_to_find_live_blocks(const void* address);

/** Where a block was allocated, by the mark that it had in a pool. */
[[nodiscard]] AllocationPlace place_of(Pool& pool, Mark mark);

/** Appends "4 SE", a handle's number and tag. */
void put_handle(qk::Line& line, std::int32_t hid, const char* tag);
void put_handle(qk::Line& line, const HandleName& handle);

/** Appends `verb` and the place, as in ", was allocated at a.c:7". Nothing if it isn't known. */
void put_allocation(qk::Line& line, const char* verb, const AllocationPlace& place);

/**
 * Appends "3 bytes inside a block of 40", or past its end, or in front of it.
 *
 * @param what  "block", or what else it is.
 */
qk::Line& put_offset(qk::Line& line, std::uint64_t offset, std::uint64_t bytes,
                     const char* what = "block");

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_KNOWN_BLOCKS_H_
