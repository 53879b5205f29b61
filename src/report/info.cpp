// Queries for single figures.
#include <cstdint>

#include "core/handle_array.h"
#include "core/option_call.h"
#include "core/switches.h"
#include "core/upcalls.h"
#include "diag/log.h"
#include "report/filters.h"
#include "report/sums.h"

namespace qk::mem {
namespace {

/** The handles that a question is about. */
struct Selection {
  const qk_mem_filters& filters;
  std::int64_t heap;  // read once

  /** Sums `value(handle)` over the selected handles. */
  template <class Value>
  [[nodiscard]] std::uint64_t sum(Value value) const {
    assert_registry_held();
    std::uint64_t total = 0;
    for_each_handle([&](const qk_mem_handle& handle) {
      if (!qk_mem_filter_handle(&handle, &filters)) total += value(handle);
    });
    return total;
  }

  [[nodiscard]] std::uint64_t current_alloc() const {
    return sum([](const qk_mem_handle& handle) { return qk::load(handle.amount); });
  }

  [[nodiscard]] std::uint64_t baseline_alloc() const {
    return sum([](const qk_mem_handle& handle) { return handle.base_amount; });
  }
};

using Answer = std::int64_t (*)(const Selection&);

/** Signed and rounded towards zero; 0 if there is nothing to compare with. */
std::int64_t percent_since(std::int64_t base, std::int64_t heap) {
  return base == 0 ? 0 : (heap - base) * 100 / base;
}

std::int64_t untracked(const Selection& selection) {
  assert_registry_held();
  Sum data;
  Sum management;
  for_each_handle([&](const qk_mem_handle& handle) {
    data.add(data_of(handle));
    management.add(management_of(handle));
  });
  return untracked_heap(selection.heap, data, management);
}

std::int64_t change_since_baseline(const Selection& selection) {
  return static_cast<std::int64_t>(selection.current_alloc() - selection.baseline_alloc());
}

/** Unsigned on purpose: a decrease gives a huge number, which every threshold catches. */
std::int64_t percent_since_baseline(const Selection& selection) {
  const std::uint64_t current = selection.current_alloc();
  const std::uint64_t base = selection.baseline_alloc();
  if (current == 0 || base == 0) return 0;
  return static_cast<std::int64_t>((current - base) * 100 / base);
}

struct Query {
  const char* keyword;
  bool of_heap;
  Answer answer;
};

constexpr std::size_t kQueries = 14;

constexpr Query kQueryTable[kQueries] = {
    {"INITIAL_HEAP", true, [](const Selection&) { return Qk_mem_init_heap; }},
    {"BASELINE_HEAP", true, [](const Selection&) { return Qk_mem_base_heap; }},
    {"CURRENT_HEAP", true, [](const Selection& s) { return s.heap; }},
    {"HEAP_CHG_SINCE_BASELINE", true, [](const Selection& s) { return s.heap - Qk_mem_base_heap; }},
    {"HEAP_CHG_SINCE_INITIAL", true, [](const Selection& s) { return s.heap - Qk_mem_init_heap; }},
    {"HEAP_PCT_SINCE_BASELINE", true,
     [](const Selection& s) { return percent_since(Qk_mem_base_heap, s.heap); }},
    {"HEAP_PCT_SINCE_INITIAL", true,
     [](const Selection& s) { return percent_since(Qk_mem_init_heap, s.heap); }},
    {"UNTRACKED", true, untracked},
    {"CURRENT_ALLOC", false,
     [](const Selection& s) { return static_cast<std::int64_t>(s.current_alloc()); }},
    {"CURRENT_PTRS", false,
     [](const Selection& s) {
       return static_cast<std::int64_t>(
           s.sum([](const qk_mem_handle& handle) { return qk::load(handle.qty); }));
     }},
    {"BASELINE_ALLOC", false,
     [](const Selection& s) { return static_cast<std::int64_t>(s.baseline_alloc()); }},
    {"BASELINE_PTRS", false,
     [](const Selection& s) {
       return static_cast<std::int64_t>(
           s.sum([](const qk_mem_handle& handle) { return handle.base_qty; }));
     }},
    {"CHG_SINCE_BASELINE", false, change_since_baseline},
    {"PCT_SINCE_BASELINE", false, percent_since_baseline},
};

using QueryCall = OptionCall<kQueries>;

constexpr std::array<qk_option_keyword, kQueries> keywords() {
  constexpr int kControl = 1;
  constexpr int kMark = 2;
  std::array<qk_option_keyword, kQueries> table = {};
  for (std::size_t i = 0; i < kQueries; ++i) {
    table[i] = keyword(kQueryTable[i].keyword, qk::kNoValue, 0, kControl, kMark);
  }
  return table;
}

const Query* first_asked(const QueryCall& call) {
  for (std::size_t i = 0; i < kQueries; ++i) {
    if (call.has(i)) return &kQueryTable[i];
  }
  return nullptr;
}

bool asks_for_heap(const QueryCall& call) {
  for (std::size_t i = 0; i < kQueries; ++i) {
    if (call.has(i) && kQueryTable[i].of_heap) return true;
  }
  return false;
}

int refuse(int code) {
  Qk_mem_error.set(code);
  return -1;
}

void log_answer(const char* query, const char* filter, std::int64_t answer) {
  if (!logs_events(switches_of(Routine::kInfo))) return;
  qk_mem_write_log("   %s:         Answer to %s with %s is %zd\n", names_of(Routine::kInfo).logged,
                   query == nullptr ? "" : query, filter == nullptr ? "" : filter, answer);
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_info(const char* query, const char* filter, long* answer) {
  using namespace qk::mem;
  const RegistryLock lock;
  ensure_started();
  qk_mem_filters filters;
  if (qk_mem_init_filters(filter, &filters) != 0) return -1;
  QueryCall call(keywords());
  OptionText text(query);
  if (!call.process(text)) return refuse(QK_MEM_ERROR_OPTIONS);
  const Selection selection = {filters, qk_heapsize()};
  if (qk_strlen(filter) > 0 && asks_for_heap(call)) return refuse(QK_MEM_ERROR_HEAP_FILTER);
  const Query* asked = first_asked(call);
  const std::int64_t result = asked == nullptr ? 0 : asked->answer(selection);
  log_answer(query, filter, result);
  if (answer != nullptr) *answer = result;
  return 0;
}
