#ifndef QKMEM_FORMATS_TRACE_LETTERS_H_
#define QKMEM_FORMATS_TRACE_LETTERS_H_

/** The letters that log, trace file and report show for kinds of memory and for events. */
namespace qk::mem {

/**
 * Kinds of live records. Allocations have an upper-case letter on ordinary handles and a lower-case
 * letter if they are pieces of blocks, see as_piece().
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

/** The letter of an allocation kind for a piece of a block. */
[[nodiscard]] constexpr unsigned char as_piece(unsigned char kind) {
  return static_cast<unsigned char>(kind - 'A' + 'a');
}

/** Bookkeeping of the library. */
[[nodiscard]] constexpr bool is_management(unsigned char kind) {
  return kind == kind::kPointerArray || kind == kind::kHandleMemory || kind == kind::kTracker;
}

/** A piece of a block. */
[[nodiscard]] constexpr bool is_piece(unsigned char kind) {
  return kind == as_piece(kind::kMalloc) || kind == as_piece(kind::kCalloc) ||
         kind == as_piece(kind::kRealloc) || kind == as_piece(kind::kStrdup);
}

/** Memory that free() releases. */
[[nodiscard]] constexpr bool is_system_memory(unsigned char kind) {
  return kind == kind::kMalloc || kind == kind::kCalloc || kind == kind::kRealloc ||
         kind == kind::kStrdup || kind == kind::kExternal;
}

/** An object or array that `new` created. */
[[nodiscard]] constexpr bool is_language_made(unsigned char kind) {
  return kind == kind::kObject || kind == kind::kArray;
}

[[nodiscard]] constexpr bool is_calloc(unsigned char kind) {
  return kind == kind::kCalloc || kind == as_piece(kind::kCalloc);
}

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_TRACE_LETTERS_H_
