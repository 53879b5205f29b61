// Filters: the first byte chooses sections, the rest of the line is the filter.
#include "qkmem/qkmem.h"
#include "report/filters.h"
#include "tests/fuzz/fuzzing.h"

namespace {

long ask(const char* query, const char* filter) {
  long answer = -12345;
  const int result = qk_mem_info(query, filter, &answer);
  fuzz::require(result == 0 || answer == -12345, "a refused query has an answer");
  return answer;
}

void make_handles() {
  int hid = qk_mem_inew_handle("", "AB", "fuzz.cpp", 1);
  (void)qk_mem_imalloc(hid, 100, 16, "fuzz.cpp", 2);
  hid = qk_mem_inew_handle("BLOCKMGMT BLOCKFREE AUTOFREE", "C", "fuzz.cpp", 3);
  (void)qk_mem_imalloc(hid, 50, 16, "fuzz.cpp", 4);
  hid = qk_mem_inew_handle("OVERHEAD", "", "fuzz.cpp", 5);
  (void)qk_mem_icalloc(hid, 3, 7, 16, "fuzz.cpp", 6);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  fuzz::reset();
  qk::Status status;
  fuzz::require(qk_mem_debug_config("EXCEPTIONS LOG=/dev/null", &status) == 0, "configuration");
  make_handles();
  const unsigned sections = data[0] * 2U;
  fuzz::Lines lines(data + 1, size - 1);
  for (int i = 0; i < 3; ++i) {
    const std::string filter = lines.next();
    const fuzz::ExactText exact(filter);
    qk_mem_filters parsed;
    const int code = qk_mem_init_filters(exact, &parsed);
    fuzz::require(code == 0 || code == 11102 || code == 11103, "code");
    qk_mem_dump(stdout, exact, sections);
    qk_mem_dump(stdout, exact, QK_MEM_DUMP_GROWTH | sections);
    fuzz::require(qk_mem_baseline(exact) == 0, "baseline");
    for (const char* query : {"CURRENT_ALLOC", "CURRENT_PTRS", "BASELINE_ALLOC"}) {
      const long some = ask(query, exact);
      fuzz::require(code == 0 ? some >= 0 && some <= ask(query, "") : some == -12345, "answer");
    }
    (void)qk_mem_imalloc(QK_MEM_DATA_HANDLE + 1, 10, 16, "fuzz.cpp", 7);
    fuzz::require(filter == static_cast<const char*>(exact), "the filter is changed");
  }
  return 0;
}
