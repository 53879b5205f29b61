#include "profile/report/text_report.h"

#include <algorithm>

#include "formats/figures.h"
#include "profile/copies.h"
#include "profile/events.h"
#include "profile/report/misuse_report.h"
#include "profile/report/table.h"
#include "profile/report/text_parts.h"
#include "profile/sampling.h"
#include "support/line.h"
#include "support/shared_variable.h"

namespace qk::mem::profile {
namespace {

void put_peak(qk::Line& line) {
  const Level peak = whole_now();
  const std::uint64_t event = peak.highest_event;
  line.put("; peak ").put(size_figure(peak.highest).text());
  if (peak_tolerance() != 0) {
    line.put(" (within ").put(size_figure(peak_tolerance()).text()).put(")");
  }
  line.put(" at ");
  line.put(time_figure(time_of_event(event)).text());
  line.put(" (event ").put(count_figure(event).text()).put(")");
}

/** Appends "4 others keep 2.0 MiB in 833 blocks", with words for one site and for several. */
void put_kept(qk::Line& line, const Sums& kept, std::string_view of_one, std::string_view of_many) {
  line.put(count_figure(kept.sites).text()).put(kept.sites == 1 ? of_one : of_many);
  put_amount(line, kept.bytes, kept.blocks);
}

void put_losses(qk::Line& line, const Verdict& verdict) {
  if (verdict.lost.blocks == 0) {
    line.put("nothing is lost; ");
    return put_kept(line, verdict.kept, " site keeps ", " sites keep ");
  }
  line.put(count_figure(verdict.lost.sites).text()).put(" site").put(plural(verdict.lost.sites));
  put_amount(line.put(" lost "), verdict.lost.bytes, verdict.lost.blocks);
  if (verdict.kept.blocks != 0) {
    put_kept(line.put("; "), verdict.kept, " other keeps ", " others keep ");
  }
}

void put_verdict(qk::PageWriter& out, const Verdict& verdict, const Style& style,
                 Occasion occasion) {
  qk::Line line;
  put_heading(line.put(style.verdict));
  const Sums& held = verdict.held;
  if (held.blocks == 0) {
    // Blocks that are in no sample can be held nevertheless.
    line.put(sample_interval() == 0 ? "nothing is held; " : "nothing of the sample is held; ");
    line.put(count_figure(verdict.made_blocks).text());
    line.put(" allocation").put(plural(verdict.made_blocks)).put(" of ");
    line.put(size_figure(verdict.made_bytes).text());
    line.put(verdict.made_blocks == 1 ? " was watched" : " were watched");
  } else if (verdict.was_searched) {
    put_losses(line, verdict);
  } else {
    line.put(count_figure(held.sites).text()).put(" site").put(plural(held.sites));
    if (occasion == Occasion::kEnd) line.put(" still");
    line.put(held.sites == 1 ? " holds " : " hold ");
    put_amount(line, held.bytes, held.blocks);
  }
  if (verdict.made_blocks != 0) put_peak(line);
  out.put(line.put(style.end).put('\n').finish());
}

/** What is held, but doesn't count. */
void put_exceptions(qk::PageWriter& out, const Verdict& verdict) {
  if (verdict.autofree.blocks != 0) {
    qk::Line line;
    put_amount(line.put("qkmem: "), verdict.autofree.bytes, verdict.autofree.blocks);
    out.put(line.put(" of AUTOFREE handles go with them\n").finish());
  }
  if (verdict.ignored.blocks != 0) {
    qk::Line line;
    line.put("qkmem: IGNORE leaves out ").put(count_figure(verdict.ignored.sites).text());
    line.put(" site").put(plural(verdict.ignored.sites)).put(" with ");
    put_amount(line, verdict.ignored.bytes, verdict.ignored.blocks);
    out.put(line.put('\n').finish());
  }
}

/** What a reader has to know of the search. */
void put_search(qk::PageWriter& out, const lost::Findings::Summary& search) {
  if (search.obstacle != lost::Obstacle::kNone) {
    qk::Line line;
    line.put("qkmem: not searched for lost blocks: ").put(reason_of(search.obstacle));
    out.put(line.put('\n').finish());
    return;
  }
  if (search.lacks_registers) {
    out.put("qkmem: the registers of other threads could not be searched\n");
  }
  if (search.lacks_heap) {
    out.put("qkmem: the free memory of the heap was searched too, since its form is unknown\n");
  }
}

void put_copies(qk::PageWriter& out) {
  if (copies() == 1) return;
  qk::Line line;
  line.put("qkmem: ").number(copies()).put(" copies of the library are in this process; ");
  line.put("this is the report of the one in ").put(module_of_this_copy());
  out.put(line.put('\n').finish());
}

/** Sites of few short-lived blocks are not worth a line. */
constexpr std::uint64_t kLeastFreedSoon = 1000;

bool churns(const Row& row) {
  return row.freed_soon >= kLeastFreedSoon && 2 * row.freed_soon >= row.made_blocks;
}

/** One part of a report: which rows it shows, and in which order. */
struct Part {
  std::string_view title;  // a line of its own; none if it is empty
  Sort order;
  bool (*wants)(const Row& row);
};

/** Appends a part, if there is a row for it. */
template <std::size_t N, class CellsOf>
void put_part(qk::PageWriter& out, std::span<Row> all, const ShownFrames& frames,
              const Style& style, const Part& part, std::uint32_t top, const Headings<N>& headings,
              CellsOf cells_of) {
  const auto end = std::partition(all.begin(), all.end(), part.wants);
  const std::span<Row> wanted(all.begin(), end);
  if (wanted.empty()) return;
  sort_rows(wanted, part.order);
  put_rows<N>(out, wanted, frames, style, part.title, top, headings, cells_of);
}

void put_lost(qk::PageWriter& out, std::span<Row> rows, const ShownFrames& frames,
              const Options& options, const Style& style) {
  const Part part = {"", Sort::kLost, [](const Row& row) { return row.losses.lost.blocks != 0; }};
  put_part<5>(out, rows, frames, style, part, options.top,
              {"lost", "blocks", "with them", "kept", "handle", "site"}, [](const Row& row) {
                return Cells<5>{size_figure(lost_by(row).bytes), count_figure(lost_by(row).blocks),
                                size_figure(row.losses.with_owner.bytes),
                                size_figure(kept_by(row).bytes), handle_figure(row)};
              });
}

void put_held(qk::PageWriter& out, std::span<Row> rows, const ShownFrames& frames,
              const Options& options, const Style& style, std::uint64_t all_bytes,
              std::string_view title) {
  const Part part = {title, options.sort, [](const Row& row) { return row.live_blocks != 0; }};
  if (sample_interval() != 0) {
    return put_part<6>(
        out, rows, frames, style, part, options.top,
        {"bytes", "error", "blocks", "share", "made", "handle", "site"}, [=](const Row& row) {
          return Cells<6>{
              size_figure(row.live_bytes),   size_figure(standard_error(row.live_bytes)),
              count_figure(row.live_blocks), percent_figure(row.live_bytes, all_bytes),
              count_figure(row.made_blocks), handle_figure(row)};
        });
  }
  put_part<5>(out, rows, frames, style, part, options.top,
              {"bytes", "blocks", "share", "made", "handle", "site"}, [=](const Row& row) {
                return Cells<5>{size_figure(row.live_bytes), count_figure(row.live_blocks),
                                percent_figure(row.live_bytes, all_bytes),
                                count_figure(row.made_blocks), handle_figure(row)};
              });
}

void put_held_at_peak(qk::PageWriter& out, std::span<Row> rows, const ShownFrames& frames,
                      const Options& options, const Style& style) {
  const std::uint64_t all_bytes = whole_now().highest;
  const Part part = {"qkmem: held at the peak\n", Sort::kPeak,
                     [](const Row& row) { return row.bytes_at_peak != 0; }};
  put_part<4>(out, rows, frames, style, part, options.top,
              {"at peak", "share", "now", "handle", "site"}, [=](const Row& row) {
                return Cells<4>{size_figure(row.bytes_at_peak),
                                percent_figure(row.bytes_at_peak, all_bytes),
                                size_figure(row.live_bytes), handle_figure(row)};
              });
}

void put_churn(qk::PageWriter& out, std::span<Row> rows, const ShownFrames& frames,
               const Options& options, const Style& style) {
  const Part part = {"qkmem: churn, blocks that were freed within 16 events\n", Sort::kShort,
                     churns};
  put_part<5>(
      out, rows, frames, style, part, options.top,
      {"freed soon", "made", "bytes made", "mean life", "handle", "site"}, [](const Row& row) {
        return Cells<5>{count_figure(row.freed_soon), count_figure(row.made_blocks),
                        size_figure(row.made_bytes),
                        count_figure(row.sum_of_lives / row.made_blocks), handle_figure(row)};
      });
}

void put_left_out(qk::PageWriter& out) {
  const std::uint32_t handles = qk::load(handles_left_out);
  if (handles == 0) return;
  qk::Line line;
  line.put("qkmem: ").put(count_figure(handles).text()).put(" handle").put(plural(handles));
  line.put(handles == 1 ? " was" : " were");
  out.put(line.put(" not watched: MAX is too small\n").finish());
}

}  // namespace

void put_text_report(qk::PageWriter& out, Rows& rows, const ShownFrames& frames,
                     const Options& options, const Style& style, Occasion occasion,
                     const lost::Findings* findings, Naming naming) {
  const Verdict verdict = judge(rows, occasion, findings);
  put_verdict(out, verdict, style, occasion);
  if (findings != nullptr) put_search(out, findings->summary());
  put_exceptions(out, verdict);
  put_first_misuse(out, style);
  put_copies(out);
  put_sample(out, verdict.held.bytes);
  const auto held_end = std::partition(rows.begin(), rows.end(), [occasion](const Row& row) {
    return counts_as_held(row, occasion);
  });
  if (verdict.was_searched) put_lost(out, {rows.begin(), held_end}, frames, options, style);
  put_held(out, {rows.begin(), held_end}, frames, options, style, verdict.held.bytes,
           verdict.lost.blocks == 0 ? "" : "qkmem: held, lost or not\n");
  put_misuses(out, style, naming, options.skip);
  if (options.peak) put_held_at_peak(out, {rows.begin(), rows.end()}, frames, options, style);
  put_churn(out, {rows.begin(), rows.end()}, frames, options, style);
  put_left_out(out);
  if (verdict.made_blocks != 0) put_own_memory(out);
}

}  // namespace qk::mem::profile
