#ifndef QKMEM_CONFIG_DEBUG_CONFIG_H_
#define QKMEM_CONFIG_DEBUG_CONFIG_H_

#include "core/switches.h"
#include "qkmem/status.h"

extern "C" {

/**
 * Sets up the debug switches, once: writes the routines' names, then applies QK_MEM_DEBUG and
 * QK_MEM_DUMP. An error in their strings is logged and otherwise ignored.
 *
 * @return 0
 */
int qk_mem_debug_init(qk::Status* status);

}  // extern "C"

namespace qk::mem {

/** A keyword that activates switches. Each also sets `on` and `trace`. */
struct SwitchKeyword {
  const char* keyword;
  std::int32_t qk_mem_debug::*shown;   // the switch that the settings text reads
  std::int32_t qk_mem_debug::*second;  // another one that it sets, or the same again
  bool needs_log;                      // makes the library write lines
};

/** The keywords in the order in which they are applied and shown. */
inline constexpr SwitchKeyword kSwitches[] = {
    {"CTRLBLKS", &qk_mem_debug::ctrlblks, &qk_mem_debug::summary, true},
    {"DEBUG", &qk_mem_debug::debug, &qk_mem_debug::debug, true},
    {"EXCEPTIONS", &qk_mem_debug::exceptions, &qk_mem_debug::exceptions, true},
    {"SUMMARY", &qk_mem_debug::summary, &qk_mem_debug::summary, true},
    {"TRACE", &qk_mem_debug::trace, &qk_mem_debug::trace, false},
};
inline constexpr int kSwitchKeywords = sizeof kSwitches / sizeof *kSwitches;

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_DEBUG_CONFIG_H_
