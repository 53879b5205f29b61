#ifndef TESTS_LOCK_ORDER_RECORDER_H_
#define TESTS_LOCK_ORDER_RECORDER_H_

#include <functional>
#include <string>
#include <vector>

/** Records which locks threads hold while they request others. */
namespace lock_order {

void requested(const void* lock);
void acquired(const void* lock);
void released(const void* lock);

/** The locks that the calling thread holds, the newest last. */
[[nodiscard]] std::vector<const void*> held();

/** Forgets what was recorded so far. */
void forget();

/** A thread that held a lock of class `outer` requested one of class `inner`. */
struct Edge {
  std::string outer;
  std::string inner;
  std::string first_stack;  // the stack at its first occurrence
};

/** All edges between different classes; `class_of` names the class of a lock. */
[[nodiscard]] std::vector<Edge> edges(const std::function<std::string(const void*)>& class_of);

/** The edges of a cycle with their stacks, or "" if there is none. */
[[nodiscard]] std::string cycle_in(const std::vector<Edge>& edges);

}  // namespace lock_order

#endif  // TESTS_LOCK_ORDER_RECORDER_H_
