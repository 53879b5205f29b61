#include "input/row_kinds.h"

#include <array>
#include <cstddef>

#include "formats/trace_letters.h"

namespace qk::command {
namespace {

constexpr unsigned char kRegistrationTypes = 3;  // deregistration writes the bare number

constexpr RowKind kind_by_type(unsigned char type) {
  if (type < kRegistrationTypes) return RowKind::kGone;
  if (mem::is_piece(type)) return RowKind::kPiece;
  switch (type) {
    case mem::kind::kMalloc:
    case mem::kind::kCalloc:
    case mem::kind::kStrdup:
    case mem::kind::kExternal:
    case mem::kind::kObject:
    case mem::kind::kArray:
    case mem::kind::kBlock:
      return RowKind::kMade;
    case mem::kind::kTracker:
    case mem::kind::kHandleMemory:
    case mem::kind::kPointerArray:
      return RowKind::kMadeByLibrary;
    case mem::kind::kRealloc:
      return RowKind::kRealloc;
    case mem::event::kFree:
    case mem::event::kObjectReleased:
    case mem::event::kArrayReleased:
      return RowKind::kGone;
    case mem::event::kFreePiece:
      return RowKind::kPiece;
    case mem::event::kHandleCreated:
      return RowKind::kHandleCreated;
    case mem::event::kHandleDeleted:
      return RowKind::kHandleDeleted;
    case mem::event::kHandleCleared:
    case mem::event::kTraceOpened:
      return RowKind::kOther;
    default:
      return RowKind::kUnknown;
  }
}

constexpr std::array<RowKind, 256> kKinds = [] {
  std::array<RowKind, 256> kinds{};
  for (std::size_t type = 0; type < kinds.size(); ++type) {
    kinds[type] = kind_by_type(static_cast<unsigned char>(type));
  }
  return kinds;
}();

}  // namespace

RowKind kind_of(unsigned char type) { return kKinds[type]; }

const char* verb_of(unsigned char type) {
  switch (type) {
    case mem::kind::kMalloc:
    case mem::as_piece(mem::kind::kMalloc):
      return "malloc";
    case mem::kind::kCalloc:
    case mem::as_piece(mem::kind::kCalloc):
      return "calloc";
    case mem::kind::kRealloc:
    case mem::as_piece(mem::kind::kRealloc):
      return "realloc";
    case mem::kind::kStrdup:
    case mem::as_piece(mem::kind::kStrdup):
      return "strdup";
    case mem::kind::kExternal:
    case mem::kind::kObject:
    case mem::kind::kArray:
      return "registered";
    case mem::kind::kBlock:
      return "block";
    case mem::kind::kTracker:
    case mem::kind::kHandleMemory:
    case mem::kind::kPointerArray:
      return "the library's";
    case mem::event::kFree:
    case mem::event::kFreePiece:
      return "free";
    case mem::event::kObjectReleased:
    case mem::event::kArrayReleased:
      return "released";
    case mem::event::kHandleCreated:
      return "handle made";
    case mem::event::kHandleDeleted:
      return "handle deleted";
    case mem::event::kHandleCleared:
      return "handle cleared";
    case mem::event::kTraceOpened:
      return "trace opened";
    default:
      return type < kRegistrationTypes ? "deregistered" : "unknown";
  }
}

}  // namespace qk::command
