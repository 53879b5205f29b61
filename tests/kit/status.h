#ifndef TESTS_KIT_STATUS_H_
#define TESTS_KIT_STATUS_H_

#include <string>

#include "qkmem/status.h"

namespace kit {

/** A status that an earlier failure has filled in: every field except the two numbers. */
[[nodiscard]] qk::Status used_status();

/**
 * All fields of a status, as "10037 details 0 0 numbers 257 256 subject [] arguments [options] []
 * at qkmem.cpp(qk_mem_options):# on this host". "#" stands for the line, which is at least 1.
 */
[[nodiscard]] std::string text_of(const qk::Status& status);

}  // namespace kit

#endif  // TESTS_KIT_STATUS_H_
