#include "exports/exports.h"

#include <array>

#include "views/names.h"

namespace qk::command {
namespace {

constexpr std::array<ExportFormat, 8> kFormats = {{
    {"pprof", "", ".pb.gz", "go tool pprof -http=:", &write_pprof},
    {"dhat", "", ".dhat.json", "in /usr/libexec/valgrind/dh_view.html load", &write_dhat},
    {"heaptrack", "", ".heaptrack", "heaptrack_print", &write_heaptrack},
    {"speedscope", "", ".speedscope.json", "speedscope", &write_speedscope},
    {"folded", "", ".folded", "flamegraph.pl", &write_folded},
    {"massif", "massif.out.", "", "ms_print", &write_massif},
    {"csv", "", ".csv", "column -ts,", &write_csv},
    {"openmetrics", "", ".prom", "promtool check metrics <", &write_openmetrics},
}};

}  // namespace

std::span<const ExportFormat> export_formats() { return kFormats; }

const ExportFormat& export_format_named(const std::string& name) {
  std::string names;
  for (const ExportFormat& format : kFormats) {
    if (format.name == name) return format;
    names.append(names.empty() ? "" : &format == &kFormats.back() ? " or " : ", ");
    names.append(format.name);
  }
  throw UsageError("--to: '" + name + "' is not " + names);
}

std::string default_name(const ExportFormat& format, const std::string& input) {
  std::string name(format.prefix);
  return name.append(stem_of(input)).append(format.suffix);
}

}  // namespace qk::command
