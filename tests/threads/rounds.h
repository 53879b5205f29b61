#ifndef TESTS_THREADS_ROUNDS_H_
#define TESTS_THREADS_ROUNDS_H_

#include <cstdlib>

/** The number of rounds of a test that depends on chance: QKMEM_ROUNDS, or `unless_set`. */
[[nodiscard]] inline int rounds(int unless_set) {
  const char* number = std::getenv("QKMEM_ROUNDS");
  return number != nullptr ? std::atoi(number) : unless_set;
}

#endif  // TESTS_THREADS_ROUNDS_H_
