// The section of totals per category and tag.
#include "core/handle_array.h"
#include "core/tag_shares.h"
#include "diag/log.h"
#include "report/report.h"
#include "report/sums.h"

namespace qk::mem {
namespace {

struct Categories {
  Sum total;
  Sum overhead;
  Sum data;
  Sum management;
};

Categories sum_all_handles() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  Categories sums;
  for_each_handle([&](const qk_mem_handle& handle) {
    const Sum data = data_of(handle);
    sums.total.add(data);
    (handle.type == 'O' ? sums.overhead : sums.data).add(data);
    sums.management.add(management_of(handle));
  });
  return sums;
}

void print_tags(FILE* stream) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  fold_tag_shares();
  qk_mem_fprintf(stream, "   Tags:\n");
  for_each_tag([&](const qk_mem_tag& tag) {
    qk_mem_fprintf(stream, "     %2s:       %8u %10zu\n", tag.name, qk::load(tag.qty),
                   qk::load(tag.amount));
  });
  qk_mem_fprintf(stream, "     %4s:     %8u %10zu\n", "NONE", qk::load(Qk_mem_global_tag.qty),
                 qk::load(Qk_mem_global_tag.amount));
}

}  // namespace

void print_summary(const Report& report) {
  assert_registry_held();
  const Categories sums = sum_all_handles();
  FILE* stream = report.stream;
  qk_mem_fprintf(stream, "%s", kRule);
  qk_mem_fprintf(stream, "   Category         Qty        Amt\n");
  qk_mem_fprintf(stream, "   -------------------------------\n");
  qk_mem_fprintf(stream, "   Current:    %8u %10zu\n", sums.total.qty, sums.total.amount);
  qk_mem_fprintf(stream, "   Overhead:   %8u %10zu\n", sums.overhead.qty, sums.overhead.amount);
  qk_mem_fprintf(stream, "   Data:       %8u %10zu\n", sums.data.qty, sums.data.amount);
  qk_mem_fprintf(stream, "   Management: %8u %10zu\n", sums.management.qty, sums.management.amount);
  qk_mem_fprintf(stream, "   Initial:             %10zd\n", Qk_mem_init_heap);
  qk_mem_fprintf(stream, "   Heap:                %10zd\n", report.heap);
  qk_mem_fprintf(stream, "   Untracked:           %10zd\n",
                 untracked_heap(report.heap, sums.total, sums.management));
  print_tags(stream);
}

}  // namespace qk::mem
