#ifndef QKMEM_REPORT_REPORT_H_
#define QKMEM_REPORT_REPORT_H_

#include <cstdint>
#include <cstdio>

#include "core/handle_array.h"
#include "core/registry.h"
#include "report/filters.h"

/** A report and the parts that it can have. All of it runs under the registry's lock. */
namespace qk::mem {

/** The rule above and below a list. */
inline constexpr char kRule[] =
    "   ----------------------------------------------------------------------------\n";

struct Report {
  FILE* stream;
  qk_mem_filters filters;
  std::uint32_t sections;
  std::int64_t heap;  // read once, so that all figures of a report belong together

  [[nodiscard]] bool has(std::uint32_t section) const { return (sections & section) != 0; }
};

/** Calls `visit` with every handle that the filters do not exclude. */
template <class Visit>
void for_each_kept_handle(const Report& report, Visit visit) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for_each_handle([&](qk_mem_handle& handle) {
    if (!qk_mem_filter_handle(&handle, &report.filters)) visit(handle);
  });
}

/**
 * Marks the handles that have pointers without a baseline.
 *
 * @return whether there are such pointers, or handles without a baseline.
 */
bool find_growth(const Report& report) QK_REQUIRES(Qk_mem_mtx);

/** Prints the whole report to the log, and keeps the log open meanwhile. */
void dump_to_log();

/** Prints baseline, current state and growth as a table. */
void print_comparison(const Report& report) QK_REQUIRES(Qk_mem_mtx);

/** Prints totals per category and tag, of all handles. */
void print_summary(const Report& report) QK_REQUIRES(Qk_mem_mtx);

/** Prints the selected rows of handles and pointers, with their headings. */
void print_details(const Report& report) QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_REPORT_REPORT_H_
