#include "profile/report/report.h"

#include "profile/report/destination.h"
#include "profile/state.h"

namespace qk::mem::profile {

void write_report(Occasion occasion, Naming naming) {
  if (!was_ever_on()) return;
  Rows rows(rows_needed());
  collect_rows(rows);
  ShownFrames frames(frames_needed(rows));
  if (frames.capacity() != 0) name_callers(rows, frames, naming, options().skip);
  qk::PageBuffer text;
  qk::PageWriter out(text);
  put_text_report(out, rows, frames, options(), occasion);
  deliver(options().report, text.text());
  text.clear();
}

}  // namespace qk::mem::profile
