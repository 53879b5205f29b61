#ifndef QKMEM_FORMATS_TRACE_COLUMNS_H_
#define QKMEM_FORMATS_TRACE_COLUMNS_H_

#include <array>
#include <cstddef>
#include <string_view>

namespace qk::mem {

/** The columns of the trace file, in order. */
enum class TraceColumn : unsigned char {
  kSequence,
  kHandle,
  kType,
  kAddress,
  kNum,
  kSize,
  kHandleSize,
  kFile,
  kLine,
  kCurrent,
  kHeap,
  kUnknown,
  kChange,
  kGrowth,
  kDifference
};

/** The headings of the columns, in the same order. */
inline constexpr std::array<std::string_view, 15> kTraceHeadings = {
    "Sequence", "Handle",  "Type", "Address", "Num",    "Size",   "Handle Size", "File",
    "Line",     "Current", "Heap", "Unknown", "Change", "Growth", "Difference"};

inline constexpr auto kLastTraceColumn = TraceColumn::kDifference;
static_assert(static_cast<std::size_t>(kLastTraceColumn) + 1 == kTraceHeadings.size());

[[nodiscard]] constexpr std::string_view heading_of(TraceColumn column) {
  return kTraceHeadings[static_cast<std::size_t>(column)];
}

/** Position of a column in a row, from 1. */
[[nodiscard]] constexpr int number_of(TraceColumn column) { return static_cast<int>(column) + 1; }

/** The character after a column. */
[[nodiscard]] constexpr char end_of(TraceColumn column) {
  return column == kLastTraceColumn ? '\n' : '\t';
}

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_TRACE_COLUMNS_H_
