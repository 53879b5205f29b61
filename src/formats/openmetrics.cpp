#include "formats/openmetrics.h"

#include <array>
#include <cstddef>

#include "support/utf8.h"

namespace qk::mem {
namespace {

/**
 * Sites are no label: each would be a series of its own for ever. They are in the profile's other
 * formats.
 */
struct Family {
  std::string_view name;
  std::string_view type;  // empty for the counter, see below
  std::string_view unit;  // the end of the name, or empty
  std::string_view help;  // the same in all versions: readers drop a series with another one
  bool has_handle = false;
  bool has_tag = false;
};

/**
 * In OpenMetrics the TYPE line of a counter names it without "_total"; in the older text format,
 * which promtool and node-exporter's folder of text files read, that line must have the name of the
 * samples. Either reader refuses the other form or loses the help text. A counter without a TYPE
 * line, whose HELP line has the name of its samples, is right for both: its type is "unknown" or
 * "untyped", and queries such as rate() don't ask for it.
 */
constexpr std::array<Family, 6> kFamilies = {{
    {.name = "qkmem_tag_bytes",
     .type = "gauge",
     .unit = "bytes",
     .help = "Live memory on the handles of a tag.",
     .has_tag = true},
    {.name = "qkmem_handle_bytes",
     .type = "gauge",
     .unit = "bytes",
     .help = "Live memory on a handle.",
     .has_handle = true,
     .has_tag = true},
    {.name = "qkmem_handle_blocks",
     .type = "gauge",
     .unit = "",
     .help = "Live allocations on a handle.",
     .has_handle = true,
     .has_tag = true},
    {.name = "qkmem_allocations_total",
     .type = "",
     .unit = "",
     .help = "Allocations since the profile began."},
    {.name = "qkmem_peak_bytes",
     .type = "gauge",
     .unit = "bytes",
     .help = "Most live memory at one time since the profile began."},
    {.name = "qkmem_untracked_bytes",
     .type = "gauge",
     .unit = "bytes",
     .help = "Live memory from before the profile began, or that it could not record."},
}};

static_assert(static_cast<std::size_t>(MetricFamily::kUntrackedBytes) + 1 == kFamilies.size());

const Family& facts_of(MetricFamily family) { return kFamilies[static_cast<std::size_t>(family)]; }

void put_escaped(qk::PageWriter& out, std::string_view utf8) {
  while (!utf8.empty()) {
    const std::size_t plain = utf8.find_first_of("\\\"\n");
    out.put(utf8.substr(0, plain));
    if (plain == std::string_view::npos) return;
    out.put('\\').put(utf8[plain] == '\n' ? 'n' : utf8[plain]);
    utf8.remove_prefix(plain + 1);
  }
}

}  // namespace

void OpenMetricsWriter::begin(MetricFamily family) noexcept {
  family_ = family;
  const Family& facts = facts_of(family);
  put_metadata("# TYPE ", facts.type);
  put_metadata("# UNIT ", facts.unit);
  put_metadata("# HELP ", facts.help);
}

/** A line about the family, if there is something to say. */
void OpenMetricsWriter::put_metadata(std::string_view keyword, std::string_view value) noexcept {
  if (value.empty()) return;
  out_.put(keyword).put(facts_of(family_).name).put(' ').put(value).put('\n');
}

void OpenMetricsWriter::sample(const MetricLabels& labels, std::int64_t value) noexcept {
  const Family& family = facts_of(family_);
  out_.put(family.name).put('{');
  put_text_label("program", program_);
  out_.put(',');
  put_number_label("pid", process_id_);
  if (copy_ != 1) {
    out_.put(',');
    put_number_label("copy", copy_);
  }
  if (family.has_handle) {
    out_.put(',');
    put_number_label("handle", labels.handle);
  }
  if (family.has_tag) {
    out_.put(',');
    put_text_label("tag", labels.tag);
  }
  out_.put("} ").signed_number(value).put('\n');
}

void OpenMetricsWriter::put_text_label(std::string_view name, std::string_view text) noexcept {
  out_.put(name).put("=\"");
  qk::put_as_utf8(text, [this](std::string_view piece) { put_escaped(out_, piece); });
  out_.put('"');
}

void OpenMetricsWriter::put_number_label(std::string_view name, std::int64_t number) noexcept {
  out_.put(name).put("=\"").signed_number(number).put('"');
}

bool OpenMetricsWriter::finish() noexcept {
  out_.put("# EOF\n");
  return !out_.has_failed();
}

}  // namespace qk::mem
