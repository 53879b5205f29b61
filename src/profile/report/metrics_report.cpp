#include "profile/report/metrics_report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "formats/openmetrics.h"
#include "profile/copies.h"
#include "profile/pool.h"
#include "support/shared_variable.h"

namespace qk::mem::profile {
namespace {

template <class Visit>
void for_each_pool(Visit visit) {
  for (std::uint32_t number = 1; number <= pools.count(); ++number) visit(pools.at(number));
}

/** Calls `visit` with the pools of handles that there are. */
template <class Visit>
void for_each_live_pool(Visit visit) {
  for_each_pool([visit](const Pool& pool) {
    if (qk::load(pool.is_alive) != 0) visit(pool);
  });
}

std::int64_t as_value(std::uint64_t figure) { return static_cast<std::int64_t>(figure); }

MetricLabels labels_of(const Pool& pool) {
  return {.handle = pool.hid, .tag = tag_levels.at(pool.tag).name};
}

}  // namespace

bool put_metrics_report(qk::PageBuffer& out) {
  OpenMetricsWriter writer(program_invocation_short_name, getpid(), number_of_this_copy(), out);
  writer.begin(MetricFamily::kTagBytes);
  for (std::uint32_t tag = 1; tag <= tag_levels.count(); ++tag) {
    writer.sample({.tag = tag_levels.at(tag).name}, as_value(live_bytes_of_tag(tag)));
  }
  writer.begin(MetricFamily::kHandleBytes);
  for_each_live_pool([&](const Pool& pool) {
    writer.sample(labels_of(pool), as_value(qk::load(pool.level.live)));
  });
  writer.begin(MetricFamily::kHandleBlocks);
  for_each_live_pool([&](const Pool& pool) {
    writer.sample(labels_of(pool), as_value(sums_of(pool).live_blocks));
  });
  std::uint64_t made = 0;
  std::uint64_t untracked = 0;
  for_each_pool([&](const Pool& pool) {
    made += sums_of(pool).made_blocks;
    untracked += qk::load(pool.from_before.live_bytes) + qk::load(pool.not_recorded.live_bytes);
  });
  writer.begin(MetricFamily::kAllocations);
  writer.sample({}, as_value(made));
  writer.begin(MetricFamily::kPeakBytes);
  writer.sample({}, as_value(whole_now().highest));
  writer.begin(MetricFamily::kUntrackedBytes);
  writer.sample({}, as_value(untracked));
  return writer.finish();
}

}  // namespace qk::mem::profile
