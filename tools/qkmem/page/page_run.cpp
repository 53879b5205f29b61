#include "page/page_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace qk::command {
namespace {

constexpr std::size_t kBuckets = 2'000;  // as many as a screen has columns
constexpr std::size_t kMoments = 200;

void refuse_what_can_be_read_once(const std::string& input) {
  std::error_code error;
  if (input != "-" && !std::filesystem::exists(input, error)) return;  // read() says so
  if (input == "-" || !std::filesystem::is_regular_file(input, error)) {
    throw UsageError(fmt::format("a page reads its input twice, and {} can be read only once",
                                 shown_name(input)));
  }
}

/** Evenly over the run, and the peak, and the end. */
std::vector<std::uint64_t> moments_of(std::uint64_t begin, std::uint64_t peak, std::uint64_t end) {
  constexpr std::size_t kEven = kMoments - 1;
  std::vector<std::uint64_t> moments = {peak, end};
  for (std::size_t i = 1; i < kEven; ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(kEven);
    moments.push_back(begin + static_cast<std::uint64_t>(part * static_cast<double>(end - begin)));
  }
  std::sort(moments.begin(), moments.end());
  moments.erase(std::unique(moments.begin(), moments.end()), moments.end());
  return moments;
}

PicturePlan plan_of(const PageRun& run) {
  const Ledger& ledger = run.reading.ledger;
  PicturePlan plan;
  plan.end = ledger.on_clock(ledger.last());
  plan.begin = std::min(ledger.on_clock(ledger.first()), plan.end);
  plan.buckets = kBuckets;
  plan.rows = run.rows.rows.size();
  plan.row_of.assign(ledger.sites().count(), kNoRow);
  for (std::size_t row = 0; row < plan.rows; ++row) {
    for (const SiteIndex site : run.rows.rows[row].sites) {
      plan.row_of[site] = static_cast<std::uint32_t>(row);
    }
  }
  const std::uint64_t peak = ledger.on_clock(ledger.peak_moment());
  plan.moments = moments_of(plan.begin, std::clamp(peak, plan.begin, plan.end), plan.end);
  return plan;
}

/** Reads as far as the first time, also if the program has gone on since. */
Picture picture_of(const PageRun& run) {
  Picture picture(plan_of(run));
  Query again = run.query;
  again.at_moment = Moment{run.reading.ledger.last().event, UINT64_MAX};
  Reading reading(again);
  reading.ledger.tell(picture);
  read(again, reading, {});
  picture.finish();
  return picture;
}

}  // namespace

PageRun read_page_run(const Query& query) {
  refuse_what_can_be_read_once(query.input);
  PageRun run = {query, read(query), {}, std::nullopt, 0};
  const Ledger& ledger = run.reading.ledger;
  if (!ledger.program().stacks.empty()) name_calls(run.reading);
  run.rows = rows_of(query, ledger);
  if (!ledger.has_events()) return run;
  run.picture.emplace(picture_of(run));
  const std::vector<std::uint64_t>& moments = run.picture->plan().moments;
  const auto found =
      std::lower_bound(moments.begin(), moments.end(), ledger.on_clock(ledger.peak_moment()));
  run.peak =
      std::min<std::size_t>(static_cast<std::size_t>(found - moments.begin()), moments.size() - 1);
  return run;
}

}  // namespace qk::command
