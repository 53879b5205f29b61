// The sections of reports: each line selects some.
#include "core/switches.h"
#include "qkmem/qkmem.h"
#include "tests/fuzz/fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  qk::Status status;
  fuzz::require(qk_mem_debug_config("TRACE", &status) == 0, "TRACE");
  fuzz::Lines lines(data, size);
  for (int i = 0; i < 3; ++i) {
    const std::string options = lines.next();
    const fuzz::ExactText exact(options);
    const std::uint32_t before = Qk_mem_dump_opts;
    const int code = qk_mem_dump_config(exact, &status);
    fuzz::require(code == status.code, "a wrong code in the status");
    fuzz::require(code == 0 || fuzz::is_refusal(code), "code");
    fuzz::require((code == 10037) == (options.size() > 256), "length");
    fuzz::require(code == 0 || Qk_mem_dump_opts == before, "a refusal changes the sections");
    fuzz::require(Qk_mem_dump_opts <= 0x1ff, "sections that don't exist");
    fuzz::use_library();
  }
  return 0;
}
