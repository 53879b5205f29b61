#ifndef QKMEM_CHECK_REPORT_OPTIONS_H_
#define QKMEM_CHECK_REPORT_OPTIONS_H_

#include <cstdint>

/** What the checks look for, as the program or its user has configured it. */
namespace qk::mem::check {

inline constexpr std::uint32_t kUsualGuard = 16;
inline constexpr std::uint64_t kUsualQuarantine = std::uint64_t{16} << 20;

struct Options {
  std::uint32_t guard_bytes = 0;  // behind each block; 0 for no guards
  bool guards_front = false;
  bool fills = false;                  // new and released memory
  std::uint64_t quarantine_bytes = 0;  // of released blocks that stay out of use
  std::uint64_t scan_events = 0;       // between two looks at all blocks; 0 for none
  std::uint64_t history = 0;           // blocks that are remembered after their release
  bool stops = false;                  // the program at the first finding
  std::uint64_t break_event = 0;       // that raises SIGTRAP; 0 for none
  std::uint8_t findings_code = 0;      // that a process with findings ends with; 0 for its own
  const char* report = nullptr;        // where findings go; null as those of the profile
};

/** The options in force. Its texts stay until the process ends. */
[[nodiscard]] const Options& options();
void set_options(const Options& now);

/** Whether the checks are on, or were. */
[[nodiscard]] bool was_ever_on();

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_REPORT_OPTIONS_H_
