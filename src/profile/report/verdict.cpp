#include "profile/report/verdict.h"

namespace qk::mem::profile {

namespace {

Sums& part_of(Verdict& verdict, const Row& row, Occasion occasion) {
  if (counts_as_held(row, occasion)) return verdict.held;
  return ends_with_handle(row, occasion) ? verdict.autofree : verdict.ignored;
}

}  // namespace

bool ends_with_handle(const Row& row, Occasion occasion) {
  return occasion == Occasion::kEnd && row.is_autofree;
}

bool counts_as_held(const Row& row, Occasion occasion) {
  return !ends_with_handle(row, occasion) && !row.is_ignored;
}

Verdict judge(const Rows& rows, Occasion occasion, const lost::Findings* findings) {
  Verdict verdict;
  verdict.was_searched =
      findings != nullptr && findings->summary().obstacle == lost::Obstacle::kNone;
  for (const Row& row : rows) {
    part_of(verdict, row, occasion).add(row);
    if (counts_as_held(row, occasion)) {
      verdict.lost.add(lost_by(row));
      if (row.losses.lost.blocks == 0) verdict.kept.add(kept_by(row));
    }
    verdict.made_bytes += row.made_bytes;
    verdict.made_blocks += row.made_blocks;
  }
  return verdict;
}

}  // namespace qk::mem::profile
