#ifndef SUPPORT_RELAXED_H_
#define SUPPORT_RELAXED_H_

#include <sys/single_threaded.h>

#include <type_traits>

/**
 * Plain variables that several threads use: counters and switches that are read at any time by
 * anybody and must neither lose a change nor cost a locked instruction in a process with one
 * thread. The variables keep their plain types; every access from here on is atomic and relaxed.
 */
namespace qk {

template <class T>
[[nodiscard]] inline T load(const T& variable) noexcept {
  return __atomic_load_n(&variable, __ATOMIC_RELAXED);
}

template <class T>
inline void store(T& variable, std::type_identity_t<T> value) noexcept {
  __atomic_store_n(&variable, value, __ATOMIC_RELAXED);
}

/** Whether nobody else can be running: who adds several times asks once. */
[[nodiscard]] inline bool is_single_threaded() noexcept { return __libc_single_threaded != 0; }

/** Adds and returns the new value. Unsigned variables wrap. */
template <class T>
inline T add(T& variable, std::type_identity_t<T> by, bool single_threaded) noexcept {
  if (single_threaded) [[likely]] {
    const T sum = static_cast<T>(load(variable) + by);
    store(variable, sum);
    return sum;
  }
  return __atomic_add_fetch(&variable, by, __ATOMIC_RELAXED);
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

/** For what a pointer that was just read leads to, and for what must be complete before it. */
template <class T>
[[nodiscard]] inline T* load_pointer(T* const& variable) noexcept {
  return __atomic_load_n(&variable, __ATOMIC_ACQUIRE);
}

template <class T>
inline void publish(T*& variable, std::type_identity_t<T>* value) noexcept {
  __atomic_store_n(&variable, value, __ATOMIC_RELEASE);
}

}  // namespace qk

#endif  // SUPPORT_RELAXED_H_
