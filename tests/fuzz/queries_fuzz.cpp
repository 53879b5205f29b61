// Queries: lines in pairs, the query and the filter.
#include "qkmem/qkmem.h"
#include "tests/fuzz/fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  qk::Status status;
  fuzz::Lines lines(data, size);
  fuzz::require(qk_mem_debug_config("DEBUG LOG=/dev/null", &status) == 0, "configuration");
  const int hid = qk_mem_inew_handle("", "AB", "fuzz.cpp", 1);
  for (int i = 0; i < 4; ++i) {
    (void)qk_mem_imalloc(hid, 100, 16, "fuzz.cpp", 2);
    const std::string query = lines.next();
    const std::string filter = lines.next();
    const fuzz::ExactText exact_query(query);
    const fuzz::ExactText exact_filter(filter);
    long answer = 4711;
    const int result = qk_mem_info(exact_query, exact_filter, &answer);
    const int code = qk_mem_error();
    fuzz::require(result == 0 || result == -1, "result");
    if (result == -1) {
      fuzz::require(answer == 4711, "a refused query has an answer");
      fuzz::require(code == 11102 || code == 11103 || code == 11112, "code");
    }
    fuzz::require(result == -1 || query.size() <= 256, "a query that is too long is answered");
    if (i == 1) (void)qk_mem_baseline("");
  }
  return 0;
}
