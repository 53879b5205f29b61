#include "profile/report/place.h"

#include "profile/labels.h"

namespace qk::mem::profile {

void put_bare_place(qk::Line& line, const Row& row) {
  switch (row.kind) {
    case RowKind::kFromBefore:
      line.put("(from before the profile was on)");
      break;
    case RowKind::kNotRecorded:
      line.put("(not recorded: the profile had no memory left)");
      break;
    case RowKind::kSite:
      line.put(row.key.file).put(':').number(row.key.line);
  }
}

void put_place(qk::Line& line, const Row& row, const ShownFrames& frames, const Style& style,
               std::size_t width) {
  const std::size_t begin = line.length();
  put_function_of_site(line, row, frames);
  put_bare_place(line, row);
  if (row.key.label != 0) {
    put_label(line.put(" ["), row.key.label);
    line.put(']');
  }
  const std::size_t taken = line.length() - begin;
  put_callers(line, row, frames, style, taken < width ? width - taken : 0);
}

}  // namespace qk::mem::profile
