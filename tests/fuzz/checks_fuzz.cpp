// The configuration of the checks: reads each line as one, and uses the library under it, which has
// to find nothing. Reports stay in the current folder.
#include <cstring>
#include <string>

#include "config/check_options.h"
#include "profile/misuses.h"
#include "qkmem/check.h"
#include "tests/fuzz/fuzzing.h"

namespace {

constexpr int kNotUnderstood = 5022;
constexpr int kNoMemory = 5012;

bool is_code(int code) {
  return code == 0 || code == kNotUnderstood || (code >= 10041 && code <= 10044);
}

/** Whether options leave the process and other folders alone. */
bool is_harmless(const qk::mem::check::Options& options) {
  return options.break_event == 0 && options.findings_code == 0 &&
         (options.report == nullptr || std::strchr(options.report, '/') == nullptr);
}

void use(const std::string& options) {
  fuzz::ExactText text(options);
  qk::mem::check::Options expected;
  const int code = qk::mem::read_check_options("fuzz", text.begin(), expected);
  fuzz::require(is_code(code), "code");
  fuzz::require(expected.guard_bytes % 16 == 0 && expected.guard_bytes <= 4096, "guard");
  if (!is_harmless(expected)) return;
  const fuzz::ExactText exact(options);
  const int answer = qk_mem_check_config(exact);
  fuzz::require(answer == code || answer == kNoMemory || options.empty(), "another code");
  fuzz::require(options == static_cast<const char*>(exact), "the options are changed");
  fuzz::use_library();
  fuzz::require(qk_mem_check(0) <= 0, "damage");
  fuzz::require(qk::mem::profile::misuses.count() == 0, "a finding");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  fuzz::Lines lines(data, size);
  for (int i = 0; i < 3; ++i) use(lines.next());
  qk_mem_check_config("");
  return 0;
}
