#include "exports/exports.h"
#include "exports/samples.h"
#include "views/sheets.h"

namespace qk::command {

/** A row for each site, with all that is known of it. */
Export write_csv(const Query& query) {
  Reading reading = read(query);
  Sheet sheet;
  sheet.columns = {
      {"handle", "handle", Unit::kCount},
      {"tag", "tag"},
      {"file", "file"},
      {"line", "line", Unit::kCount},
      {"label", "label"},
      {"live", "live_bytes", Unit::kBytes},
      {"blocks", "live_blocks", Unit::kCount},
      {"before", "unsure_bytes", Unit::kBytes},
      {"at peak", "peak_bytes", Unit::kBytes},
      {"blocks", "peak_blocks", Unit::kCount},
      {"own peak", "highest_bytes", Unit::kBytes},
      {"made", "made_bytes", Unit::kBytes},
      {"blocks", "made_blocks", Unit::kCount},
      {"released", "released_blocks", Unit::kCount},
      {"short-lived", "released_soon", Unit::kCount},
      life_column(reading.ledger, "lives", "sum_of_lives_events", "sum_of_lives_nanoseconds"),
      {"largest", "largest_bytes", Unit::kBytes},
      {"first", "first_event", Unit::kCount},
      {"last", "last_event", Unit::kCount}};
  const bool has_events = reading.ledger.has_events();
  const auto if_known = [has_events](std::uint64_t number) {
    return has_events ? Cell(number) : Cell();
  };
  for (const Sample& sample : samples_of(reading)) {
    const Figures& of = *sample.figures;
    sheet.add(static_cast<std::uint64_t>(sample.handle->number), sample.handle->tag,
              std::string(sample.site->file), static_cast<std::uint64_t>(sample.site->line),
              std::string(sample.site->label), of.live.bytes, of.live.blocks, of.before.bytes,
              of.at_peak.bytes, if_known(of.at_peak.blocks), of.highest.bytes, of.made.bytes,
              of.made.blocks, of.released, of.released_soon, if_known(of.lives), of.largest,
              of.first_event, of.last_event);
  }
  Answer answer;
  answer.sheets.push_back(std::move(sheet));
  return {written(answer, Style::kCsv, 0), reading.remarks};
}

}  // namespace qk::command
