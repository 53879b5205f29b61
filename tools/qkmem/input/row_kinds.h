#ifndef QKMEM_TOOLS_INPUT_ROW_KINDS_H_
#define QKMEM_TOOLS_INPUT_ROW_KINDS_H_

#include <cstdint>

namespace qk::command {

/** What a row of a table says has become of memory. */
enum class RowKind : std::uint8_t {
  kMade,
  kMadeByLibrary,
  kRealloc,
  kGone,
  kPiece,
  kHandleCreated,
  kHandleDeleted,
  kOther,
  kUnknown
};

[[nodiscard]] RowKind kind_of(unsigned char type);

/** What users call it: "malloc". */
[[nodiscard]] const char* verb_of(unsigned char type);

/** Whether a row of a kind makes a block of the program's, at its file and line. */
[[nodiscard]] constexpr bool has_site(RowKind kind) {
  return kind == RowKind::kMade || kind == RowKind::kRealloc;
}

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_ROW_KINDS_H_
