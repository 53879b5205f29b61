#include "views/names.h"

#include <fmt/format.h>

#include "output/words.h"
#include "symbols/folding.h"

namespace qk::command {

std::string name_of(const Handle& handle) {
  std::string name = std::to_string(handle.number);
  if (!handle.tag.empty()) name += fmt::format(" ({})", handle.tag);
  if (!handle.file.empty()) name += fmt::format(" made at {}:{}", handle.file, handle.line);
  return name;
}

std::string_view base_of(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

std::string_view stem_of(std::string_view input) {
  if (input == "-") return "qkmem";
  std::string_view stem = base_of(input);
  for (const std::string_view ending : {".gz", ".zst", ".qkm", ".tdf", ".json"}) {
    if (stem.ends_with(ending)) stem.remove_suffix(ending.size());
  }
  return stem;
}

std::string name_of(const SiteKey& site) {
  if (site.file.empty()) return "no site";
  std::string name = fmt::format("{}:{}", base_of(site.file), site.line);
  if (!site.label.empty()) name += fmt::format(" [{}]", site.label);
  return name;
}

std::string moment_text(const Ledger& ledger, const Moment& moment) {
  std::string text = moment.event == 0 ? "the beginning" : "event " + count_text(moment.event);
  if (ledger.clock() == Clock::kNanoseconds) text += ", " + duration_text(moment.nanoseconds);
  return text;
}

std::string peak_text(const Ledger& ledger) {
  const Amount& peak = ledger.whole().at_peak;
  return (ledger.has_events() ? amount_text(peak) : size_text(peak.bytes)) + " at " +
         moment_text(ledger, ledger.peak_moment());
}

std::string heading_of(const std::string& input, const Ledger& ledger) {
  std::string heading = fmt::format("{}: {}, {}, {}", input, counted(ledger.events(), "event"),
                                    counted(ledger.handles().size(), "handle"),
                                    counted(ledger.sites().count(), "site"));
  if (ledger.program().threads.size() > 1) {
    heading += ", " + counted(ledger.program().threads.size(), "thread");
  }
  return heading;
}

std::string short_name(const Frame& frame) {
  std::string name;
  qk::put_short_name(frame.function, [&name](std::string_view piece) { name += piece; });
  return name;
}

std::string name_of(const Frame& frame) {
  if (frame.file.empty()) return short_name(frame);
  std::string place = fmt::format("{}:{}", base_of(frame.file), frame.line);
  // A line of which no function is known stands for it.
  if (frame.function == place) return place;
  return fmt::format("{} ({})", short_name(frame), place);
}

}  // namespace qk::command
