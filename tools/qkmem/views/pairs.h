#ifndef QKMEM_TOOLS_VIEWS_PAIRS_H_
#define QKMEM_TOOLS_VIEWS_PAIRS_H_

#include <optional>
#include <string>
#include <vector>

#include "views/groups.h"

namespace qk::command {

/** The groups of one of two runs. */
struct Side {
  const Query& query;
  const Ledger& ledger;
  const std::vector<Group>& groups;

  [[nodiscard]] const SiteKey& site(std::size_t group) const {
    return ledger.sites().at(groups[group].sites.front());
  }
};

/** A group of the first run, of the second, or of both, by its place in the groups of each side. */
struct Pair {
  std::optional<std::size_t> before;
  std::optional<std::size_t> after;
};

/**
 * Finds the groups of a run again in a later one of a program that may have been changed since.
 * Handles are the same if their tags are. Sites whose lines have moved keep their order.
 */
[[nodiscard]] std::vector<Pair> paired(const Side& before, const Side& after);

/** Handles of two runs are the same if this is: the tag, or without one the number. */
[[nodiscard]] std::string handle_of(const Side& side, std::size_t group);

/** "net.c:12", or "net.c:12 -> 14" if it has moved. */
[[nodiscard]] std::string name_of(const Side& before, const Side& after, const Pair& pair);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_PAIRS_H_
