#ifndef SUPPORT_TLS_H_
#define SUPPORT_TLS_H_

#include <map>
#include <memory>

#include "support/mtx_lock.h"
#include "support/thread_id.h"

namespace qk {

/**
 * A value per thread, T{} until the thread sets it.
 *
 * Any thread can call any function at any time, even before static constructors have run if the
 * object is constant initialised. Nothing throws unless copying T does. If there is no memory for a
 * thread's entry, the thread keeps its value in a spare variable, and a later call moves it to the
 * entry. A thread has one spare variable for all TLS<T> of the same T; the object that needed it
 * last owns it.
 *
 * Entries outlive their threads. Destroy the object only when no thread uses it any more.
 */
template <class T>
class TLS {
 public:
  constexpr TLS() noexcept : not_constructed_(0) {}
  TLS(const TLS&) = delete;
  TLS& operator=(const TLS&) = delete;
  ~TLS() {
    if (constructed_) std::destroy_at(&values_);
  }

  /** Stores the calling thread's value. */
  void set(const T& value) noexcept { *get() = value; }
  TLS& operator=(const T& value) noexcept {
    set(value);
    return *this;
  }

  /**
   * Returns the calling thread's value, never null. Only the calling thread may use it. It needs no
   * lock, and the pointer is valid until its next call on the object, which can move the value from
   * the spare variable to an entry. A value in an entry doesn't move.
   */
  [[nodiscard]] T* get() noexcept {
    const unsigned long thread = qk_gettid();
    const MtxLock lock(mtx_);
    if (!constructed_) construct_map();
    if (const auto found = values_.find(thread); found != values_.end()) return &found->second;
    return insert(thread);
  }
  [[nodiscard]] T& operator*() noexcept { return *get(); }

  /** Blocks calls of all other threads, during a fork for instance, until unlock(). */
  void lock() noexcept QK_ACQUIRE(mtx_) { mtx_.lock(); }
  void unlock() noexcept QK_RELEASE(mtx_) { mtx_.unlock(); }

  /** Returns whether the calling thread holds the lock: inside a call, or after lock(). */
  [[nodiscard]] bool held() const noexcept { return mtx_.held(); }

  /** See Mtx::wake_sleeper(). */
  void wake_sleeper() noexcept { mtx_.wake_sleeper(); }

 private:
  using Values = std::map<unsigned long, T>;

  struct Spare {
    const TLS* user = nullptr;
    T value{};
  };

  void construct_map() noexcept QK_REQUIRES(mtx_) {
    mtx_.assert_held();
    std::construct_at(&values_);
    constructed_ = true;
  }

  /**
   * If the program's operator new fails and reports it through the library, this function is called
   * again while the lock is held. That is safe because emplace() allocates memory first and then
   * searches the position.
   */
  T* insert(unsigned long thread) noexcept QK_REQUIRES(mtx_) {
    mtx_.assert_held();
    Spare& spare = spare_of_thread();
    try {
      T* const value = &values_.emplace(thread, T{}).first->second;
      if (spare.user == this) {
        *value = spare.value;
        spare.user = nullptr;
      }
      return value;
    } catch (...) {
      if (spare.user != this) spare = {this, T{}};
      return &spare.value;
    }
  }

  static Spare& spare_of_thread() noexcept {
    static thread_local Spare spare;
    return spare;
  }

  // A map can't be constant initialised, but a union with it can. The first use constructs the map.
  union {
    char not_constructed_;
    Values values_;
  };
  Mtx mtx_;
  bool constructed_ QK_GUARDED_BY(mtx_) = false;
};

}  // namespace qk

#endif  // SUPPORT_TLS_H_
