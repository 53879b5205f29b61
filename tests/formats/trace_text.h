#ifndef TESTS_FORMATS_TRACE_TEXT_H_
#define TESTS_FORMATS_TRACE_TEXT_H_

#include <string>

#include "formats/trace_row.h"

/** A trace file's text, for tests of its reader. */
namespace trace_text {

inline const std::string kHeadings =
    "Sequence\tHandle\tType\tAddress\tNum\tSize\tHandle Size\tFile\tLine\tCurrent\tHeap\tUnknown\tChange\tGrowth\tDifference\n";
inline const std::string kWhole = "1\t2\tM\tff\t3\t4\t5\ta.c\t6\t7\t8\t9\t10\t11\t12\n";
inline const qk::mem::TraceRow kWholeRow = {.sequence = 1,
                                            .handle = 2,
                                            .type = 'M',
                                            .address = qk::mem::TraceAddress{0xff},
                                            .num = 3,
                                            .size = 4,
                                            .handle_size = 5,
                                            .file = "a.c",
                                            .line = 6,
                                            .current = 7,
                                            .heap = 8,
                                            .unknown = 9,
                                            .change = 10,
                                            .growth = 11,
                                            .difference = 12};

/** The whole row with another text in one of its columns, which count from 1. */
inline std::string with(int column, const std::string& text) {
  std::size_t begin = 0;
  for (int i = 1; i < column; ++i) begin = kWhole.find('\t', begin) + 1;
  std::string row = kWhole;
  return row.replace(begin, row.find_first_of("\t\n", begin) - begin, text);
}

}  // namespace trace_text

#endif  // TESTS_FORMATS_TRACE_TEXT_H_
