// All interleavings of two threads over the steps of the lock, with a signal at any step of one, and
// with stores that other threads see late, as processors have them.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "support/basic_mtx.h"
#include "tests/support/interleavings.h"

namespace {

using interleavings::Interleavings;
using interleavings::State;

// There is only one real thread here, so that sanitizers see nothing, and once is enough.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kIsWorthwhile = false;
#else
constexpr bool kIsWorthwhile = !qk::kAssertions;
#endif

/** A store stays with its thread until it becomes visible; everything else is visible at once. */
template <class T>
class SteppedAtomic {
 public:
  constexpr SteppedAtomic(T value = 0) : variable_(value) {}  // NOLINT: as std::atomic

  [[nodiscard]] T load(std::memory_order /*order*/) const {
    Interleavings::now().step();
    return static_cast<T>(Interleavings::now().read(variable_));
  }
  void store(T value, std::memory_order /*order*/) {
    Interleavings::now().step();
    Interleavings::now().write(variable_, value);
  }
  T exchange(T value, std::memory_order /*order*/) {
    return change([value](T) { return value; });
  }
  T fetch_add(T by, std::memory_order /*order*/) {
    return change([by](T old) { return static_cast<T>(old + by); });
  }
  T fetch_sub(T by, std::memory_order /*order*/) {
    return change([by](T old) { return static_cast<T>(old - by); });
  }
  bool compare_exchange_strong(T& expected, T value, std::memory_order /*order*/,
                               std::memory_order /*order*/) {
    const T wanted = expected;
    expected = change([wanted, value](T old) { return old == wanted ? value : old; });
    return expected == wanted;
  }

  [[nodiscard]] const std::uint64_t& variable() const { return variable_; }

 private:
  template <class Change>
  T change(Change change) {
    Interleavings::now().step();
    Interleavings::now().show_own_stores();
    const auto old = static_cast<T>(variable_);
    variable_ = change(old);
    return old;
  }

  std::uint64_t variable_;
};

/** With a barrier, as where the kernel has one. */
struct SteppedThreads {
  template <class T>
  using Atomic = SteppedAtomic<T>;
  using Wakes = SteppedAtomic<std::uint32_t>;

  static constexpr std::uint32_t kRunForFavour = 1;
  static constexpr int kLooks = 0;
  static void pause() {}

  static std::uint64_t self() {
    return 16 * (static_cast<std::uint64_t>(Interleavings::now().current()) + 1);
  }

  static bool prepare_barrier() { return true; }
  static bool barrier_works() { return true; }
  static void barrier() {
    Interleavings::now().step();
    Interleavings::now().show_all_stores();
  }
  static void barrier_before_sleep() { barrier(); }

  static void sleep(const Wakes& wakes, std::uint32_t seen) {
    Interleavings& now = Interleavings::now();
    now.step();
    if (now.read(wakes.variable()) == seen) now.sleep(wakes.variable());
  }
  static void wake_one(const Wakes& wakes) { wake(wakes, 1); }
  static void wake_all(const Wakes& wakes) { wake(wakes, 2); }

 private:
  static void wake(const Wakes& wakes, int limit) {
    Interleavings::now().step();
    Interleavings::now().wake(wakes.variable(), limit);
  }
};

struct SteppedThreadsWithoutBarrier : SteppedThreads {
  static bool prepare_barrier() { return false; }
  static bool barrier_works() { return false; }
  static void barrier() {}
  static void barrier_before_sleep() {}
};

/** The locks and what the first protects, anew for each run. */
template <class Machine>
struct Scene {
  qk::BasicMtx<Machine> first;
  qk::BasicMtx<Machine> second;
  int inside = 0;
  bool was_shared = false;
  bool is_reported = false;
};

template <class Machine>
class MtxInterleavings : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kIsWorthwhile) GTEST_SKIP() << "done in the plain build";
  }

  /** Enters what the first lock protects. */
  void enter() {
    if (++scene_.inside != 1) scene_.was_shared = true;
    walk_.step();
    if (scene_.inside-- != 1) scene_.was_shared = true;
  }

  void lock_and_enter() {
    scene_.first.lock();
    enter();
    scene_.first.unlock();
  }

  /** As calls that need few registers in the usual case. */
  void enter_as_favourite_or_lock() {
    const auto entry = scene_.first.enter_as_favourite();
    if (!entry.is_inside()) return lock_and_enter();
    enter();
    scene_.first.leave(entry);
  }

  void try_and_enter() {
    if (!scene_.first.try_lock()) return;
    enter();
    scene_.first.unlock();
  }

  [[nodiscard]] bool both_ended() const {
    return walk_.state_of(0) == State::kEnded && walk_.state_of(1) == State::kEnded;
  }

  /** Expects that the lock is never shared and that all ends well, in more than `least` states. */
  void walk(std::size_t least) {
    bool was_shared = false;
    bool ended_well = true;
    walk_.is_right = [&] { return !(was_shared = scene_.was_shared); };
    if (walk_.has_ended == nullptr) walk_.has_ended = [this] { return both_ended(); };
    walk_.has_ended = [&, has_ended = walk_.has_ended] { return ended_well = has_ended(); };
    const std::size_t states = walk_.walk();
    std::printf("%zu states\n", states);
    EXPECT_FALSE(was_shared);
    EXPECT_TRUE(ended_well);
    EXPECT_GT(states, least);
  }

  Interleavings walk_;
  Scene<Machine>& scene_ = walk_.make_scene<Scene<Machine>>();
};

using Machines = ::testing::Types<SteppedThreads, SteppedThreadsWithoutBarrier>;
struct MachineNames {
  template <class Machine>
  static std::string GetName(int /*index*/) {
    return std::is_same_v<Machine, SteppedThreads> ? "WithBarrier" : "WithoutBarrier";
  }
};
TYPED_TEST_SUITE(MtxInterleavings, Machines, MachineNames);

TYPED_TEST(MtxInterleavings, ExcludeThreadsAndWakeThem) {
  this->walk_.lives[0] = this->walk_.lives[1] = [this] {
    this->lock_and_enter();
    this->lock_and_enter();
  };
  this->walk(1000);
}

TYPED_TEST(MtxInterleavings, ExcludeFavouritesThatHaveEntered) {
  this->walk_.lives[0] = [this] {
    this->lock_and_enter();
    this->enter_as_favourite_or_lock();
  };
  this->walk_.lives[1] = [this] {
    this->lock_and_enter();
    this->enter_as_favourite_or_lock();
  };
  this->walk(1000);
}

TYPED_TEST(MtxInterleavings, ExcludeThreadsThatLockAgain) {
  this->walk_.lives[0] = [this] {
    for (int i = 0; i < 2; ++i) {
      this->scene_.first.lock();
      this->lock_and_enter();
      this->enter();
      this->scene_.first.unlock();
    }
  };
  this->walk_.lives[1] = [this] { this->lock_and_enter(); };
  this->walk(1000);
}

TYPED_TEST(MtxInterleavings, ExcludeThreadsThatOnlyTry) {
  this->walk_.lives[0] = [this] {
    for (int i = 0; i < 3; ++i) this->lock_and_enter();
  };
  this->walk_.lives[1] = [this] {
    for (int i = 0; i < 2; ++i) this->try_and_enter();
  };
  this->walk(1000);
}

// The second thread becomes the favourite after it has withdrawn the first one's favour, while that
// one may still be about to enter.
TYPED_TEST(MtxInterleavings, ReplaceOneFavouriteByAnother) {
  this->walk_.lives[0] = [this] {
    this->lock_and_enter();
    this->lock_and_enter();
  };
  this->walk_.lives[1] = [this] {
    for (int i = 0; i < 3; ++i) this->lock_and_enter();
  };
  this->walk(1000);
}

TYPED_TEST(MtxInterleavings, LetASignalHandlerLockWhatItsThreadDoesNotHold) {
  this->walk_.lives[0] = [this] {
    this->lock_and_enter();
    this->lock_and_enter();
  };
  this->walk_.lives[1] = [this] { this->lock_and_enter(); };
  this->walk_.signal = [this] {
    if (this->scene_.first.held()) return;
    this->scene_.first.wake_sleepers();
    this->lock_and_enter();
  };
  this->walk(10000);
}

// The handler needs the first lock. The other thread may have it and sleep on the second one, which
// the interrupted thread has released.
TYPED_TEST(MtxInterleavings, LetASignalHandlerFinishWithoutItsThread) {
  this->walk_.lives[0] = [this] {
    for (int i = 0; i < 2; ++i) {
      this->scene_.second.lock();
      this->scene_.second.unlock();
    }
  };
  this->walk_.lives[1] = [this] {
    this->scene_.first.lock();
    this->scene_.second.lock();
    this->scene_.second.unlock();
    this->scene_.first.unlock();
  };
  this->walk_.signal = [this] {
    if (this->scene_.first.held() || this->scene_.second.held()) return;
    this->scene_.second.wake_sleepers();
    this->scene_.first.lock();
    this->scene_.is_reported = true;
    this->walk_.end();
  };
  this->walk_.has_ended = [this] {
    return this->walk_.state_of(0) == State::kEnded &&
           (this->scene_.is_reported || this->walk_.state_of(1) == State::kEnded);
  };
  this->walk(10000);
}

}  // namespace
