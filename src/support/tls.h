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
 * Any thread may call anything at any time, also before static constructors have run if the object
 * is constant initialised. Nothing throws as long as T's own copying doesn't: a thread whose entry
 * can't be made for want of memory keeps its value in a spare place, and it moves to the entry as
 * soon as there is one. A thread has one spare place for all TLS<T> of the same T; the object that
 * needed it last has it.
 *
 * Entries outlive their threads. Destroy the object when no thread uses it any more.
 */
template <class T>
class TLS {
 public:
  constexpr TLS() noexcept : not_made_(0) {}
  TLS(const TLS&) = delete;
  TLS& operator=(const TLS&) = delete;
  ~TLS() {
    if (made_) std::destroy_at(&values_);
  }

  /** Stores the calling thread's value. */
  void set(const T& value) noexcept { *get() = value; }
  TLS& operator=(const T& value) noexcept {
    set(value);
    return *this;
  }

  /**
   * Finds the calling thread's value. Never null. For the calling thread only, which may read and
   * write it without a lock until its next call on the object: that call can move a value from the
   * spare place to an entry. A value in an entry stays where it is.
   */
  [[nodiscard]] T* get() noexcept {
    const unsigned long thread = qk_gettid();
    const MtxLock lock(mtx_);
    if (!made_) make_map();
    if (const auto found = values_.find(thread); found != values_.end()) return &found->second;
    return insert(thread);
  }
  [[nodiscard]] T& operator*() noexcept { return *get(); }

  /** Keeps every other thread out, over a fork for instance, until let_go(). */
  void hold() noexcept QK_ACQUIRE(mtx_) { mtx_.lock(); }
  void let_go() noexcept QK_RELEASE(mtx_) { mtx_.unlock(); }

  /** Tells whether the calling thread is inside a call, or holds the others out. */
  [[nodiscard]] bool held() const noexcept { return mtx_.held(); }

 private:
  using Values = std::map<unsigned long, T>;

  struct Spare {
    const TLS* user = nullptr;
    T value{};
  };

  void make_map() noexcept QK_REQUIRES(mtx_) {
    mtx_.assert_held();
    std::construct_at(&values_);
    made_ = true;
  }

  /**
   * The map's own order of steps matters where the program's operator new fails, reports that and
   * so comes back here with the lock held: emplace() obtains memory first and looks for the place
   * after.
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

  // A map can't be constant initialised, a union that holds it can: the map is made at the first
  // use.
  union {
    char not_made_;
    Values values_;
  };
  Mtx mtx_;
  bool made_ QK_GUARDED_BY(mtx_) = false;
};

}  // namespace qk

#endif  // SUPPORT_TLS_H_
