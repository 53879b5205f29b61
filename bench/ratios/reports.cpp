#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/scratch.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kRows = 100000;

std::size_t size_of_row(std::size_t row) { return row % 100 + 1; }

template <class Print>
Run printing(Print print) {
  return [print, file = std::make_shared<ScratchFile>()](std::size_t times) {
    return timed([&] {
      while (times-- != 0) file->rewrite(print);
    });
  };
}

template <class Allocator>
void fill(Allocator& allocator) {
  for (std::size_t row = 0; row < kRows; ++row) use(allocator.allocate(size_of_row(row)));
}

/** Prints the columns of the report from known values. */
Run with_fprintf() {
  return printing([](FILE* stream) {
    for (std::size_t row = 0; row < kRows; ++row) {
      const std::size_t size = size_of_row(row);
      std::fprintf(stream, "   %c%4d %2s %016zx %c  %4zu %8zu %8zu %7zu %s:%d\n", '+', 3, "PE",
                   0x561a316e2f90 + 64 * row, 'M', std::size_t{1}, size, size, row, "reports.cpp",
                   __LINE__);
    }
  });
}

Run with_report() {
  setenv("QK_MEM_DEBUG", "TRACE LOG=NONE", 1);  // read at the first call, which creates the handle
  auto handle = std::make_shared<Qkmem>("DATA");
  fill(*handle);
  return printing([handle](FILE* stream) { qk_mem_dump(stream, "", QK_MEM_DUMP_POINTERS); });
}

#ifdef HAVE_TALLOC
Run with_talloc() {
  auto talloc = std::make_shared<Talloc>();
  fill(*talloc);
  return printing([talloc](FILE* stream) { talloc_report_full(talloc->context(), stream); });
}
#endif

constexpr unsigned kEverySection = QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HEAPSIZE |
                                   QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT | QK_MEM_DUMP_BLOCKS |
                                   QK_MEM_DUMP_POINTERS;

/** Live pointers, spread over some handles. Half of them are older than the baseline. */
class Holding {
 public:
  explicit Holding(std::size_t handles) {
    for (std::size_t i = 0; i < handles; ++i) handles_.push_back(std::make_unique<Qkmem>("DATA"));
    fill_half();
    qk_mem_baseline("");
    fill_half();
  }

 private:
  void fill_half() {
    for (std::size_t row = 0; row < kRows / 2; ++row) {
      use(handles_[row % handles_.size()]->allocate(size_of_row(row)));
    }
  }

  std::vector<std::unique_ptr<Qkmem>> handles_;
};

Run with_sections(unsigned sections, std::size_t handles) {
  setenv("QK_MEM_DEBUG", "TRACE LOG=NONE", 1);  // read at the first call, which the next line makes
  auto holding = std::make_shared<Holding>(handles);
  return printing([holding, sections](FILE* stream) { qk_mem_dump(stream, "", sections); });
}

Workload sections_of(const char* name, const char* what, unsigned sections, std::size_t handles) {
  return {name,
          std::string(what) + " of 100,000 pointers on " + std::to_string(handles) +
              (handles == 1 ? " handle" : " handles") + ", for each pointer",
          kNoGoal,
          kRows,
          Threads::kOne,
          {{"fprintf", with_fprintf}, {"qkmem", [=] { return with_sections(sections, handles); }}}};
}

}  // namespace

std::vector<Workload> report_workloads() {
  return {{"report",
           "Report of 100,000 pointers, for each row",
           0.25,
           kRows,
           Threads::kOne,
           {
               {"fprintf", with_fprintf},
               {"qkmem", with_report},
#ifdef HAVE_TALLOC
               {"talloc", with_talloc},
#endif
           }},
          sections_of("sections_1", "All sections", kEverySection, 1),
          sections_of("sections_1000", "All sections", kEverySection, 1000),
          sections_of("growth_1", "Growth", QK_MEM_DUMP_GROWTH | kEverySection, 1),
          sections_of("growth_1000", "Growth", QK_MEM_DUMP_GROWTH | kEverySection, 1000),
          sections_of("comparison_1", "Comparison", QK_MEM_DUMP_COMPARISON, 1),
          sections_of("comparison_1000", "Comparison", QK_MEM_DUMP_COMPARISON, 1000)};
}

}  // namespace ratios
