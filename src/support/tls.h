#ifndef SUPPORT_TLS_H_
#define SUPPORT_TLS_H_

#include <map>
#include <utility>

#include "support/mtx_lock.h"
#include "support/system_memory.h"
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
 * Entries are made by malloc, never by operator new, and without the lock. So a program's own
 * allocator can use the object too, directly or while it waits for other threads.
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
    if (constructed_) values_.~Values();
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
    if (T* value = find(thread)) return value;
    Spare& spare = spare_of_thread();
    Entry entry = make_entry(thread);
    const MtxLock lock(mtx_);  // released before an entry that isn't needed is freed
    return insert(thread, entry, spare);
  }
  [[nodiscard]] T& operator*() noexcept { return *get(); }

  /** Blocks calls of all other threads, during a fork for instance, until unlock(). */
  void lock() noexcept QK_ACQUIRE(mtx_) { mtx_.lock(); }
  void unlock() noexcept QK_RELEASE(mtx_) { mtx_.unlock(); }

  /** Returns whether the calling thread holds the lock: inside a call, or after lock(). */
  [[nodiscard]] bool held() const noexcept { return mtx_.held(); }

  /** See Mtx::wake_sleepers(). */
  void wake_sleepers() noexcept { mtx_.wake_sleepers(); }

  /** See Mtx::forget_waiters(). */
  void forget_waiters() noexcept { mtx_.forget_waiters(); }

 private:
  // With std::less, <functional> would double the time to compile most of the library.
  struct IsBefore {
    bool operator()(unsigned long one, unsigned long other) const noexcept { return one < other; }
  };
  using Values = std::map<unsigned long, T, IsBefore,
                          own_memory::Allocator<std::pair<const unsigned long, T>>>;
  using Entry = typename Values::node_type;

  struct Spare {
    const TLS* user = nullptr;
    T value{};
  };

  /** The value in a thread's entry; null if there is no entry. */
  T* find(unsigned long thread) noexcept {
    const MtxLock lock(mtx_);
    if (!constructed_) construct_map();
    const auto found = values_.find(thread);
    return found == values_.end() ? nullptr : &found->second;
  }

  void construct_map() noexcept QK_REQUIRES(mtx_) {
    mtx_.assert_held();
    own_memory::construct_at(&values_);
    constructed_ = true;
  }

  /**
   * An entry that is in no map yet; empty if there is no memory. Called without the lock: a malloc
   * of the program's own may call the library, or wait for another thread that does.
   */
  static Entry make_entry(unsigned long thread) noexcept {
    try {
      Values values;
      return values.extract(values.emplace(thread, T{}).first);
    } catch (...) {
      return {};
    }
  }

  /** The value in a thread's new entry or, without memory for one, in its spare variable. */
  T* insert(unsigned long thread, Entry& entry, Spare& spare) noexcept QK_REQUIRES(mtx_) {
    mtx_.assert_held();
    // The allocator may have used the object meanwhile, in this thread.
    if (const auto found = values_.find(thread); found != values_.end()) return &found->second;
    if (entry.empty()) {
      if (spare.user != this) spare = {this, T{}};
      return &spare.value;
    }
    T* value = &values_.insert(std::move(entry)).position->second;
    if (spare.user == this) {
      *value = spare.value;
      spare.user = nullptr;
    }
    return value;
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
