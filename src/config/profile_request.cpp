// What the program asks the profile for: reports, and figures of growth.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "config/option_copy.h"
#include "config/profile_options.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "lost/inquiry.h"
#include "profile/report/growth.h"
#include "profile/report/report.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/no_cancellation.h"
#include "support/own_message.h"
#include "support/page_buffer.h"
#include "support/system.h"

namespace qk::mem {
namespace {

/** Returns a system's error, or 0. */
int write_to_stream(FILE* stream, std::string_view text) {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  errno = 0;
  const bool is_whole = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
  return is_whole ? 0 : errno;
}

std::int32_t report_to(FILE* stream, const char* options) {
  OptionCopy copy(options);
  if (copy.text() == nullptr) return qk_error_no(ENOMEM);
  ReportRequest request = {profile::options_now(), {}};
  const std::int32_t mistake = read_report_options("qk_mem_profile_report", copy.text(), request);
  qk::PageBuffer text;
  const std::int32_t code = profile::put_requested_report(text, request.options, request.growth);
  const int error = write_to_stream(stream, text.text());
  text.clear();
  if (mistake != 0) return mistake;
  return code != 0 ? code : qk_error_no(error);
}

std::int32_t put_lost(qk::PageBuffer& text) {
  if (!profile::was_ever_on()) {
    return text.append("qkmem: the profile is off\n") ? qk_error_no(ENODATA) : qk_error_no(ENOMEM);
  }
  lost::prepare_inquiry();
  const lost::Findings findings = lost::inquire(lost::Waiting::kAllowed);
  return profile::put_lost_report(text, profile::options_now(), findings);
}

std::int32_t lost_to(FILE* stream) {
  qk::PageBuffer text;
  const std::int32_t code = put_lost(text);
  const int error = write_to_stream(stream, text.text());
  text.clear();
  return code != 0 ? code : qk_error_no(error);
}

/** The sums of what a query selects, and how many pools have grown. */
qk_mem_change sum_of(const profile::Growth& growth) {
  profile::Row sum = {};
  qk_mem_change result = {};
  for (const profile::Row& handle : growth.handles) {
    add_figures(sum, handle);
    if (change_of(handle).is_growth()) ++result.handles;
  }
  const profile::Change change = change_of(sum);
  result.bytes = change.bytes;
  result.blocks = change.blocks;
  return result;
}

/** Says why there is no growth. Returns the code. */
std::int32_t name_error(profile::GrowthError error, const profile::GrowthQuery& query) {
  qk::Line line;
  put_growth_error(line, error, query);
  qk::write_message(line.finish());
  return qk_error_no(ENOENT);
}

/** Returns a code, or 0. */
std::int32_t measure_growth(const char* since, const char* filter, qk_mem_change& change) {
  if (!profile::was_ever_on()) {
    qk::write_message("qkmem: the profile is off\n");
    return qk_error_no(ENODATA);
  }
  profile::GrowthQuery query;
  query.since = since;
  OptionCopy copy(filter);
  if (copy.text() == nullptr) return qk_error_no(ENOMEM);
  const std::int32_t mistake = read_growth_filter("qk_mem_growth", copy.text(), query);
  if (mistake != 0) return mistake;
  profile::Growth growth = profile::Growth::of_handles();
  if (!growth.has_room()) return qk_error_no(ENOMEM);
  const profile::GrowthError error = collect_growth(growth, query);
  if (error != profile::GrowthError::kNone) return name_error(error, query);
  change = sum_of(growth);
  return 0;
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_profile_report(FILE* stream, const char* options) {
  using namespace qk::mem;
  ensure_started();
  return leave_code(stream == nullptr ? qk_error_no(EFAULT) : report_to(stream, options));
}

extern "C" int qk_mem_lost(FILE* stream) {
  using namespace qk::mem;
  ensure_started();
  return leave_code(stream == nullptr ? qk_error_no(EFAULT) : lost_to(stream));
}

extern "C" qk_mem_change qk_mem_growth(const char* since, const char* filter) {
  using namespace qk::mem;
  ensure_started();
  qk_mem_change change = {INT64_MAX, INT64_MAX, INT64_MAX};
  leave_code(measure_growth(since, filter, change));
  return change;
}
