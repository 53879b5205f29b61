#ifndef TESTS_KIT_TRACE_H_
#define TESTS_KIT_TRACE_H_

#include <cstddef>
#include <iosfwd>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "formats/trace_reader.h"

namespace qk::mem {

/** Shows a row in failures, as the line that it is in the trace file. */
void PrintTo(const TraceRow& row, std::ostream* out);

}  // namespace qk::mem

namespace kit {

/** What the reader of trace files makes of a text; it owns the names of the rows' files. */
class Trace {
 public:
  /** The text goes to the reader in pieces of a size; a whole file with its headings. */
  explicit Trace(std::string_view text, std::size_t piece = std::string_view::npos);
  Trace(Trace&&) = default;
  Trace& operator=(Trace&&) = default;

  std::vector<qk::mem::TraceRow> rows;
  std::vector<std::string> faults;  // "line 7, column 6 (Size): not a number"

 private:
  void take_all(qk::mem::TraceReader& reader);

  std::set<std::string> files_;
};

}  // namespace kit

#endif  // TESTS_KIT_TRACE_H_
