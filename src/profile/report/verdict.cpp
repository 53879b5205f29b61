#include "profile/report/verdict.h"

namespace qk::mem::profile {

bool counts_as_held(const Row& row, Occasion occasion) {
  return occasion != Occasion::kEnd || !row.is_autofree;
}

Verdict judge(const Rows& rows, Occasion occasion) {
  Verdict verdict;
  for (const Row& row : rows) {
    (counts_as_held(row, occasion) ? verdict.held : verdict.autofree).add(row);
    verdict.made_bytes += row.made_bytes;
    verdict.made_blocks += row.made_blocks;
  }
  return verdict;
}

}  // namespace qk::mem::profile
