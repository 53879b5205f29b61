#ifndef TESTS_LOCK_ORDER_RECORDER_H_
#define TESTS_LOCK_ORDER_RECORDER_H_

#include <functional>
#include <string>
#include <vector>

/** Which locks threads hold while they ask for others. */
namespace lock_order {

void asked_for(const void* lock);
void taken(const void* lock);
void let_go(const void* lock);

/** The locks that the calling thread holds, the newest last. */
[[nodiscard]] std::vector<const void*> held();

/** Forgets what was recorded so far. */
void forget();

/** A lock of the class `inner` was asked for by a thread that held one of the class `outer`. */
struct Edge {
  std::string outer;
  std::string inner;
  std::string place;  // the stack of the first time
};

/** All edges between different classes; `class_of` names the class of a lock. */
[[nodiscard]] std::vector<Edge> edges(const std::function<std::string(const void*)>& class_of);

/** The edges of a cycle with their places, or "" where there is none. */
[[nodiscard]] std::string cycle_in(const std::vector<Edge>& edges);

}  // namespace lock_order

#endif  // TESTS_LOCK_ORDER_RECORDER_H_
