#ifndef QKMEM_CORE_KINDS_H_
#define QKMEM_CORE_KINDS_H_

#include "core/records.h"
#include "support/shared_variable.h"

namespace qk::mem {

/**
 * Kind codes of live records. Allocations are written in upper case on ordinary handles and in
 * lower case where they are pieces of blocks, see kind_on().
 */
namespace kind {
inline constexpr unsigned char kMalloc = 'M';
inline constexpr unsigned char kCalloc = 'C';
inline constexpr unsigned char kRealloc = 'R';
inline constexpr unsigned char kStrdup = 'S';
inline constexpr unsigned char kExternal = 'X';
inline constexpr unsigned char kObject = 'W';
inline constexpr unsigned char kArray = 'J';
inline constexpr unsigned char kTracker = 'T';
inline constexpr unsigned char kHandleMemory = 'H';
inline constexpr unsigned char kBlock = 'B';
inline constexpr unsigned char kPointerArray = 'P';
}  // namespace kind

/** Event letters that are never stored in a record. */
namespace event {
inline constexpr unsigned char kFree = 'F';
inline constexpr unsigned char kFreePiece = 'f';
inline constexpr unsigned char kObjectReleased = 'E';
inline constexpr unsigned char kArrayReleased = 'K';
inline constexpr unsigned char kHandleCreated = 'N';
inline constexpr unsigned char kHandleDeleted = 'D';
inline constexpr unsigned char kHandleCleared = 'd';
inline constexpr unsigned char kTraceOpened = 'I';
}  // namespace event

[[nodiscard]] constexpr bool is_blockmgmt(const qk_mem_handle& handle) {
  return handle.blockmgmt != 0;
}

/** Whether a handle can have records of pointers. */
[[nodiscard]] inline bool keeps_records(const qk_mem_handle& handle) {
  return handle.track != 0 || qk::load(handle.registered) != 0;
}

/** The code that an allocation kind has on a handle. */
[[nodiscard]] constexpr unsigned char kind_on(const qk_mem_handle& handle, unsigned char kind) {
  return is_blockmgmt(handle) ? static_cast<unsigned char>(kind - 'A' + 'a') : kind;
}

[[nodiscard]] constexpr bool is_management(unsigned char kind) {
  return kind == kind::kPointerArray || kind == kind::kHandleMemory || kind == kind::kTracker;
}

/** Counted in overhead_qty when recorded; the pointer array counts itself when it is made. */
[[nodiscard]] constexpr bool counts_as_overhead(unsigned char kind) {
  return kind == kind::kHandleMemory || kind == kind::kTracker;
}

/** A piece of a block-managed handle's blocks. */
[[nodiscard]] constexpr bool is_piece(unsigned char kind) {
  return kind == 'm' || kind == 'c' || kind == 'r' || kind == 's';
}

/** Memory of the system's allocator that goes back with free. */
[[nodiscard]] constexpr bool is_system_memory(unsigned char kind) {
  return kind == kind::kMalloc || kind == kind::kCalloc || kind == kind::kRealloc ||
         kind == kind::kStrdup || kind == kind::kExternal;
}

/** An object or array that the language made. */
[[nodiscard]] constexpr bool is_language_made(unsigned char kind) {
  return kind == kind::kObject || kind == kind::kArray;
}

[[nodiscard]] constexpr bool is_calloc(unsigned char kind) {
  return kind == kind::kCalloc || kind == 'c';
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_KINDS_H_
