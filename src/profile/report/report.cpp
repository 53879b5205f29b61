#include "profile/report/report.h"

#include <cerrno>
#include <optional>
#include <string_view>

#include "core/registry.h"
#include "profile/report/destination.h"
#include "profile/report/growth_report.h"
#include "profile/report/json_report.h"
#include "profile/report/known_leaks.h"
#include "profile/report/metrics_report.h"
#include "profile/report/pprof_report.h"
#include "profile/state.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/own_message.h"
#include "support/page_buffer.h"
#include "support/system.h"

namespace qk::mem::profile {

constinit qk::Mtx report_lock;

namespace {

constexpr char kNoMemory[] = "qkmem: no memory for the report\n";

const Style& style_of(const Options& options) {
  const bool has_colours = options.may_have_colours && goes_to_terminal(options.report);
  return has_colours ? kTerminalStyle : kPlainStyle;
}

/** At the end patterns have had all chances, but at a signal functions have no names. */
bool tells_unmatched(Occasion occasion, Naming naming) {
  return occasion == Occasion::kEnd && naming == Naming::kComplete;
}

bool put_text(qk::PageBuffer& text, Rows& rows, const Options& options, Occasion occasion,
              Naming naming, const lost::Findings* findings) {
  ShownFrames frames(frames_needed(rows));
  if (frames.capacity() != 0) name_callers(rows, frames, naming, options.skip);
  qk::PageWriter out(text);
  put_text_report(out, rows, frames, options, style_of(options), occasion, findings, naming);
  if (tells_unmatched(occasion, naming)) {
    for_each_unmatched(options.known_leaks, [&out](std::string_view line) { out.put(line); });
  }
  return !out.has_failed();
}

/** Says the same where programs get a report. */
void say_unmatched(const Options& options) {
  for_each_unmatched(options.known_leaks,
                     [&](std::string_view line) { say_beside_reports(options, line); });
}

/** Returns whether all is there. Otherwise there was no memory. */
bool put_report(qk::PageBuffer& text, Rows& rows, const Options& options, Occasion occasion,
                Naming naming, const lost::Findings* findings) {
  switch (options.format) {
    case Format::kText:
      return put_text(text, rows, options, occasion, naming, findings);
    case Format::kJson:
      return put_json_report(text, rows, naming, findings);
    case Format::kPprof:
      return put_pprof_report(text, rows, naming);
    case Format::kOpenMetrics:
      return put_metrics_report(text);
  }
  return false;
}

/** The beginning of a text tells people something. Programs need all, or an earlier report. */
void deliver_incomplete(const Options& options, std::string_view text) {
  if (options.format != Format::kText || text.empty()) return qk::write_message(kNoMemory);
  deliver(options.report, text);
  qk::write_message("qkmem: no memory for the rest of the report\n");
}

/** A report, and what it says. */
struct Composed {
  bool is_complete = false;
  Verdict verdict;
};

Composed compose_report(qk::PageBuffer& text, const Options& options, Occasion occasion,
                        Naming naming, const lost::Findings* findings = nullptr) {
  const std::size_t needed = rows_needed();
  Rows rows(needed);
  if (rows.capacity() < needed) return {};
  collect_rows(rows, findings);
  mark_known_leaks(rows, options.known_leaks, occasion, naming);
  const bool is_complete = put_report(text, rows, options, occasion, naming, findings);
  return {is_complete, judge(rows, occasion, findings)};
}

/** Returns whether all is there. */
bool put_growth(qk::PageBuffer& text, Growth& growth, const Options& options) {
  switch (options.format) {
    case Format::kText: {
      ShownFrames frames(frames_needed(growth.rows));
      if (frames.capacity() != 0) {
        name_callers(growth.rows, frames, Naming::kComplete, options.skip);
      }
      qk::PageWriter out(text);
      put_growth_report(out, growth, frames, options, style_of(options));
      return !out.has_failed();
    }
    case Format::kJson:
      return put_json_growth(text, growth, Naming::kComplete);
    case Format::kPprof:
      return put_pprof_growth(text, growth, Naming::kComplete);
    case Format::kOpenMetrics:
      break;
  }
  return false;
}

/** Appends a line in place of a report. Returns a system's error as a code. */
std::int32_t put_instead(qk::PageBuffer& text, std::string_view line, int error) {
  return text.append(line) ? qk_error_no(error) : qk_error_no(ENOMEM);
}

std::int32_t compose_growth(qk::PageBuffer& text, const Options& options,
                            const GrowthQuery& query) {
  if (options.format == Format::kOpenMetrics) {
    return put_instead(text, "qkmem: OPENMETRICS has no form for growth\n", EINVAL);
  }
  Growth growth;
  if (!growth.has_room()) return qk_error_no(ENOMEM);
  const GrowthError error = collect_growth(growth, query);
  if (error == GrowthError::kNone) {
    return put_growth(text, growth, options) ? 0 : qk_error_no(ENOMEM);
  }
  qk::Line line;
  put_growth_error(line, error, query);
  return put_instead(text, line.finish(), error == GrowthError::kBackwards ? EINVAL : ENOENT);
}

/** Appends what is asked for, or a line that says why not. Returns the code. */
std::int32_t compose_requested(qk::PageBuffer& text, const Options& options,
                               const GrowthQuery& growth) {
  if (!was_ever_on()) return put_instead(text, "qkmem: the profile is off\n", ENODATA);
  std::int32_t code = 0;
  if (growth.is_asked()) {
    code = compose_growth(text, options, growth);
  } else if (!compose_report(text, options, Occasion::kRunning, Naming::kComplete).is_complete) {
    code = qk_error_no(ENOMEM);
  }
  close_names();
  return code;
}

}  // namespace

Options options_now() {
  const RegistryLock lock;
  return options();
}

std::int32_t put_requested_report(qk::PageBuffer& text, const Options& options,
                                  const GrowthQuery& growth) {
  Options plain = options;
  plain.may_have_colours = false;  // a program gets the text
  const qk::MtxLock lock(report_lock);
  const std::int32_t code = compose_requested(text, plain, growth);
  if (code == qk_error_no(ENOMEM)) text.clear();
  return code;
}

void write_requested_report(const Options& options, const GrowthQuery& growth) {
  const qk::MtxLock lock(report_lock);
  qk::PageBuffer text;
  if (compose_requested(text, options, growth) == qk_error_no(ENOMEM)) {
    deliver_incomplete(options, text.text());
  } else {
    deliver(options.report, text.text());
  }
  text.clear();
}

std::int32_t put_lost_report(qk::PageBuffer& text, const Options& options,
                             const lost::Findings& findings) {
  Options plain = options;
  plain.may_have_colours = false;
  if (plain.format != Format::kJson) plain.format = Format::kText;
  const qk::MtxLock lock(report_lock);
  const bool is_complete =
      compose_report(text, plain, Occasion::kRunning, Naming::kComplete, &findings).is_complete;
  close_names();
  if (is_complete)
    return findings.summary().obstacle == lost::Obstacle::kNone ? 0 : qk_error_no(ENOTSUP);
  text.clear();
  return qk_error_no(ENOMEM);
}

Verdict write_report(Occasion occasion, Naming naming, const lost::Findings* findings) {
  if (!was_ever_on()) return {};
  const Options options = options_now();
  // At a signal another thread can have the lock for ever, but nothing that it guards is used.
  std::optional<qk::MtxLock> lock;
  if (naming == Naming::kComplete) lock.emplace(report_lock);
  const bool is_withdrawn = occasion == Occasion::kEnd && withdraw(options);
  if (is_withdrawn && options.leaks_code == 0) return {};
  qk::PageBuffer text;
  const Composed report = compose_report(text, options, occasion, naming, findings);
  if (naming == Naming::kComplete) close_names();
  if (report.is_complete && !is_withdrawn) {
    deliver(options.report, text.text());
  } else if (!is_withdrawn) {
    deliver_incomplete(options, text.text());
  }
  text.clear();
  if (options.format != Format::kText && tells_unmatched(occasion, naming)) say_unmatched(options);
  return report.verdict;
}

}  // namespace qk::mem::profile
