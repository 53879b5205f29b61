// The debug configuration: sets each line as one, and uses the library under it.
#include <cstring>

#include "core/switches.h"
#include "diag/log.h"
#include "qkmem/qkmem.h"
#include "tests/fuzz/fuzzing.h"

namespace {

std::string settings() {
  qk::Status status;
  char text[QK_MEM_SETTINGS_SIZE];
  fuzz::require(qk_mem_debug_settings(text, &status) == 0, "settings");
  return text;
}

/** The settings text describes all switches, so setting it again must change nothing. */
void expect_same_when_set_again() {
  const std::string text = settings();
  const std::string switches = text.substr(0, text.find(" LOG="));
  qk_mem_debug before[20];
  std::memcpy(before, Qk_mem_debug, sizeof before);
  // A switch of the global record alone isn't shown, nor one that an exclusion has left set.
  if (switches.empty() || switches.size() > 250) return;
  qk::Status status;
  fuzz::require(qk_mem_debug_config(switches.c_str(), &status) == 0, "settings are refused");
  fuzz::require(settings().substr(0, switches.size()) == switches,
                "settings change when set again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::reset();
  fuzz::Lines lines(data, size);
  for (int i = 0; i < 4; ++i) {
    const std::string options = lines.next();
    const fuzz::ExactText exact(options);
    qk::Status status;
    const int code = qk_mem_debug_config(exact, &status);
    fuzz::require(code == status.code, "a wrong code in the status");
    fuzz::require(code == 0 || fuzz::is_refusal(code), "code");
    fuzz::require((code == 10037) == (options.size() > 256), "length");
    fuzz::require(options == static_cast<const char*>(exact), "the options are changed");
    fuzz::use_library();
    expect_same_when_set_again();
    fuzz::use_library();
  }
  return 0;
}
