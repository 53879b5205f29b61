#ifndef TESTS_KIT_STATUS_H_
#define TESTS_KIT_STATUS_H_

#include <string>

#include "qkmem/status.h"

namespace kit {

/** A status that an earlier failure has left: every field but the two numbers is taken. */
[[nodiscard]] qk::Status used_status();

/**
 * All fields of a status, as "10037 details 0 0 numbers 257 256 subject [] arguments [options] []
 * at qkmem.cpp(qk_mem_options):# on this host". The line, which is at least 1, is "#" there.
 */
[[nodiscard]] std::string text_of(const qk::Status& status);

}  // namespace kit

#endif  // TESTS_KIT_STATUS_H_
