#ifndef SUPPORT_SHARED_VARIABLE_H_
#define SUPPORT_SHARED_VARIABLE_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <type_traits>

/**
 * Plain variables that several threads use, because their types are part of an interface: counters
 * and switches that anybody reads at any time, and pointers to what another thread has made. All
 * access to such a variable goes through here and is atomic.
 *
 * Counters neither lose a change nor cost a locked instruction in a process with one thread.
 */
namespace qk {

/** The variable as an atomic one. Reading needs no more than a const variable. */
template <class T>
[[nodiscard]] inline std::atomic_ref<T> atomic(const T& variable) noexcept {
  return std::atomic_ref<T>(const_cast<T&>(variable));
}

/** Reads a variable that stands for itself alone. */
template <class T>
[[nodiscard]] inline T load(const T& variable) noexcept {
  return atomic(variable).load(std::memory_order_relaxed);
}

template <class T>
inline void store(T& variable, std::type_identity_t<T> value) noexcept {
  atomic(variable).store(value, std::memory_order_relaxed);
}

/** Sets a variable for acquire(): whoever reads the value sees all that was written before it. */
template <class T>
inline void publish(T& variable, std::type_identity_t<T> value) noexcept {
  atomic(variable).store(value, std::memory_order_release);
}

/** Reads a variable that publish() sets, such as a pointer to something that was just made. */
template <class T>
[[nodiscard]] inline T acquire(const T& variable) noexcept {
  return atomic(variable).load(std::memory_order_acquire);
}

/** Whether nobody else can be running. Who needs several answers asks once. */
[[nodiscard]] inline bool is_single_threaded() noexcept { return __libc_single_threaded != 0; }

/** Adds and returns the new value. Unsigned variables wrap. */
template <class T>
inline T add(T& variable, std::type_identity_t<T> by, bool single_threaded) noexcept {
  if (single_threaded) [[likely]] {
    const T sum = static_cast<T>(load(variable) + by);
    store(variable, sum);
    return sum;
  }
  return static_cast<T>(atomic(variable).fetch_add(by, std::memory_order_relaxed) + by);
}

template <class T>
inline T add(T& variable, std::type_identity_t<T> by) noexcept {
  return add(variable, by, is_single_threaded());
}

template <class T>
inline T subtract(T& variable, std::type_identity_t<T> by) noexcept {
  return add(variable, static_cast<T>(T{0} - by));
}

/** Adds to a variable that only the holder of a lock changes, but anybody reads. */
template <class T>
inline void bump(T& variable, std::type_identity_t<T> by) noexcept {
  store(variable, static_cast<T>(load(variable) + by));
}

}  // namespace qk

#endif  // SUPPORT_SHARED_VARIABLE_H_
