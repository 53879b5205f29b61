#include "page/picture.h"

#include <algorithm>
#include <utility>

namespace qk::command {

Picture::Picture(PicturePlan plan)
    : plan_(std::move(plan)),
      rows_(plan_.rows),
      levels_(plan_.rows * plan_.buckets),
      mosts_(plan_.rows * plan_.buckets),
      figures_(plan_.rows * plan_.moments.size()) {}

void Picture::changed(SiteIndex site, const Amount& before, const Amount& now, std::uint64_t time) {
  pass_to(time);
  const std::uint32_t number = site < plan_.row_of.size() ? plan_.row_of[site] : kNoRow;
  if (number == kNoRow) return;
  Row& row = rows_[number];
  if (row.epoch != epoch_) {
    row.epoch = epoch_;
    row.at_highest = row.now.live.bytes;
  }
  row.now.live += now;
  row.now.live -= before;
  row.most = std::max(row.most, row.now.live.bytes);
  whole_ += now.bytes - before.bytes;
  if (whole_ <= highest_) return;
  highest_ = whole_;
  ++epoch_;
}

void Picture::made(SiteIndex site, std::uint64_t bytes) {
  const std::uint32_t number = site < plan_.row_of.size() ? plan_.row_of[site] : kNoRow;
  if (number != kNoRow) rows_[number].now.made += Amount{bytes, 1};
}

void Picture::pass_to(std::uint64_t time) {
  for (; moment_ < plan_.moments.size() && plan_.moments[moment_] < time; ++moment_) {
    for (std::size_t row = 0; row < rows_.size(); ++row) {
      figures_[row * plan_.moments.size() + moment_] = rows_[row].now;
    }
  }
  const std::uint64_t span = std::max<std::uint64_t>(plan_.end - plan_.begin, 1);
  const std::uint64_t passed = std::clamp(time, plan_.begin, plan_.end) - plan_.begin;
  const auto wanted = static_cast<std::size_t>(
      static_cast<double>(passed) / static_cast<double>(span) * static_cast<double>(plan_.buckets));
  while (bucket_ < std::min(wanted, plan_.buckets - 1)) end_bucket();
}

void Picture::end_bucket() {
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    Row& row = rows_[i];
    const bool is_since = row.epoch == epoch_;
    levels_[i * plan_.buckets + bucket_] = is_since ? row.at_highest : row.now.live.bytes;
    mosts_[i * plan_.buckets + bucket_] = row.most;
    row.most = row.now.live.bytes;
  }
  highest_ = whole_;
  ++epoch_;
  ++bucket_;
}

void Picture::finish() {
  pass_to(UINT64_MAX);
  while (bucket_ < plan_.buckets) end_bucket();
}

}  // namespace qk::command
