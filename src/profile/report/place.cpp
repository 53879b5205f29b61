#include "profile/report/place.h"

#include "profile/labels.h"

namespace qk::mem::profile {

namespace {

/** The outermost label first. */
void put_label(qk::Line& line, std::uint32_t number) {
  const Label& innermost = label(number);
  if (innermost.outer != 0) {
    put_label(line, innermost.outer);
    line.put(" > ");
  }
  line.put(innermost.text);
}

}  // namespace

void put_place(qk::Line& line, const Row& row, std::size_t /*width*/) {
  switch (row.kind) {
    case RowKind::kFromBefore:
      line.put("(from before the profile was on)");
      return;
    case RowKind::kNotRecorded:
      line.put("(not recorded: the profile had no memory left)");
      return;
    case RowKind::kSite:
      line.put(row.key.file).put(':').number(row.key.line);
      if (row.key.label == 0) return;
      line.put(" [");
      put_label(line, row.key.label);
      line.put(']');
      return;
  }
}

}  // namespace qk::mem::profile
