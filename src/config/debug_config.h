#ifndef QKMEM_CONFIG_DEBUG_CONFIG_H_
#define QKMEM_CONFIG_DEBUG_CONFIG_H_

#include "core/switches.h"
#include "qkmem/status.h"

extern "C" {

/**
 * Sets the records of the debug switches up, once: writes the names and applies QK_MEM_DEBUG and
 * QK_MEM_DUMP. What is wrong there is logged and forgotten.
 *
 * @return 0
 */
int qk_mem_debug_init(qk::Status* status);

}  // extern "C"

namespace qk::mem {

/** One of the five keywords that activate switches. */
struct SwitchKeyword {
  const char* keyword;
  std::int32_t qk_mem_debug::*shown;   // the switch that the settings text reads
  std::int32_t qk_mem_debug::*second;  // another one that it sets, or the same again
};

inline constexpr int kSwitchKeywords = 5;

/** In the order in which they are applied and shown. Each also sets `on` and `trace`. */
inline constexpr SwitchKeyword kSwitches[kSwitchKeywords] = {
    {"CTRLBLKS", &qk_mem_debug::ctrlblks, &qk_mem_debug::summary},
    {"DEBUG", &qk_mem_debug::debug, &qk_mem_debug::debug},
    {"EXCEPTIONS", &qk_mem_debug::exceptions, &qk_mem_debug::exceptions},
    {"SUMMARY", &qk_mem_debug::summary, &qk_mem_debug::summary},
    {"TRACE", &qk_mem_debug::trace, &qk_mem_debug::trace},
};

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_DEBUG_CONFIG_H_
