#include "config/check_options.h"

#include <cstring>
#include <string_view>

#include "check/settings.h"
#include "config/option_values.h"
#include "config/profile_words.h"
#include "support/options.h"
#include "support/text.h"

namespace qk::mem {
namespace {

constexpr char kFindings[] = "FINDINGS";
constexpr std::string_view kFront = "FRONT";

std::uint32_t rounded_up(std::uint64_t bytes) {
  return static_cast<std::uint32_t>((bytes + check::kGuardStep - 1) / check::kGuardStep *
                                    check::kGuardStep);
}

bool set_guard_bytes(check::Options& options, std::string_view value) {
  const auto bytes = read_number(value, check::kMostGuardBytes);
  if (!bytes || *bytes == 0) return false;
  options.guard_bytes = rounded_up(*bytes);
  return true;
}

/** Bytes, FRONT, or both with a comma between them. */
bool set_guard(check::Options& options, const char* value) {
  options.guard_bytes = check::kUsualGuard;
  if (value == nullptr) return true;
  const std::string_view text = value;
  if (equal_ignoring_case(text, kFront)) {
    options.guards_front = true;
    return true;
  }
  const std::size_t comma = text.find(',');
  if (!set_guard_bytes(options, text.substr(0, comma))) return false;
  if (comma == std::string_view::npos) return true;
  options.guards_front = equal_ignoring_case(text.substr(comma + 1), kFront);
  return options.guards_front;
}

bool set_fill(check::Options& options, const char* /*value*/) {
  options.fills = true;
  return true;
}

bool set_quarantine_bytes(check::Options& options, const char* value) {
  const auto bytes = value == nullptr ? check::kUsualQuarantine : read_bytes(value);
  if (bytes) options.quarantine_bytes = *bytes;
  return bytes.has_value();
}

/** A number above 0. */
bool set_number(std::uint64_t& option, const char* value) {
  const auto number = read_number(value, INT64_MAX);
  if (!number || *number == 0) return false;
  option = *number;
  return true;
}

bool set_scan(check::Options& options, const char* value) {
  return set_number(options.scan_events, value);
}

bool set_break(check::Options& options, const char* value) {
  return set_number(options.break_event, value);
}

bool set_remembered(check::Options& options, const char* value) {
  const auto blocks = read_number(value, UINT32_MAX);
  if (blocks) options.history = *blocks;
  return blocks.has_value();
}

bool set_abort(check::Options& options, const char* /*value*/) {
  options.stops = true;
  return true;
}

bool set_findings(check::Options& options, const char* value) {
  const auto code = read_failing_code(value);
  if (code) options.findings_code = *code;
  return code.has_value();
}

bool set_destination(check::Options& options, const char* value) {
  if (!is_report_name(value)) return false;
  options.report = value;
  return true;
}

constexpr ProfileKeyword<check::Options> kCheckKeywords[] = {
    {"GUARD", qk::kOptionalValue, set_guard},
    {"FILL", qk::kNoValue, set_fill},
    {"QUARANTINE", qk::kOptionalValue, set_quarantine_bytes},
    {"SCAN", qk::kRequiredValue, set_scan},
    {"HISTORY", qk::kRequiredValue, set_remembered},
    {"ABORT", qk::kNoValue, set_abort},
    {"BREAK", qk::kRequiredValue, set_break},
    {kFindings, qk::kRequiredValue, set_findings},
    {"REPORT", qk::kRequiredValue, set_destination},
};

}  // namespace

bool mentions_findings(const char* text) { return ::strcasestr(text, kFindings) != nullptr; }

std::int32_t read_check_options(const char* source, char* text, check::Options& options) {
  options = {};
  return read_profile_words<check::Options>({source}, text, kCheckKeywords, options);
}

WordRules check_word_rules() { return rules_of_words<check::Options, kCheckKeywords>(); }

}  // namespace qk::mem
