#ifndef QKMEM_FORMATS_TRACE_ROW_H_
#define QKMEM_FORMATS_TRACE_ROW_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>

#include "formats/trace_columns.h"
#include "support/line.h"

namespace qk::mem {

/** An address in the traced program, never dereferenced. Written in hexadecimal. */
enum class TraceAddress : std::uint64_t {};

/** One record of the trace file. Sizes and changes are in bytes. */
struct TraceRow {
  std::uint32_t sequence = 0;
  int handle = 0;  // 0 for none
  unsigned char type = 0;
  TraceAddress address{};
  std::uint64_t num = 0;
  std::uint64_t size = 0;
  std::uint64_t handle_size = 0;
  std::string_view file{};
  int line = 0;
  std::int64_t current = 0;
  std::int64_t heap = 0;
  std::int64_t unknown = 0;
  std::int64_t change = 0;
  std::int64_t growth = 0;
  std::int64_t difference = 0;

  bool operator==(const TraceRow&) const = default;
};

/** The field of each column, in the order of TraceColumn. */
inline constexpr std::tuple kTraceFields = {
    &TraceRow::sequence, &TraceRow::handle,  &TraceRow::type,        &TraceRow::address,
    &TraceRow::num,      &TraceRow::size,    &TraceRow::handle_size, &TraceRow::file,
    &TraceRow::line,     &TraceRow::current, &TraceRow::heap,        &TraceRow::unknown,
    &TraceRow::change,   &TraceRow::growth,  &TraceRow::difference};

static_assert(std::tuple_size_v<decltype(kTraceFields)> == kTraceHeadings.size());

/** Appends the first line of the trace file to `line`. */
void put_trace_headings(qk::Line& line) noexcept;

/**
 * Appends a record with its newline to `line`.
 *
 * @param row             a tab or newline in its file makes the row unreadable.
 * @param address_digits  minimum number of digits of the address. With 0, a null address has none.
 *                        A negative number means 1.
 */
void put_trace_row(const TraceRow& row, int address_digits, qk::Line& line) noexcept;

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_TRACE_ROW_H_
