#include "profile/report/text_parts.h"

#include <unistd.h>

#include "profile/pool.h"
#include "profile/sampling.h"
#include "profile/state.h"

namespace qk::mem::profile {

void put_amount(qk::Line& line, std::uint64_t bytes, std::uint64_t blocks) {
  line.put(size_figure(bytes).text()).put(" in ").put(count_figure(blocks).text());
  line.put(" block").put(plural(blocks));
}

Figure time_figure(std::uint64_t nanoseconds) {
  constexpr std::uint64_t kTenth = 100'000'000;
  if (nanoseconds >= 600 * kTenth) return duration_figure(nanoseconds);
  return Figure([=](qk::Cursor& cursor) {
    cursor.number(nanoseconds / (10 * kTenth)).put('.').number(nanoseconds / kTenth % 10).put(" s");
  });
}

void put_heading(qk::Line& line) {
  line.put("qkmem: ");
  const pid_t process = getpid();
  if (process == first_process()) return;
  line.put("process ").number(static_cast<std::uint64_t>(process)).put(": ");
}

Figure handle_figure(const Row& row) {
  return Figure([&row](qk::Cursor& cursor) {
    if (row.kind != RowKind::kSite) return;
    const Pool& pool = pools.at(row.key.pool);
    cursor.number(static_cast<std::uint64_t>(pool.hid));
    const char* const tag = tag_levels.at(pool.tag).name;
    if (*tag != '\0') cursor.put(' ').put(tag);
  });
}

void put_sample(qk::PageWriter& out, std::uint64_t bytes) {
  if (sample_interval() == 0) return;
  qk::Line line;
  line.put("qkmem: estimates from a sample, SAMPLE=").number(sample_interval());
  if (bytes != 0) {
    line.put("; ").put(size_figure(bytes).text()).put(" have a standard error of ");
    line.put(size_figure(standard_error(bytes)).text());
  }
  out.put(line.put('\n').finish());
}

void put_own_memory(qk::PageWriter& out) {
  qk::Line line;
  line.put("qkmem: the profile took ").put(size_figure(own_bytes()).text());
  out.put(line.put(" of its own\n").finish());
}

}  // namespace qk::mem::profile
