#ifndef SUPPORT_SHARED_VARIABLE_H_
#define SUPPORT_SHARED_VARIABLE_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "support/shortcuts.h"

/**
 * Atomic access to plain variables that several threads use. Their types are part of an interface,
 * so they can't be std::atomic: counters and switches that any thread reads at any time, and
 * pointers to objects that another thread has created. All access to them uses these functions.
 *
 * Counters lose no change. In a process with one thread they need no locked instruction.
 */
namespace qk {

/** The variable as an atomic one. Takes a const reference so that const variables can be read. */
template <class T>
[[nodiscard]] inline std::atomic_ref<T> atomic(const T& variable) noexcept {
  return std::atomic_ref<T>(const_cast<T&>(variable));
}

/** Reads a variable whose value says nothing about other variables. */
template <class T>
[[nodiscard]] inline T load(const T& variable) noexcept {
  return atomic(variable).load(std::memory_order_relaxed);
}

template <class T>
inline void store(T& variable, std::type_identity_t<T> value) noexcept {
  atomic(variable).store(value, std::memory_order_relaxed);
}

/** Writes eight aligned bytes at once, which can be several small variables. */
inline void store_word(void* bytes, std::uint64_t value) noexcept {
  using Word [[gnu::may_alias]] = std::uint64_t;
  __atomic_store_n(static_cast<Word*>(bytes), value, __ATOMIC_RELAXED);
}

/** Sets a variable for acquire(): a reader of the value sees everything written before it. */
template <class T>
inline void publish(T& variable, std::type_identity_t<T> value) noexcept {
  atomic(variable).store(value, std::memory_order_release);
}

/** Reads a variable that publish() sets, such as a pointer to a new object. */
template <class T>
[[nodiscard]] inline T acquire(const T& variable) noexcept {
  return atomic(variable).load(std::memory_order_acquire);
}

/** Whether no other thread can be running. A caller that needs it several times asks once. */
[[nodiscard]] inline bool is_single_threaded() noexcept { return __libc_single_threaded != 0; }

/** Adds `by` and returns the new value. Unsigned variables wrap. */
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

/** Sets bits of a variable in which other threads may be setting others. */
template <class T>
inline void set_bits(T& variable, std::type_identity_t<T> bits) noexcept {
  if (is_single_threaded()) [[likely]] {
    store(variable, static_cast<T>(load(variable) | bits));
  } else {
    atomic(variable).fetch_or(bits, std::memory_order_relaxed);
  }
}

template <class T>
inline void clear_bits(T& variable, std::type_identity_t<T> bits) noexcept {
  const auto kept = static_cast<T>(~bits);
  if (is_single_threaded()) [[likely]] {
    store(variable, static_cast<T>(load(variable) & kept));
  } else {
    atomic(variable).fetch_and(kept, std::memory_order_relaxed);
  }
}

/** Sets a flag to 1, and returns whether it was set. publish() of 0 lets the next thread in. */
[[nodiscard]] inline bool set_flag(std::uint8_t& flag) noexcept {
  return atomic(flag).exchange(1, std::memory_order_acquire) != 0;
}

/**
 * Replaces `expected` by a new value. False if the variable has another value, which `expected` gets
 * then; now and then also for no reason.
 */
template <class T>
[[nodiscard]] inline bool replace(T& variable, T& expected,
                                  std::type_identity_t<T> value) noexcept {
  return atomic(variable).compare_exchange_weak(expected, value, std::memory_order_relaxed);
}

template <class T>
inline T subtract(T& variable, std::type_identity_t<T> by) noexcept {
  return add(variable, static_cast<T>(T{0} - by));
}

/** Adds to a variable that only the holder of a lock changes, but any thread reads. */
template <class T>
[[gnu::always_inline]] inline void bump(T& variable, std::type_identity_t<T> by) noexcept {
#ifdef __x86_64__
  // Of an atomic load and an atomic store compilers make three instructions.
  if constexpr (kAddsInMemory && sizeof(T) == 4) {
    asm("addl %1, %0" : "+m"(variable) : "er"(by) : "cc");
    return;
  } else if constexpr (kAddsInMemory && sizeof(T) == 8) {
    asm("addq %1, %0" : "+m"(variable) : "er"(by) : "cc");
    return;
  }
#endif
  store(variable, static_cast<T>(load(variable) + by));
}

/** Whether a variable is below a value: as load() and a comparison. */
[[nodiscard, gnu::always_inline]] inline bool is_below(const std::uint64_t& variable,
                                                       std::uint64_t value) noexcept {
#ifdef __x86_64__
  if constexpr (kAddsInMemory) {
    bool below;
    asm("cmpq %2, %1" : "=@ccb"(below) : "m"(variable), "er"(value));
    return below;
  }
#endif
  return load(variable) < value;
}

/** Whether a variable has a value, likewise. */
[[nodiscard, gnu::always_inline]] inline bool is_equal(const std::uint8_t& variable,
                                                       std::uint8_t value) noexcept {
#ifdef __x86_64__
  if constexpr (kAddsInMemory) {
    bool equal;
    asm("cmpb %2, %1" : "=@ccz"(equal) : "m"(variable), "iq"(value));
    return equal;
  }
#endif
  return load(variable) == value;
}

/** Adds as add() does, where nobody needs the new value. */
template <class T>
[[gnu::always_inline]] inline void add_only(T& variable, std::type_identity_t<T> by,
                                            bool single_threaded) noexcept {
  if (single_threaded) [[likely]] {
    bump(variable, by);
  } else {
    atomic(variable).fetch_add(by, std::memory_order_relaxed);
  }
}

}  // namespace qk

#endif  // SUPPORT_SHARED_VARIABLE_H_
