#ifndef QKMEM_TOOLS_VIEWS_SHEETS_H_
#define QKMEM_TOOLS_VIEWS_SHEETS_H_

#include "views/query.h"

/** Tables of groups, one each for what commands ask about. */
namespace qk::command {

[[nodiscard]] Sheet sheet_of_top(const Query& query, const Ledger& ledger);
[[nodiscard]] Sheet sheet_of_leaks(const Query& query, const Ledger& ledger);
[[nodiscard]] Sheet sheet_of_peak(const Query& query, const Ledger& ledger);
[[nodiscard]] Sheet sheet_of_churn(const Query& query, const Ledger& ledger);
[[nodiscard]] Sheet sheet_of_lives(const Query& query, const Ledger& ledger);

/** A column of lives, in the unit of the ledger's clock. `key` and the unit name it for machines. */
[[nodiscard]] Column life_column(const Ledger& ledger, std::string_view title,
                                 std::string_view key_in_events, std::string_view key_in_time);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_SHEETS_H_
