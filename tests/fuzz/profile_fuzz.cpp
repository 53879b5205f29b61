// The profile's configuration: reads each line as one, and uses the library under it. Reports stay
// in the current folder.
#include <cstring>
#include <functional>
#include <string_view>

#include "config/profile_options.h"
#include "profile/report/report.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "support/mtx_lock.h"
#include "tests/fuzz/fuzzing.h"

namespace {

namespace profile = qk::mem::profile;

constexpr int kNotUnderstood = 5022;
constexpr int kNoMemory = 5012;

bool is_code(int code) {
  return code == 0 || code == kNotUnderstood || (code >= 10041 && code <= 10044);
}

/** Whether a value is null, a word of the library's, or in the text that was read. */
bool is_text_of(const char* value, const std::string& options, const char* text) {
  if (value == nullptr || std::string_view(value) == "STDERR") return true;
  const std::less_equal<> is_at_most;
  return is_at_most(text, value) && is_at_most(value + std::strlen(value), text + options.size());
}

bool leads_out_of_folder(const char* value) {
  return value != nullptr && std::strchr(value, '/') != nullptr;
}

/** Reads the options by themselves. */
profile::Options read(const std::string& options, int& code) {
  fuzz::ExactText text(options);
  profile::Options result;
  code = qk::mem::read_profile_options("fuzz", text.begin(), result);
  fuzz::require(is_code(code), "code");
  fuzz::require(result.depth <= profile::kMaxDepth, "depth");
  const bool is_named = result.record != nullptr && std::strcmp(result.record, "%n.%p.qkm") != 0;
  const char* const record = is_named ? result.record : nullptr;
  for (const char* value : {result.report, result.skip, result.control, record}) {
    fuzz::require(is_text_of(value, options, text.begin()), "a value is outside the text");
  }
  const bool is_safe = !leads_out_of_folder(result.report) &&
                       !leads_out_of_folder(result.control) && !leads_out_of_folder(record);
  if (!is_safe) code = -1;
  return result;
}

/** Texts of configurations stay, so that their memory can run out. */
void forget_limit() {
  const qk::MtxLock lock(profile::growth_lock);
  profile::arena.set_limit(UINT64_MAX);
}

void use(const std::string& options, int code, const profile::Options& expected) {
  const fuzz::ExactText exact(options);
  const int answer = qk_mem_profile_config(exact);
  fuzz::require(answer == code || answer == kNoMemory || options.empty(), "another code");
  fuzz::require(options == static_cast<const char*>(exact), "the options are changed");
  fuzz::require(options.empty() || profile::options().depth == expected.depth, "other options");
  fuzz::use_library();
  profile::write_report(profile::Occasion::kRunning, profile::Naming::kAtASignal);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  fuzz::Lines lines(data, size);
  for (int i = 0; i < 3; ++i) {
    forget_limit();
    const std::string options = lines.next();
    int code = 0;
    const profile::Options expected = read(options, code);
    if (code >= 0) use(options, code, expected);
  }
  qk_mem_profile_config("");
  return 0;
}
