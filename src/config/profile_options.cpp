#include "config/profile_options.h"

#include <array>
#include <cstring>
#include <optional>
#include <string_view>

#include "config/option_values.h"
#include "config/profile_words.h"
#include "support/option_words.h"
#include "support/options.h"
#include "support/text.h"
#include "table/tags.h"

namespace qk::mem {
namespace {

using profile::Format;
using profile::GrowthQuery;
using profile::Options;
using profile::Sort;

/** One of several words, by its position. */
template <std::size_t N>
std::optional<std::size_t> read_choice(std::string_view text,
                                       const std::array<std::string_view, N>& choices) {
  for (std::size_t i = 0; i < N; ++i) {
    if (equal_ignoring_case(text, choices[i])) return i;
  }
  return std::nullopt;
}

bool set_depth(Options& options, const char* value) {
  const auto depth = read_number(value == nullptr ? "16" : value, profile::kMaxDepth);
  if (!depth || *depth == 0) return false;
  options.depth = static_cast<std::uint32_t>(*depth);
  return true;
}

bool set_top(Options& options, const char* value) {
  const auto top = read_number(value, UINT32_MAX);
  if (top) options.top = static_cast<std::uint32_t>(*top);
  return top.has_value();
}

bool set_sort(Options& options, const char* value) {
  constexpr std::array<std::string_view, 5> kSorts = {"BYTES", "BLOCKS", "PEAK", "MADE", "SHORT"};
  const auto sort = read_choice(value, kSorts);
  if (sort) options.sort = static_cast<Sort>(*sort);
  return sort.has_value();
}

bool set_format(Options& options, const char* value) {
  constexpr std::array<std::string_view, 4> kFormats = {"TEXT", "JSON", "PPROF", "OPENMETRICS"};
  const auto format = read_choice(value, kFormats);
  if (format) options.format = static_cast<Format>(*format);
  return format.has_value();
}

bool set_report(Options& options, const char* value) {
  if (!is_report_name(value)) return false;
  options.report = value;
  return true;
}

bool set_skip(Options& options, const char* value) {
  options.skip = value;
  return true;
}

bool set_every(Options& options, const char* value) {
  constexpr std::uint64_t kCentury = std::uint64_t{100} * 366 * 86400;
  const auto seconds = read_number(value, kCentury);
  if (!seconds || *seconds == 0) return false;
  options.every_seconds = *seconds;
  return true;
}

bool set_control(Options& options, const char* value) {
  options.control = value;
  return true;
}

bool set_max(Options& options, const char* value) {
  const auto bytes = read_bytes(value);
  if (bytes) options.max_bytes = *bytes;
  return bytes.has_value();
}

bool set_sample(Options& options, const char* value) {
  const auto bytes = read_bytes(value);
  if (!bytes || *bytes == 0) return false;
  options.sample_bytes = *bytes;
  return true;
}

bool set_history(Options& options, const char* value) {
  const auto blocks = read_number(value, UINT32_MAX);
  if (blocks) options.history = *blocks;
  return blocks.has_value();
}

bool set_leaks(Options& options, const char* value) {
  const auto code = read_failing_code(value);
  if (code) options.leaks_code = *code;
  return code.has_value();
}

bool set_ignore(Options& options, const char* value) {
  options.ignore = value;
  return true;
}

bool set_record(Options& options, const char* value) {
  const char* const name = value == nullptr ? "%n.%p.qkm" : value;
  if (!is_report_name(name)) return false;
  options.record = name;
  return true;
}

bool set_record_max(Options& options, const char* value) {
  constexpr std::uint64_t kLeast = std::uint64_t{1} << 20;
  const auto bytes = read_bytes(value);
  if (!bytes || *bytes < kLeast) return false;
  options.record_max = *bytes;
  return true;
}

bool set_lost(Options& options, const char* /*value*/) {
  options.lost = true;
  return true;
}

bool set_sites(Options& /*options*/, const char* /*value*/) { return true; }

bool set_peak(Options& options, const char* /*value*/) {
  options.peak = true;
  return true;
}

constexpr char kStacks[] = "STACKS";
constexpr char kLeaks[] = "LEAKS";

constexpr ProfileKeyword<Options> kKeywords[] = {
    {"SITES", qk::kNoValue, set_sites},
    {kStacks, qk::kOptionalValue, set_depth},
    {"PEAK", qk::kNoValue, set_peak},
    {"LOST", qk::kNoValue, set_lost},
    {"TOP", qk::kRequiredValue, set_top},
    {"SORT", qk::kRequiredValue, set_sort},
    {"REPORT", qk::kRequiredValue, set_report},
    {"FORMAT", qk::kRequiredValue, set_format},
    {"SKIP", qk::kRequiredValue, set_skip},
    {"EVERY", qk::kRequiredValue, set_every},
    {"CONTROL", qk::kRequiredValue, set_control},
    {"MAX", qk::kRequiredValue, set_max},
    {"SAMPLE", qk::kRequiredValue, set_sample},
    {"HISTORY", qk::kRequiredValue, set_history},
    {kLeaks, qk::kRequiredValue, set_leaks},
    {"IGNORE", qk::kRequiredValue, set_ignore},
    {"RECORD", qk::kOptionalValue, set_record},
    {"RECORD_MAX", qk::kRequiredValue, set_record_max},
};

bool set_since(GrowthQuery& query, const char* value) {
  query.since = value;
  return true;
}

bool set_until(GrowthQuery& query, const char* value) {
  query.until = value;
  return true;
}

bool set_handle(GrowthQuery& query, const char* value) { return read_handle(value, query.filter); }

bool set_tag(GrowthQuery& query, const char* value) { return read_tag(value, query.filter); }

bool set_file(GrowthQuery& query, const char* value) {
  query.filter.file = value;
  return true;
}

constexpr ProfileKeyword<GrowthQuery> kFilterKeywords[] = {
    {"HANDLE", qk::kRequiredValue, set_handle},
    {"TAG", qk::kRequiredValue, set_tag},
    {"FILE", qk::kRequiredValue, set_file},
};

template <auto Set>
bool set_option(ReportRequest& request, const char* value) {
  return Set(request.options, value);
}

template <auto Set>
bool set_query(ReportRequest& request, const char* value) {
  return Set(request.growth, value);
}

constexpr ProfileKeyword<ReportRequest> kReportKeywords[] = {
    {"PEAK", qk::kNoValue, set_option<set_peak>},
    {"TOP", qk::kRequiredValue, set_option<set_top>},
    {"SORT", qk::kRequiredValue, set_option<set_sort>},
    {"FORMAT", qk::kRequiredValue, set_option<set_format>},
    {"SKIP", qk::kRequiredValue, set_option<set_skip>},
    {"SINCE", qk::kRequiredValue, set_query<set_since>},
    {"UNTIL", qk::kRequiredValue, set_query<set_until>},
    {"HANDLE", qk::kRequiredValue, set_query<set_handle>},
    {"TAG", qk::kRequiredValue, set_query<set_tag>},
    {"FILE", qk::kRequiredValue, set_query<set_file>},
};

}  // namespace

bool read_handle(const char* value, profile::SiteFilter& filter) {
  const auto handle = read_number(value, INT32_MAX);
  if (!handle || *handle == 0) return false;
  filter.handle = static_cast<std::int32_t>(*handle);
  return true;
}

bool read_tag(const char* value, profile::SiteFilter& filter) {
  const bool is_none = equal_ignoring_case(value, "NONE");
  if (!is_none && std::strlen(value) > kTagLength) return false;
  filter.has_tag = true;
  qk::copy_text(filter.tag, sizeof filter.tag, is_none ? "" : value);
  qk::upper_case(filter.tag);
  return true;
}

bool mentions_stacks(const char* text) { return ::strcasestr(text, kStacks) != nullptr; }

bool mentions_leaks(const char* text) { return ::strcasestr(text, kLeaks) != nullptr; }

std::int32_t read_profile_options(const char* source, char* text, Options& options) {
  options = {};
  return read_profile_words<Options>({source}, text, kKeywords, options);
}

WordRules profile_word_rules() { return rules_of_words<Options, kKeywords>(); }

std::int32_t read_report_options(const char* source, char* text, ReportRequest& request) {
  return read_profile_words<ReportRequest>({source}, text, kReportKeywords, request);
}

std::int32_t read_growth_filter(const char* source, char* text, profile::GrowthQuery& query) {
  return read_profile_words<GrowthQuery>({source, "There is no answer."}, text, kFilterKeywords,
                                         query);
}

}  // namespace qk::mem
