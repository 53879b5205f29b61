#ifndef TESTS_THREADS_ROUNDS_H_
#define TESTS_THREADS_ROUNDS_H_

#include <cstdlib>

/** How often a test of what happens at random moments tries: `unless_set`, or QKMEM_ROUNDS. */
[[nodiscard]] inline int rounds(int unless_set) {
  const char* number = std::getenv("QKMEM_ROUNDS");
  return number != nullptr ? std::atoi(number) : unless_set;
}

#endif  // TESTS_THREADS_ROUNDS_H_
