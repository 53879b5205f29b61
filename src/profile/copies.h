#ifndef QKMEM_PROFILE_COPIES_H_
#define QKMEM_PROFILE_COPIES_H_

#include <cstdint>
#include <string_view>

/**
 * The copies of the library in the process whose profile was switched on: a program can contain
 * one, and load a plug-in with another. Each has sites and a report of its own.
 */
namespace qk::mem::profile {

/**
 * Counts this copy, once, and tells the others. Copies in another namespace of the dynamic linker
 * (dlmopen) don't know of each other. Takes a lock of the dynamic linker. Any thread.
 */
void join_copies();

/** How many copies there are or were, unloaded ones too; at least 1. */
[[nodiscard]] std::uint32_t copies();

/** The number of this copy: the first one that joined has 1. */
[[nodiscard]] std::uint32_t number_of_this_copy();

/** The file that this copy is in, without its folders. */
[[nodiscard]] std::string_view module_of_this_copy();

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_COPIES_H_
