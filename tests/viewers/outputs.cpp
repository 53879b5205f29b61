// Writes what the library writes for other programs to standard output, for the scripts beside this
// file, which give it to those programs.
//
// usage: outputs json <VALUES        an array of values, see value() below
//        outputs metrics PROGRAM     metrics of two tags and handles
//        outputs pprof FACTOR        a profile whose values are multiples of FACTOR

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>

#include "formats/json.h"
#include "formats/openmetrics.h"
#include "formats/pprof.h"
#include "support/page_arena.h"
#include "support/page_buffer.h"

namespace {

using namespace qk::mem;

std::string bytes_of(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

/** A line "text HEX", "number N", "signed N" or "decimal N DIGITS". */
void value(const std::string& line, JsonWriter& json) {
  std::istringstream words(line);
  std::string kind;
  std::string what;
  int digits = 0;
  words >> kind >> what >> digits;
  if (kind == "text") json.text(bytes_of(what));
  if (kind == "number") json.number(std::stoull(what));
  if (kind == "signed") json.signed_number(std::stoll(what));
  if (kind == "decimal") json.decimal(std::stoll(what), digits);
}

bool write_json(qk::PageBuffer& out) {
  JsonWriter json(out);
  json.begin_array();
  for (std::string line; std::getline(std::cin, line);) {
    json.start_line();
    value(line, json);
  }
  json.start_line().end_array();
  return json.is_complete();
}

bool write_metrics(const char* program, qk::PageBuffer& out) {
  OpenMetricsWriter metrics(program, 4711, 1, out);
  metrics.begin(MetricFamily::kTagBytes);
  metrics.sample({.tag = "DT"}, 1040);
  metrics.sample({.tag = "\"\\"}, 24);
  metrics.begin(MetricFamily::kHandleBytes);
  metrics.sample({.handle = 1, .tag = "DT"}, 1000);
  metrics.sample({.handle = 2, .tag = "DT"}, 40);
  metrics.begin(MetricFamily::kHandleBlocks);
  metrics.sample({.handle = 1, .tag = "DT"}, 7);
  metrics.begin(MetricFamily::kAllocations);
  metrics.sample({}, 181020);
  metrics.begin(MetricFamily::kPeakBytes);
  metrics.sample({}, 3000000000);
  metrics.begin(MetricFamily::kUntrackedBytes);
  metrics.sample({}, 0);
  return metrics.finish();
}

/** Three sites: one with a stack and an inlined function, one of its line only, one in main(). */
bool write_pprof(std::int64_t factor, qk::PageBuffer& out) {
  static constinit qk::PageArena arena;
  PprofWriter profile({.time_nanos = 1700000000000000000, .duration_nanos = 12400000000}, out,
                      arena);
  const PprofMapping app = profile.add_mapping({.start = 0x400000,
                                                .limit = 0x500000,
                                                .file = "/bin/app",
                                                .build_id = "c0ffee",
                                                .has_functions = true,
                                                .has_file_names = true,
                                                .has_line_numbers = true,
                                                .has_inline_frames = true});
  const PprofText tag = profile.text("tag");
  const PprofText handle = profile.text("handle");
  const PprofLine load[] = {{profile.function("grow", "list.h"), 12},
                            {profile.function("_ZN3app4loadEi", "app.cpp"), 34}};
  const PprofLine main_line = {profile.function("main", "gr\xFCn.cpp"), 300};
  const PprofLocation stack[] = {profile.add_location(0x401234, app, load),
                                 profile.add_location(0x402345, app, {&main_line, 1})};
  const PprofLabel labels[] = {{.key = tag, .text = profile.text("DT")},
                               {.key = handle, .number = 3}};
  profile.add_sample(stack, {10 * factor, 640 * factor, 2 * factor, 128 * factor}, labels);
  const PprofLocation site = profile.location_of({profile.function("parse.c:7", "parse.c"), 7});
  profile.add_sample({&site, 1}, {5 * factor, 500 * factor, 0, 0}, {labels, 1});
  profile.add_sample({stack + 1, 1}, {factor, 3000 * factor, factor, 3000 * factor}, {});
  return profile.finish();
}

bool write(std::string_view what, const char* argument, qk::PageBuffer& out) {
  if (what == "json") return write_json(out);
  if (what == "metrics") return write_metrics(argument, out);
  return what == "pprof" && write_pprof(std::atoll(argument), out);
}

}  // namespace

int main(int count, char** arguments) {
  qk::PageBuffer out;
  if (count < 2 || !write(arguments[1], count > 2 ? arguments[2] : "", out)) return 1;
  std::fwrite(out.text().data(), 1, out.text().size(), stdout);
  out.clear();
}
