// Baseline, current state and growth side by side.
#include "core/kinds.h"
#include "core/tag_shares.h"
#include "diag/log.h"
#include "report/growth.h"
#include "report/report.h"
#include "report/sums.h"

namespace qk::mem {
namespace {

/** The two sums that a row compares. */
struct Growth {
  Sum base;
  Sum now;
};

struct Totals {
  Growth all;
  Growth overhead;
  Growth data;
  Growth management;
};

Growth growth_of(const qk_mem_handle& handle) {
  return {{handle.base_qty, handle.base_amount}, data_of(handle)};
}

Growth growth_of(const qk_mem_tag& tag) { return {{tag.base_qty, tag.base_amount}, data_of(tag)}; }

Growth management_growth_of(const qk_mem_handle& handle) {
  return {{handle.base_overhead_qty, handle.base_overhead_amount}, management_of(handle)};
}

void add(Growth& sum, const Growth& more) {
  sum.base.add(more.base);
  sum.now.add(more.now);
}

Totals sum_kept_handles(const Report& report) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  Totals totals;
  for_each_kept_handle(report, [&](const qk_mem_handle& handle) {
    const Growth growth = growth_of(handle);
    add(totals.all, growth);
    add(handle.type == 'O' ? totals.overhead : totals.data, growth);
    add(totals.management, management_growth_of(handle));
  });
  return totals;
}

/** The baseline's quantity is twice that of the handles, without management (kept oddity). */
Growth handles_plus_management(const Totals& totals) {
  Growth sum = totals.all;
  add(sum, totals.management);
  sum.base.qty = 2 * totals.all.base.qty;
  return sum;
}

void print_row(FILE* stream, const char* description, const Growth& row) {
  const GrowthText growth(row.base.amount, row.now.amount);
  qk_mem_fprintf(stream, "  |%-27s|%5u %9zu|%5u %9zu|%15.15s|\n", description, row.base.qty,
                 row.base.amount, row.now.qty, row.now.amount, growth.c_str());
}

void print_totals(const Report& report, const Totals& totals) {
  FILE* stream = report.stream;
  print_row(stream, "Data handles", totals.data);
  print_row(stream, "Overhead handles", totals.overhead);
  print_row(stream, "Total of all handles", totals.all);
  print_row(stream, "Handle management", totals.management);
  print_row(stream, "Handles plus management", handles_plus_management(totals));
}

void print_heap(const Report& report, const Totals& totals) {
  FILE* stream = report.stream;
  const GrowthText growth(static_cast<unsigned long>(Qk_mem_base_heap),
                          static_cast<unsigned long>(report.heap));
  qk_mem_fprintf(stream, "  |Current heap               |     %10zd|     %10zd|%15.15s|\n",
                 Qk_mem_base_heap, report.heap, growth.c_str());
  qk_mem_fprintf(stream,
                 "  |Initial heap               |               |     %10zd|               |\n",
                 Qk_mem_init_heap);
  qk_mem_fprintf(stream,
                 "  |Untracked memory usage     |               |     %10zd|               |\n",
                 untracked_heap(report.heap, totals.all.now, totals.management.now));
}

void print_tag(FILE* stream, const qk_mem_tag& tag) {
  const Growth row = growth_of(tag);
  const GrowthText growth(row.base.amount, row.now.amount);
  qk_mem_fprintf(stream, "  |  %2s                       |%5u %9zu|%5d %9zu|%15.15s|\n", tag.name,
                 row.base.qty, row.base.amount, static_cast<int>(row.now.qty), row.now.amount,
                 growth.c_str());
}

void print_global_tag(FILE* stream) {
  const Growth row = growth_of(Qk_mem_global_tag);
  const GrowthText growth(row.base.amount, row.now.amount);
  qk_mem_fprintf(stream, "  |  %4s                     |%5u %9zu|%5u %9zu|%15.15s|\n", "NONE",
                 row.base.qty, row.base.amount, row.now.qty, row.now.amount, growth.c_str());
}

void print_tags(const Report& report) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  fold_tag_shares();
  for_each_tag([&](const qk_mem_tag& tag) {
    if (!qk_mem_filter_tag(&tag, &report.filters)) print_tag(report.stream, tag);
  });
  if (!qk_mem_filter_tag(&Qk_mem_global_tag, &report.filters)) print_global_tag(report.stream);
}

void print_handle(FILE* stream, const qk_mem_handle& handle) {
  const Growth row = growth_of(handle);
  const GrowthText growth(row.base.amount, row.now.amount);
  const LocationText location(handle.file, handle.line);
  qk_mem_fprintf(stream, "  |%4d %2s %c%c %-16.16s|%5u %9zu|%5u %9zu|%15.15s|\n", handle.id,
                 handle.tag->name, is_blockmgmt(handle) ? 'B' : ' ',
                 handle.autofree != 0 ? 'A' : ' ', location.c_str(), row.base.qty, row.base.amount,
                 row.now.qty, row.now.amount, growth.c_str());
}

void print_handles(const Report& report, char type) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  bool any = false;
  for_each_kept_handle(report, [&](const qk_mem_handle& handle) {
    if (handle.type != type) return;
    print_handle(report.stream, handle);
    any = true;
  });
  if (!any) qk_mem_fprintf(report.stream, "\n");
}

constexpr char kFrame[] =
    "  -----------------------------------------------------------------------------\n";
constexpr char kSeparator[] =
    "  |---------------------------------------------------------------------------|\n";

}  // namespace

void print_comparison(const Report& report) {
  assert_registry_held();
  FILE* stream = report.stream;
  const Totals totals = sum_kept_handles(report);
  qk_mem_fprintf(stream, "%s", kFrame);
  qk_mem_fprintf(
      stream, "  |                           |    BASELINE   |    CURRENT    |     GROWTH    |\n");
  qk_mem_fprintf(
      stream, "  | Description               |  Qty       Amt|  Qty       Amt|   Pct      Amt|\n");
  qk_mem_fprintf(stream, "%s", kSeparator);
  print_totals(report, totals);
  print_heap(report, totals);
  qk_mem_fprintf(stream, "%s", kSeparator);
  qk_mem_fprintf(
      stream, "  |Tags:                      |               |               |               |\n");
  print_tags(report);
  qk_mem_fprintf(stream, "%s", kSeparator);
  qk_mem_fprintf(
      stream, "  |Hndl Tg Tp Created         |               |               |               |\n");
  qk_mem_fprintf(
      stream, "  |- - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - -|\n");
  print_handles(report, 'O');
  qk_mem_fprintf(
      stream, "  |- - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - -|\n");
  print_handles(report, 'D');
  qk_mem_fprintf(stream, "%s", kFrame);
}

}  // namespace qk::mem
