#include "tests/kit/profile.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>

#include "config/profile_options.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "formats/figures.h"
#include "profile/report/place.h"
#include "profile/report/text_report.h"
#include "profile/sampling.h"
#include "profile/site_table.h"
#include "qkmem/profile.h"
#include "table/slot.h"
#include "tests/kit/scene.h"

namespace kit {
namespace {

using namespace qk::mem;
namespace profile = qk::mem::profile;
using profile::Row;
using profile::Site;

template <class Wanted>
Row find_row(Wanted wanted) {
  profile::Rows rows(profile::rows_needed());
  profile::collect_rows(rows);
  for (const Row& row : rows) {
    if (wanted(row)) return row;
  }
  return {};
}

std::string amount(std::uint64_t blocks, std::uint64_t bytes) {
  return std::to_string(blocks) + " for " + std::to_string(bytes);
}

struct Sums {
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;
  std::uint64_t at_peak = 0;

  void add(const Site& site) {
    bytes += site.live_bytes;
    blocks += site.live_blocks;
    at_peak += profile::bytes_at_peak(site);
  }
  [[nodiscard]] std::string text() const { return amount(blocks, bytes); }
};

Sums figures_of(const profile::Pool& pool) {
  Sums sums;
  sums.add(pool.from_before);
  sums.add(pool.not_recorded);
  for (std::uint32_t number = pool.first_site; number != profile::kNoSite;
       number = profile::sites.at(number).next_of_pool) {
    sums.add(profile::sites.at(number));
  }
  return sums;
}

/** The program's memory in the records of a handle. */
Sums recorded_on(const qk_mem_handle& handle) {
  Sums sums;
  const RegistryLock lock;
  for_each_record(handle, [&](const qk_mem_ptr& record) {
    if (!belongs_to_program(record.kind)) return;
    sums.bytes += bytes_of(record);
    ++sums.blocks;
  });
  return sums;
}

class Errors {
 public:
  void expect_equal(const std::string& what, const std::string& left, const std::string& right) {
    if (left != right) text_ += what + ": " + left + ", but " + right + "\n";
  }
  void expect_equal(const std::string& what, std::uint64_t left, std::uint64_t right) {
    expect_equal(what, std::to_string(left), std::to_string(right));
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

std::string name_of(const profile::Pool& pool) { return "handle " + std::to_string(pool.hid); }

void check_pool(const profile::Pool& pool, Errors& errors) {
  errors.expect_equal(name_of(pool) + " and its sites", pool.level.live, figures_of(pool).bytes);
}

void check_handle(const qk_mem_handle& handle, Errors& errors) {
  if (!profile::is_watched(handle) || handle.track == 0) return;
  if (profile::sample_interval() != 0) return;  // most records are in no sample
  const profile::Pool& pool = profile::pool_of(handle);
  errors.expect_equal(name_of(pool) + " and its records", figures_of(pool).text(),
                      recorded_on(handle).text());
}

}  // namespace

Row site_at(std::string_view file, std::uint32_t line) {
  return find_row([=](const Row& row) {
    return row.kind == profile::RowKind::kSite && row.key.line == line && row.key.file == file;
  });
}

Row site_above(std::string_view file, int line) {
  return site_at(file.substr(file.rfind('/') + 1), static_cast<std::uint32_t>(line - 1));
}

Row row_of(profile::RowKind kind) {
  return find_row([=](const Row& row) { return row.kind == kind; });
}

std::string held_by(const Row& row) {
  return amount(row.live_blocks, row.live_bytes) + ", made " +
         amount(row.made_blocks, row.made_bytes);
}

const profile::Pool& pool_of(int hid) { return profile::pool_of(handle_of(hid)); }

profile::PoolSums sums_of(int hid) { return profile::sums_of(pool_of(hid)); }

std::string profile_errors() {
  Errors errors;
  std::uint64_t live = 0;
  std::uint64_t at_peak = 0;
  for (std::uint32_t number = 1; number <= profile::pools.count(); ++number) {
    const profile::Pool& pool = profile::pools.at(number);
    check_pool(pool, errors);
    live += pool.level.live - static_cast<std::uint64_t>(pool.not_passed_on);
    at_peak += figures_of(pool).at_peak;
  }
  errors.expect_equal("the whole and its handles", profile::whole.live, live);
  // With several threads handles pass their bytes on in steps.
  if (profile::peak_tolerance() == 0) {
    errors.expect_equal("the peak and its sites", profile::whole.highest, at_peak);
  }
  std::uint64_t of_tags = 0;
  for (std::uint32_t number = 1; number <= profile::tag_levels.count(); ++number) {
    of_tags += profile::tag_levels.at(number).level.live;
  }
  errors.expect_equal("the whole and its tags", profile::whole.live, of_tags);
  const RegistryLock lock;
  for_each_handle([&](const qk_mem_handle& handle) { check_handle(handle, errors); });
  return errors.text();
}

namespace {

/** Without what differs from run to run. */
std::string without_chance(const std::string& text) {
  const std::string timed = std::regex_replace(text, std::regex("at [0-9.]+ s "), "at T s ");
  const std::string all_timed =
      std::regex_replace(timed, std::regex(R"((\(event [0-9,]+, )[0-9.]+ s\))"), "$1T s)");
  const std::string exact =
      std::regex_replace(all_timed, std::regex(R"( \(within [0-9.,]+ .?i?B\))"), "");
  return std::regex_replace(exact, std::regex("profile took [0-9.]+ .iB"), "profile took M");
}

/** Calls `visit` with the rows of what a report of growth is about, in the order of places. */
template <class Visit>
void with_growth(const char* options, Visit visit) {
  std::string copy = options;
  ReportRequest request;
  EXPECT_EQ(0, read_report_options("test", copy.data(), request));
  profile::Growth found;
  EXPECT_EQ(profile::GrowthError::kNone, profile::collect_growth(found, request.growth));
  for (const Row& row : found.rows) visit(row);
}

}  // namespace

std::string text_report(const char* options, profile::Occasion occasion) {
  EXPECT_EQ(0, qk_mem_profile_config(options));
  profile::Rows rows(profile::rows_needed());
  profile::collect_rows(rows);
  profile::ShownFrames frames(profile::frames_needed(rows));
  profile::name_callers(rows, frames, profile::Naming::kComplete, profile::options().skip);
  qk::PageBuffer buffer;
  qk::PageWriter out(buffer);
  profile::put_text_report(out, rows, frames, profile::options(), profile::kPlainStyle, occasion);
  const std::string text(buffer.text());
  buffer.clear();
  return without_chance(text);
}

Requested requested(const char* options) {
  char* text = nullptr;
  std::size_t length = 0;
  FILE* const stream = open_memstream(&text, &length);
  const int code = qk_mem_profile_report(stream, options);
  std::fclose(stream);
  Requested result = {code, without_chance(std::string(text, length))};
  std::free(text);
  return result;
}

std::string growth(const char* options) {
  std::string result;
  with_growth(options, [&result](const Row& row) {
    const profile::Change change = profile::change_of(row);
    if (!change.is_growth() && !change.is_shrinkage()) return;
    qk::Line line;
    profile::put_bare_place(line.put(result.empty() ? "" : " "), row);
    line.put(' ').put(count_change_figure(change.bytes).text());
    line.put(" in ").put(count_change_figure(change.blocks).text());
    result += line.finish();
  });
  return result;
}

profile::Change growth_at(const char* options, std::string_view file, std::uint32_t line) {
  profile::Change result;
  with_growth(options, [&](const Row& row) {
    if (row.key.file != nullptr && row.key.file == file && row.key.line == line) {
      result = profile::change_of(row);
    }
  });
  return result;
}

}  // namespace kit
