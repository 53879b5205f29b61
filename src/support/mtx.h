#ifndef SUPPORT_MTX_H_
#define SUPPORT_MTX_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "support/basic_mtx.h"
#include "support/process_barrier.h"
#include "support/shortcuts.h"
#include "support/thread_annotations.h"
#include "support/thread_pointer.h"

namespace qk {

/** Linux threads. */
struct LinuxThreads {
  template <class T>
  using Atomic = std::atomic<T>;

  static constexpr std::uint32_t kRunForFavour = 32;

  /**
   * Two threads that want one lock all the time take it in long turns, because the one that waits
   * looks only now and then. A gap in time does that on any machine, a number of pauses does not.
   */
  static constexpr int kLooks = 20;
  static void pause() noexcept;  // for 3 microseconds

  /** The thread's address, which pthread_self() returns too, but without a call. */
  [[nodiscard]] static std::uint64_t self() noexcept { return thread_pointer(); }

  [[nodiscard]] static bool prepare_barrier() noexcept { return prepare_process_barrier(); }
  [[nodiscard]] static bool barrier_works() noexcept { return process_barrier_works(); }
  static void barrier() noexcept { pass_process_barrier(); }
  static void barrier_before_sleep() noexcept {
    if (!process_barrier_fails()) pass_process_barrier();
  }

  /** Returns at once if the count has changed, and now and then for no reason. */
  static void sleep(std::atomic<std::uint32_t>& wakes, std::uint32_t seen) noexcept;
  static void wake_one(std::atomic<std::uint32_t>& wakes) noexcept;
  static void wake_all(std::atomic<std::uint32_t>& wakes) noexcept;
};

/** The same for tools that see nothing of the barrier, and where there must be no shortcuts. */
struct LinuxThreadsWithoutBarrier : LinuxThreads {
  [[nodiscard]] static constexpr bool prepare_barrier() noexcept { return false; }
  [[nodiscard]] static constexpr bool barrier_works() noexcept { return false; }
  static void barrier() noexcept {}
  static void barrier_before_sleep() noexcept {}
};

#ifdef __SANITIZE_THREAD__
using MtxMachine = LinuxThreadsWithoutBarrier;
#else
using MtxMachine = std::conditional_t<kShortcuts, LinuxThreads, LinuxThreadsWithoutBarrier>;
#endif

/**
 * A recursive lock: the thread that holds it can lock it again. Every lock() needs its own
 * unlock(). Works with MtxLock (support/mtx_lock.h), std::lock_guard and std::unique_lock. A static
 * one can be used before any constructor has run and after exit handlers and destructors have run,
 * because it is constant initialised and has nothing to destroy. It must not be destroyed while a
 * thread holds it or waits for it. Nothing fails, and errno is preserved. Not for use by several
 * processes. A fork copies its state: a lock that another thread held stays locked in the child.
 */
class QK_CAPABILITY("mutex") Mtx : public BasicMtx<MtxMachine> {};

/**
 * To be called early. Once a process has threads, it takes the kernel some milliseconds to get ready
 * for the barrier, and some thread would spend them under a lock.
 */
inline void prepare_locks() noexcept {
  if (__libc_single_threaded != 0) static_cast<void>(MtxMachine::prepare_barrier());
}

}  // namespace qk

#endif  // SUPPORT_MTX_H_
