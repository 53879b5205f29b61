#ifndef QKMEM_TOOLS_VIEWS_VIEWS_H_
#define QKMEM_TOOLS_VIEWS_VIEWS_H_

#include "views/query.h"

/** The answers of the commands. Each reads the input, and throws what read() throws. */
namespace qk::command {

/** What the user asks --fail about: an answer with `is_found` makes the command end with 1. */
struct Found {
  Answer answer;
  bool is_found = false;
};

/** One screen: what is left, the peak and what held it, what churns, and the level over time. */
[[nodiscard]] Found summarize(const Query& query);
[[nodiscard]] Found summary_of(const Query& query, const Reading& reading);

/** Who has most, by any order. */
[[nodiscard]] Found show_top(const Query& query);

/** Who has blocks that were never released. Found if anybody has. */
[[nodiscard]] Found show_leaks(const Query& query);

/** Who had most when the whole was largest. */
[[nodiscard]] Found show_peak(const Query& query);

/** Who allocates and releases again soon. */
[[nodiscard]] Found show_churn(const Query& query);

/** How long blocks live, in events, all together and by site. */
[[nodiscard]] Found show_lives(const Query& query);

/** How large blocks are. */
[[nodiscard]] Found show_sizes(const Query& query);

/** The level over the events. */
[[nodiscard]] Found show_timeline(const Query& query);

/** Who has called what, by bytes; without stacks, what is on which handle. */
[[nodiscard]] Found show_tree(const Query& query);

/** All that has happened at an address, or to the blocks of a site. */
[[nodiscard]] Found show_history(const Query& query);

/** What a second input has more or less than the first, by site. Found if it has more. */
[[nodiscard]] Found show_difference(const Query& query);
[[nodiscard]] Found difference_of(const Query& query, const Reading& before, const Reading& after);

/** Whether the input is whole. Found if it is not. */
[[nodiscard]] Found check_input(const Query& query);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_VIEWS_H_
