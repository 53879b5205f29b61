#ifndef QKMEM_FORMATS_USUAL_ROW_H_
#define QKMEM_FORMATS_USUAL_ROW_H_

#include <cstddef>
#include <string_view>

#include "formats/trace_row.h"

namespace qk::mem {

/**
 * Reads a row of a trace file at the beginning of some bytes, if it is as the library writes nearly
 * all of them, eight bytes at a time. Returns its length with the newline. Returns 0 for anything
 * else, be it right or wrong, or if not many bytes follow: then the row has to be read one column
 * after the other, and `row` has no meaning.
 */
[[nodiscard]] std::size_t read_usual_row(std::string_view bytes, TraceRow& row) noexcept;

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_USUAL_ROW_H_
