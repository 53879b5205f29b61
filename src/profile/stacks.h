#ifndef QKMEM_PROFILE_STACKS_H_
#define QKMEM_PROFILE_STACKS_H_

#include <cstdint>

#include "profile/stack_table.h"
#include "symbols/module_list.h"

/** The call stacks of allocations, as far as the options ask for them. */
namespace qk::mem::profile {

/**
 * Loads and warms up what captures stacks, which allocates. Not under a lock that a thread inside
 * the dynamic linker can wait for, unless there is one thread only. Later calls do nothing.
 */
void prepare_stack_capture();

/** Keeps so many frames of each stack from now on; 0 for no stacks. */
void set_stack_depth(std::uint32_t depth);

/**
 * The number of the calling thread's stack; 0 without one. To be called before any lock is taken,
 * since an unwinder can wait for the dynamic linker.
 */
[[nodiscard]] std::uint32_t stack_of_caller();

/** The stack of a number. */
[[nodiscard]] Stack stack_numbered(std::uint32_t number);

/** All modules of the process that code of a stack was in. */
extern qk::ModuleList modules;

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_STACKS_H_
