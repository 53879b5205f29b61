#ifndef SUPPORT_FAULT_WORDS_H_
#define SUPPORT_FAULT_WORDS_H_

#include <cstdint>

#include "support/shared_variable.h"

namespace qk {

/** Whether a line says what the address is, when access to memory is refused and ends the process. */
[[gnu::visibility("hidden")]] inline constinit std::uint8_t puts_faults_into_words = 0;

/** Any thread, at any time. */
inline void put_faults_into_words(bool is_wanted) {
  store(puts_faults_into_words, std::uint8_t{is_wanted});
}

}  // namespace qk

#endif  // SUPPORT_FAULT_WORDS_H_
