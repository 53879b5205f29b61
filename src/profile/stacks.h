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
 * How many frames a call is to capture; 0 for none. More than are kept, if the first ones can be of
 * the library, which an entry tells, as in qk::capture_stack().
 */
[[nodiscard]] int frames_to_capture(const void* entry);

/**
 * The number of a stack that was captured; 0 if it has no frames or there is no memory. To be
 * called before any lock is taken, since a stack that is not known yet can wait for the dynamic
 * linker.
 */
[[nodiscard]] std::uint32_t number_of_stack(const Stack& stack);

/** The stack of a number. */
[[nodiscard]] Stack stack_numbered(std::uint32_t number);

/** All modules of the process that code of a stack was in. */
[[gnu::visibility("hidden")]] extern qk::ModuleList modules;

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_STACKS_H_
