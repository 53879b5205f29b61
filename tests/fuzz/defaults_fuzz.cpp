// The default options: the first line is a debug configuration, each other line one call.
#include "core/switches.h"
#include "diag/heap.h"
#include "qkmem/qkmem.h"
#include "tests/fuzz/fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  fuzz::Lines lines(data, size);
  qk::Status status;
  (void)qk_mem_debug_config(lines.next().c_str(), &status);
  for (int i = 0; i < 3; ++i) {
    const std::string options = lines.next();
    const fuzz::ExactText exact(options);
    QK_CLEAR_STATUS(&status);
    const int code = qk_mem_options(exact, &status);
    fuzz::require(code == status.code, "a wrong code in the status");
    fuzz::require(code == 0 || fuzz::is_refusal(code), "code");
    fuzz::require((code == 10037) == (options.size() > 256), "length");
    fuzz::require(code == 0 || Qk_mem_opts == 0, "a refusal leaves heap sizes on");
    fuzz::use_library();
  }
  return 0;
}
