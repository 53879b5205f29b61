#include "profile/report/report.h"

#include <optional>

#include "core/registry.h"
#include "profile/report/destination.h"
#include "profile/report/json_report.h"
#include "profile/report/metrics_report.h"
#include "profile/report/pprof_report.h"
#include "profile/state.h"
#include "support/mtx_lock.h"
#include "support/own_message.h"
#include "support/page_buffer.h"

namespace qk::mem::profile {

constinit qk::Mtx report_lock;

namespace {

void put_text(qk::PageBuffer& text, Rows& rows, const Options& options, Occasion occasion,
              Naming naming) {
  ShownFrames frames(frames_needed(rows));
  if (frames.capacity() != 0) name_callers(rows, frames, naming, options.skip);
  qk::PageWriter out(text);
  put_text_report(out, rows, frames, options, occasion);
}

void put_report(qk::PageBuffer& text, Rows& rows, const Options& options, Occasion occasion,
                Naming naming) {
  switch (options.format) {
    case Format::kText:
      return put_text(text, rows, options, occasion, naming);
    case Format::kJson:
      return put_json_report(text, rows, naming);
    case Format::kPprof:
      return put_pprof_report(text, rows, naming);
    case Format::kOpenMetrics:
      return put_metrics_report(text);
  }
}

Options options_now() {
  const RegistryLock lock;
  return options();
}

}  // namespace

void write_report(Occasion occasion, Naming naming) {
  if (!was_ever_on()) return;
  const Options options = options_now();
  // At a signal another thread can have the lock for ever, but nothing that it guards is used.
  std::optional<qk::MtxLock> lock;
  if (naming == Naming::kComplete) lock.emplace(report_lock);
  const std::size_t needed = rows_needed();
  Rows rows(needed);
  if (rows.capacity() < needed) return qk::write_message("qkmem: no memory for the report\n");
  collect_rows(rows);
  qk::PageBuffer text;
  put_report(text, rows, options, occasion, naming);
  if (naming == Naming::kComplete) close_names();
  deliver(options.report, text.text());
  text.clear();
}

}  // namespace qk::mem::profile
