#ifndef QKMEM_TABLE_TAGS_H_
#define QKMEM_TABLE_TAGS_H_

#include <cstddef>

#include "core/records.h"
#include "core/registry.h"

extern "C" {

/**
 * Finds a tag, or registers it with totals of zero.
 *
 * @param name  one or two characters, already in upper case.
 * @return null when the table is full (logged, and the code is set).
 */
qk_mem_tag* qk_mem_register_tag(const char* name);

}  // extern "C"

namespace qk::mem {

/** Characters that a tag can have. */
inline constexpr std::size_t kTagLength = 2;

/**
 * Makes a new handle one of its tag's bearers. The only one can change the tag's totals under its
 * own mutex, which costs less than changing them among several. Needs the registry's lock.
 */
void bear_tag(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

/** Undoes bear_tag(), if it was done, before the handle's mutex goes. Needs the registry's lock. */
void give_tag_up(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

/** Whether a tag has a name of one or two characters; a terminator counts as the second one. */
[[nodiscard]] inline bool bears_name(const qk_mem_tag& tag, const char* name) {
  return tag.name[0] == name[0] && tag.name[1] == name[1];
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_TAGS_H_
