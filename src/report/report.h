#ifndef QKMEM_REPORT_REPORT_H_
#define QKMEM_REPORT_REPORT_H_

#include <cstdint>
#include <cstdio>

#include "core/handle_array.h"
#include "core/registry.h"
#include "report/filters.h"

/**
 * One report being printed, and the parts that it can have. All of it under the registry's lock.
 */
namespace qk::mem {

struct Report {
  FILE* stream;
  qk_mem_filters filters;
  std::uint32_t sections;
  std::int64_t heap;  // sampled once: every figure of a report is of the same moment

  [[nodiscard]] bool has(std::uint32_t section) const { return (sections & section) != 0; }
};

/** Number and bytes of records. Sums wrap as the counters do that they are made of. */
struct Sum {
  std::uint32_t qty = 0;
  std::uint64_t amount = 0;

  void add(std::uint32_t more_qty, std::uint64_t more_amount) {
    qty += more_qty;
    amount += more_amount;
  }
};

/** Calls `visit` with every handle that the filters keep. */
template <class Visit>
void for_each_kept_handle(const Report& report, Visit visit) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for_each_handle([&](qk_mem_handle& handle) {
    if (!qk_mem_filter_handle(&handle, &report.filters)) visit(handle);
  });
}

/**
 * Marks the handles that have pointers which no baseline covers.
 *
 * @return whether there are such pointers, or handles that no baseline covers.
 */
bool find_growth(const Report& report) QK_REQUIRES(Qk_mem_mtx);

/** Prints the whole report to the log, which no configuration closes meanwhile. */
void dump_to_log();

/** Prints baseline, present state and growth as a table. */
void print_comparison(const Report& report) QK_REQUIRES(Qk_mem_mtx);

/** Prints totals per category and tag, of all handles. */
void print_summary(const Report& report) QK_REQUIRES(Qk_mem_mtx);

/** Prints the rows of handles and pointers that are asked for, with their headings. */
void print_details(const Report& report) QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_REPORT_REPORT_H_
