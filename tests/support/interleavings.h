#ifndef TESTS_SUPPORT_INTERLEAVINGS_H_
#define TESTS_SUPPORT_INTERLEAVINGS_H_

#include <ucontext.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <string_view>
#include <type_traits>
#include <unordered_set>

namespace interleavings {

/** A store that the other thread doesn't see yet. */
struct PendingStore {
  std::uint64_t* variable;
  std::uint64_t value;
};

/** What a thread can do next. */
enum class State { kReady, kAsleep, kEnded };

struct Thread {
  static constexpr std::size_t kStackBytes = 4096;
  static constexpr int kMaxPending = 8;

  State state;
  const std::uint64_t* sleeps_on;
  int pending;
  PendingStore stores[kMaxPending];  // become visible in this order, as processors have it
  ucontext_t context;
  alignas(16) char stack[kStackBytes];
};

/** All that a step can change, so that a walk can go back by copying it. */
struct World {
  static constexpr std::size_t kSceneBytes = 512;

  Thread threads[2];
  bool is_signal_due;
  bool takes_signal;
  alignas(16) char scene[kSceneBytes];
};

/**
 * Walks through all interleavings of two threads, which take turns. Before each access of a variable
 * that both use it is chosen which thread goes on, whether a store becomes visible first, and whether
 * a signal arrives at the first thread. There is only one real thread.
 */
class Interleavings {
 public:
  Interleavings();
  Interleavings(const Interleavings&) = delete;
  Interleavings& operator=(const Interleavings&) = delete;
  ~Interleavings();

  std::function<void()> lives[2];
  std::function<void()> signal;     // arrives once; null for never
  std::function<bool()> is_right;   // asked in each state; false ends the walk
  std::function<bool()> has_ended;  // asked when no thread can go on; false ends the walk

  /** Makes what the threads share. It is copied byte by byte. */
  template <class Scene>
  Scene& make_scene() {
    static_assert(sizeof(Scene) <= World::kSceneBytes && std::is_trivially_destructible_v<Scene>);
    return *new (world_.scene) Scene;
  }

  /** Walks, and returns the number of different states. */
  std::size_t walk();

  /** The walk in which the caller is a thread. */
  static Interleavings& now();

  // What threads call.

  [[nodiscard]] int current() const { return current_; }
  [[nodiscard]] State state_of(int thread) const { return world_.threads[thread].state; }

  /** To be called before each access. */
  void step();

  [[nodiscard]] std::uint64_t read(const std::uint64_t& variable) const;

  /** Stores what the other thread sees later. */
  void write(std::uint64_t& variable, std::uint64_t value);

  /** Makes the stores of one thread, or of both, visible. */
  void show_own_stores();
  void show_all_stores();

  /** Sleeps on a variable. A signal wakes the thread, too. */
  void sleep(const std::uint64_t& variable);
  void wake(const std::uint64_t& variable, int limit);

  /** Ends the thread, wherever it is. */
  void end();

 private:
  enum class Move { kGoOn, kShowStore, kSignal };
  struct Option {
    Move move;
    int thread;
  };
  struct Options {
    Option all[6];
    int count;
  };

  static void live();
  void begin();
  void explore();
  [[nodiscard]] Options options() const;
  void make(Option option);
  void take_signal();
  void stop(State state);
  [[nodiscard]] std::uint64_t hash() const;

  Thread& thread() { return world_.threads[current_]; }

  World world_ = {};
  ucontext_t scheduler_ = {};
  int current_ = 0;
  bool goes_on_ = true;
  std::unordered_set<std::uint64_t> states_;
};

}  // namespace interleavings

#endif  // TESTS_SUPPORT_INTERLEAVINGS_H_
