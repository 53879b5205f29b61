#ifndef QKMEM_TOOLS_VIEWS_GROUPS_H_
#define QKMEM_TOOLS_VIEWS_GROUPS_H_

#include <optional>
#include <string>
#include <vector>

#include "views/query.h"

namespace qk::command {

/** Sites that the user wants to see as one, and what they come to. */
struct Group {
  std::string name;
  std::optional<HandleIndex> handle;  // if it is on one
  std::vector<SiteIndex> sites;
  Figures figures;
};

/** Which of a group's figures is its size. */
using AmountOf = Amount (*)(const Query& query, const Figures& figures);

/** What a group has at the moment that was asked for. */
[[nodiscard]] Amount amount_of(const Query& query, const Figures& figures);

/** What it has that was never released. */
[[nodiscard]] Amount left_of(const Query& query, const Figures& figures);

/** All groups that had anything, the largest first. */
[[nodiscard]] std::vector<Group> groups_of(const Query& query, const Ledger& ledger, Sort sort,
                                           AmountOf amount = &amount_of);

/** The columns that tell groups apart. */
[[nodiscard]] std::vector<Column> columns_of(const Query& query, const Ledger& ledger);

/** Their cells. */
[[nodiscard]] std::vector<Cell> cells_of(const Query& query, const Ledger& ledger,
                                         const Group& group);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_GROUPS_H_
