#include "profile/report/pprof_report.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "formats/pprof.h"
#include "profile/events.h"
#include "profile/labels.h"
#include "profile/report/place.h"
#include "profile/sampling.h"
#include "profile/stacks.h"
#include "support/line.h"

namespace qk::mem::profile {
namespace {

/** A signal can interrupt a report. */
constinit qk::PageArena tables;
constinit qk::PageArena tables_at_a_signal;

constexpr int kMostLocations = qk::kMostFrames + 1;

/** A module that has code, and its number in the profile. */
struct Mapped {
  const qk::KnownModule* module;
  PprofMapping number;
};
constexpr std::size_t kMostModules = 512;

class Report {
 public:
  /** @param begin, end  of the time that the profile covers, since the start of the clock. */
  Report(qk::PageBuffer& out, Naming naming, std::uint64_t begin, std::uint64_t end)
      : naming_(naming),
        writer_(
            {.time_nanos = static_cast<std::int64_t>(start_of_clock() + begin),
             .duration_nanos = static_cast<std::int64_t>(end - begin),
             .period = static_cast<std::int64_t>(std::max<std::uint64_t>(sample_interval(), 1))},
            out, naming == Naming::kComplete ? tables : tables_at_a_signal) {
    add_mappings(modules.newest());
  }

  void add(const Row& row) {
    const Change change = change_of(row);
    const PprofValues values = {.alloc_objects = static_cast<std::int64_t>(change.made_blocks),
                                .alloc_space = static_cast<std::int64_t>(change.made_bytes),
                                .inuse_objects = change.blocks,
                                .inuse_space = change.bytes};
    if (values == PprofValues{}) return;
    std::array<PprofLocation, kMostLocations> locations;
    std::size_t count = 0;
    locations[count++] = place_of(row);
    const Stack stack = program_stack(row, naming_);
    for (int i = 0; i < stack.depth; ++i) locations[count++] = location_of(stack.frames[i]);
    add_sample(row, {locations.data(), count}, values);
  }

  [[nodiscard]] bool is_complete() const { return writer_.finish(); }

 private:
  /** The oldest one is the program, which viewers take the first one for. */
  void add_mappings(const qk::KnownModule* newest) {
    if (newest == nullptr) return;
    add_mappings(newest->next);
    add_mapping(*newest);
  }

  void add_mapping(const qk::KnownModule& module) {
    if (module.code_ranges == 0 || mapped_ == kMostModules) return;
    const qk::AddressRange code = module.code[0];
    const bool is_named = naming_ == Naming::kComplete;
    mappings_[mapped_++] = {&module, writer_.add_mapping({.start = code.begin,
                                                          .limit = code.end,
                                                          .offset = code.begin - module.base,
                                                          .file = module.path,
                                                          .build_id = module.build_id.text(),
                                                          .has_functions = is_named,
                                                          .has_file_names = is_named,
                                                          .has_line_numbers = is_named,
                                                          .has_inline_frames = is_named})};
  }

  [[nodiscard]] PprofMapping mapping_of(const qk::KnownModule* module) const {
    for (std::size_t i = 0; i < mapped_; ++i) {
      if (mappings_[i].module == module) return mappings_[i].number;
    }
    return {};
  }

  PprofLocation place_of(const Row& row) {
    qk::Line name;
    put_bare_place(name, row);
    const PprofFunction function =
        writer_.function(name.finish(), row.key.file == nullptr ? "" : row.key.file);
    return writer_.location_of({function, static_cast<std::int64_t>(row.key.line)});
  }

  PprofLocation location_of(std::uintptr_t address) {
    const PprofLocation known = writer_.find_location(address);
    if (known != PprofLocation{}) return known;
    NamedFrames frames;
    const int count = name_frames({&address, 1}, naming_, frames);
    std::array<PprofLine, kMostNamed> lines;
    std::size_t named = 0;
    for (int i = 0; i < count; ++i) {
      if (frames[i].function.empty()) continue;
      lines[named++] = {writer_.function(frames[i].function, frames[i].file), frames[i].line};
    }
    const PprofMapping mapping = count == 0 ? PprofMapping{} : mapping_of(frames[0].module);
    return writer_.add_location(address, mapping, {lines.data(), named});
  }

  void add_sample(const Row& row, std::span<const PprofLocation> locations,
                  const PprofValues& values) {
    std::array<PprofLabel, 3> labels;
    std::size_t count = 0;
    qk::Line label;
    if (row.kind == RowKind::kSite) {
      const Pool& pool = pools.at(row.key.pool);
      labels[count++] = {.key = writer_.text("handle"), .number = pool.hid};
      labels[count++] = {.key = writer_.text("tag"),
                         .text = writer_.text(tag_levels.at(pool.tag).name)};
    }
    if (row.key.label != 0) {
      put_label(label, row.key.label);
      labels[count++] = {.key = writer_.text("label"), .text = writer_.text(label.finish())};
    }
    writer_.add_sample(locations, values, {labels.data(), count});
  }

  Naming naming_;
  std::array<Mapped, kMostModules> mappings_;
  std::size_t mapped_ = 0;
  PprofWriter writer_;
};

}  // namespace

bool put_pprof_report(qk::PageBuffer& out, const Rows& rows, Naming naming) {
  Report report(out, naming, 0, time_now());
  for (const Row& row : rows) report.add(row);
  return report.is_complete();
}

bool put_pprof_growth(qk::PageBuffer& out, const Growth& growth, Naming naming) {
  Report report(out, naming, growth.period.begin.time, growth.period.end.time);
  for (const Row& row : growth.rows) report.add(row);
  return report.is_complete();
}

}  // namespace qk::mem::profile
