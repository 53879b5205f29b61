#include "profile/report/forgotten.h"

#include <algorithm>

#include "profile/report/place.h"
#include "profile/report/rows.h"
#include "profile/report/text_parts.h"
#include "profile/sampling.h"

namespace qk::mem::profile {
namespace {

/** The lines that are named. The report shows what others hold while the handle is there. */
constexpr std::size_t kNamedLines = 3;

bool is_same_line(const Row& left, const Row& right) {
  return left.kind == right.kind && std::is_eq(compare_files(left.key.file, right.key.file)) &&
         left.key.line == right.key.line;
}

std::size_t sites_of(const Pool& pool) {
  std::size_t count = 0;
  for_each_site(pool, [&](const Site&) { ++count; });
  return count;
}

/** A row for each line that holds memory, whatever its callers and labels. */
void collect_lines(const Pool& pool, Rows& rows) {
  for_each_site(pool, [&](const Site& site) {
    if (qk::load(site.live_blocks) != 0) rows.push_back(row_of(site, 0));
  });
  merge_equal_places(rows);
  merge_neighbours(rows, is_same_line);
  sort_rows(rows, Sort::kBytes);
}

void put_lines(qk::Line& line, const Rows& rows) {
  const std::size_t named = std::min(rows.size(), kNamedLines);
  for (std::size_t i = 0; i < named; ++i) {
    put_bare_place(line.put(i == 0 ? ", allocated at " : ", "), rows[i]);
    if (rows.size() > 1) line.put(" (").put(size_figure(rows[i].live_bytes).text()).put(')');
  }
  const std::size_t others = rows.size() - named;
  if (others == 0) return;
  line.put(" and at ").put(count_figure(others).text()).put(" other line").put(plural(others));
}

}  // namespace

bool holds_memory(const Pool& pool) { return sums_of(pool).live_blocks != 0; }

void put_forgotten(qk::Line& line, const Pool& pool) {
  if (sample_interval() != 0) line.put("about ");
  put_amount(line, static_cast<std::uint64_t>(qk::load(pool.level.live)),
             sums_of(pool).live_blocks);
  Rows rows(sites_of(pool));
  collect_lines(pool, rows);
  put_lines(line, rows);
}

}  // namespace qk::mem::profile
