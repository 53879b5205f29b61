#ifndef QKMEM_TOOLS_PAGE_PICTURE_H_
#define QKMEM_TOOLS_PAGE_PICTURE_H_

#include <cstdint>
#include <vector>

#include "ledger/ledger.h"

namespace qk::command {

/** A row of a picture, in place of a site that no row stands for. */
inline constexpr std::uint32_t kNoRow = UINT32_MAX;

/** Which part of a run a picture is of, and who its rows are. */
struct PicturePlan {
  std::uint64_t begin = 0;  // on the ledger's clock
  std::uint64_t end = 0;
  std::size_t buckets = 0;
  std::size_t rows = 0;
  std::vector<std::uint32_t> row_of;  // by site; several sites can share a row
  std::vector<std::uint64_t>
      moments;  // on the ledger's clock, rising: exact figures are taken there
};

/** What a row has at a moment. */
struct RowFigures {
  Amount live;
  Amount made;  // until then
};

/**
 * The levels of some rows over a run. A bucket has what each row held when the whole was largest in
 * it: so the rows of a bucket add up to a level that really was, and no peak of the whole is lost.
 * Beside it stands the most that each row held in the bucket.
 */
class Picture : public LevelObserver {
 public:
  explicit Picture(PicturePlan plan);

  void changed(SiteIndex site, const Amount& before, const Amount& now,
               std::uint64_t time) override;
  void made(SiteIndex site, std::uint64_t bytes) override;

  /** To be called after the last event. */
  void finish();

  [[nodiscard]] const PicturePlan& plan() const { return plan_; }
  [[nodiscard]] std::uint64_t level(std::size_t row, std::size_t bucket) const {
    return levels_[row * plan_.buckets + bucket];
  }
  [[nodiscard]] std::uint64_t most(std::size_t row, std::size_t bucket) const {
    return mosts_[row * plan_.buckets + bucket];
  }
  [[nodiscard]] const RowFigures& figures(std::size_t row, std::size_t moment) const {
    return figures_[row * plan_.moments.size() + moment];
  }

 private:
  struct Row {
    RowFigures now;
    std::uint64_t at_highest = 0;  // bytes, when the whole was largest in this bucket
    std::uint64_t most = 0;        // bytes, in this bucket
    std::uint64_t epoch = 0;
  };

  void pass_to(std::uint64_t time);
  void end_bucket();

  PicturePlan plan_;
  std::vector<Row> rows_;
  std::vector<std::uint64_t> levels_;
  std::vector<std::uint64_t> mosts_;
  std::vector<RowFigures> figures_;
  std::size_t bucket_ = 0;
  std::size_t moment_ = 0;
  std::uint64_t whole_ = 0;    // bytes
  std::uint64_t highest_ = 0;  // that, in this bucket
  std::uint64_t epoch_ = 1;    // rises with each of those
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_PICTURE_H_
