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

/** Shows a row in messages of failed tests, as in the trace file. */
void PrintTo(const TraceRow& row, std::ostream* out);

}  // namespace qk::mem

namespace kit {

/** A trace file as the trace reader reads it. It owns the file names of the rows. */
class Trace {
 public:
  /** `text` is a whole file with its headings; the reader gets it `piece` bytes at a time. */
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
