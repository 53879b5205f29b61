#ifndef QKMEM_CORE_UPCALLS_H_
#define QKMEM_CORE_UPCALLS_H_

#include "core/switches.h"
#include "support/shared_variable.h"

/** The only calls from a lower layer to a higher one. */
namespace qk::mem {

/** Set when the start-up is over, even if it failed. Qk_mem_initialized is set when it begins. */
[[gnu::visibility("hidden")]] extern std::int32_t start_up_is_over;

[[nodiscard]] inline bool is_started() { return qk::acquire(start_up_is_over) != 0; }

/**
 * Starts the library up at the first public call. Other threads wait until it is done. The starting
 * thread itself does not wait, since the start-up makes public calls.
 */
inline void ensure_started() {
  if (!is_started()) [[unlikely]]
    qk_mem_init();
}

/** Writes the report to the log if the switches ask for it after each event. */
void dump_control_blocks(const qk_mem_debug& switches);

}  // namespace qk::mem

#endif  // QKMEM_CORE_UPCALLS_H_
