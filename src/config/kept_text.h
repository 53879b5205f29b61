#ifndef QKMEM_CONFIG_KEPT_TEXT_H_
#define QKMEM_CONFIG_KEPT_TEXT_H_

namespace qk::mem {

/** A copy of an option string that stays, in the profile's own memory. Null if there is none. */
[[nodiscard]] char* keep_text(const char* text);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_KEPT_TEXT_H_
