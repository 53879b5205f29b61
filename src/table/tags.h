#ifndef QKMEM_TABLE_TAGS_H_
#define QKMEM_TABLE_TAGS_H_

#include <cstddef>

#include "core/records.h"
#include "core/registry.h"

namespace qk::mem {

/** Characters that a tag can have. */
inline constexpr std::size_t kTagLength = 2;

/** Finds a tag by its name, in upper case. Null if there is none. Needs the registry's lock. */
[[nodiscard]] qk_mem_tag* find_tag(const char* name) QK_REQUIRES(Qk_mem_mtx);

/**
 * Finds a tag, or adds one with sums of zero. Null if there are kMaxTags already. Needs the
 * registry's lock.
 */
[[nodiscard]] qk_mem_tag* find_or_add_tag(const char* name) QK_REQUIRES(Qk_mem_mtx);

/** Whether a tag has a name. One of one character matches by its terminator. */
[[nodiscard]] inline bool has_name(const qk_mem_tag& tag, const char* name) {
  return tag.name[0] == name[0] && tag.name[1] == name[1];
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_TAGS_H_
