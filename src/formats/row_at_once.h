#ifndef QKMEM_FORMATS_ROW_AT_ONCE_H_
#define QKMEM_FORMATS_ROW_AT_ONCE_H_

#include <cstddef>
#include <string_view>

#include "formats/trace_row.h"
#include "support/shortcuts.h"

namespace qk::mem {

/** Whether there is read_row_at_once(). */
#ifdef __SSE2__
inline constexpr bool kReadsAtOnce = !kPortable;
#else
inline constexpr bool kReadsAtOnce = false;
#endif

/**
 * Same as read_usual_row(), for rows whose columns are short. All ends of columns are found first,
 * so that several numbers are read by the same instructions.
 */
[[nodiscard]] std::size_t read_row_at_once(std::string_view bytes, TraceRow& row) noexcept;

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_ROW_AT_ONCE_H_
