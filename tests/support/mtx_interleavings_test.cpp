// All interleavings of two threads over the steps of the lock, with a signal at any step of one.
#include <gtest/gtest.h>
#include <ucontext.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "support/mtx.h"

namespace {

// There is only one real thread here, so that sanitizers see nothing, and once is enough.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kIsWorthwhile = false;
#else
constexpr bool kIsWorthwhile = !qk::kAssertions;
#endif

/** Goes through all sequences of choices, one sequence a run: the last choice changes first. */
class Choices {
 public:
  void begin_run() { at_ = 0; }

  /** A number below `options`. */
  int choose(int options) {
    if (options == 1) return 0;
    if (at_ == made_.size()) made_.push_back({0, options});
    return made_[at_++].choice;
  }

  /** Returns false after the last sequence. */
  bool next_run() {
    while (!made_.empty() && made_.back().choice + 1 == made_.back().options) made_.pop_back();
    if (made_.empty()) return false;
    ++made_.back().choice;
    return true;
  }

 private:
  struct Choice {
    int choice;
    int options;
  };
  std::vector<Choice> made_;
  std::size_t at_ = 0;
};

/** What one of the two threads can do next. */
enum class State { kReady, kAsleep, kEnded };

struct Thread {
  ucontext_t context = {};
  State state = State::kReady;
  const void* sleeps_on = nullptr;
  std::function<void()> life;
  std::vector<char> stack = std::vector<char>(65536);
};

/** Two threads that take turns: before each step on the lock's word the next one is chosen. */
struct Interleaving {
  Choices choices;
  Thread threads[2];
  ucontext_t scheduler = {};
  int current = 0;
  std::function<void()> signal;  // runs in the first thread, once, before some step
  bool is_signal_due = false;

  /** Lets the other thread go first, or the signal arrive, or both, or neither. */
  void step() {
    swapcontext(&threads[current].context, &scheduler);
    if (can_be_interrupted(current) && choices.choose(2) == 1) take_signal();
  }

  [[nodiscard]] bool can_be_interrupted(int thread) const { return thread == 0 && is_signal_due; }

  void take_signal() {
    is_signal_due = false;
    signal();
  }

  void stop(State state) {
    threads[current].state = state;
    swapcontext(&threads[current].context, &scheduler);
  }
};
Interleaving* run = nullptr;

void live() {
  run->threads[run->current].life();
  run->stop(State::kEnded);
}

/** Each access is a step. */
class SteppedWord {
 public:
  constexpr explicit SteppedWord(std::uint64_t value) : value_(value) {}

  [[nodiscard]] std::uint64_t load(std::memory_order /*order*/) const {
    run->step();
    return value_;
  }
  void store(std::uint64_t value, std::memory_order /*order*/) {
    run->step();
    value_ = value;
  }
  std::uint64_t exchange(std::uint64_t value, std::memory_order /*order*/) {
    run->step();
    return std::exchange(value_, value);
  }
  bool compare_exchange_strong(std::uint64_t& expected, std::uint64_t value,
                               std::memory_order /*order*/,
                               std::memory_order /*order*/ = std::memory_order_relaxed) {
    run->step();
    if (value_ != expected) {
      expected = value_;
      return false;
    }
    value_ = value;
    return true;
  }

  [[nodiscard]] std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_;
};

struct SteppedThreads {
  using Word = SteppedWord;

  static std::uint64_t self() { return 16 * (static_cast<std::uint64_t>(run->current) + 1); }
  static bool single_threaded() { return false; }
  static void sleep(const Word& word, std::uint64_t seen) {
    run->step();
    if (word.value() != seen) return;
    Thread& thread = run->threads[run->current];
    thread.sleeps_on = &word;
    run->stop(State::kAsleep);
    if (thread.state != State::kAsleep) return;
    thread.state = State::kReady;
    run->take_signal();
  }
  static void wake(Word& word) {
    run->step();
    for (Thread& thread : run->threads) {
      if (thread.state == State::kAsleep && thread.sleeps_on == &word) {
        thread.state = State::kReady;
        return;
      }
    }
  }
};

using SteppedMtx = qk::BasicMtx<SteppedThreads>;

/** Runs both threads until neither can go on. A signal wakes a thread, as the kernel does. */
void run_once(Interleaving& now) {
  for (Thread& thread : now.threads) {
    thread.state = State::kReady;
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = thread.stack.data();
    thread.context.uc_stack.ss_size = thread.stack.size();
    makecontext(&thread.context, live, 0);
  }
  for (;;) {
    int runnable[2];
    int count = 0;
    for (int i = 0; i < 2; ++i) {
      const State state = now.threads[i].state;
      if (state == State::kReady || (state == State::kAsleep && now.can_be_interrupted(i))) {
        runnable[count++] = i;
      }
    }
    if (count == 0) return;
    now.current = runnable[now.choices.choose(count)];
    swapcontext(&now.scheduler, &now.threads[now.current].context);
  }
}

/** The locks and what the first protects, anew for each run. */
struct Scene {
  SteppedMtx first;
  SteppedMtx second;
  int inside = 0;
  bool was_shared = false;
  bool is_reported = false;
};

class MtxInterleavings : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kIsWorthwhile) GTEST_SKIP() << "done in the plain build";
    run = &run_;
  }

  /** Enters what the first lock protects. */
  void enter() {
    if (++scene_->inside != 1) scene_->was_shared = true;
    run_.step();
    if (scene_->inside-- != 1) scene_->was_shared = true;
  }

  void lock_and_enter() {
    scene_->first.lock();
    enter();
    scene_->first.unlock();
  }

  /** Calls `check` after each run. Returns the number of runs. */
  int walk(std::function<void()> first, std::function<void()> second, std::function<void()> signal,
           const std::function<void()>& check) {
    run_.threads[0].life = std::move(first);
    run_.threads[1].life = std::move(second);
    run_.signal = std::move(signal);
    int runs = 0;
    do {
      scene_.emplace();
      run_.choices.begin_run();
      run_.is_signal_due = run_.signal != nullptr;
      run_once(run_);
      check();
      ++runs;
    } while (!HasFailure() && run_.choices.next_run());
    std::printf("%d runs\n", runs);
    return runs;
  }

  void expect_that_both_ended() {
    EXPECT_EQ(run_.threads[0].state, State::kEnded);
    EXPECT_EQ(run_.threads[1].state, State::kEnded);
    EXPECT_FALSE(scene_->was_shared);
  }

  Interleaving run_;
  std::optional<Scene> scene_;
};

TEST_F(MtxInterleavings, ExcludeThreadsAndWakeThem) {
  const auto twice = [this] {
    lock_and_enter();
    lock_and_enter();
  };
  const int runs = walk(
      twice, [this] { lock_and_enter(); }, nullptr, [this] { expect_that_both_ended(); });
  EXPECT_GT(runs, 1000);
}

TEST_F(MtxInterleavings, ExcludeThreadsThatLockAgain) {
  const auto nested = [this] {
    scene_->first.lock();
    lock_and_enter();
    enter();
    scene_->first.unlock();
  };
  const int runs = walk(
      nested, [this] { lock_and_enter(); }, nullptr, [this] { expect_that_both_ended(); });
  EXPECT_GT(runs, 1000);
}

TEST_F(MtxInterleavings, LetASignalHandlerLockWhatItsThreadDoesNotHold) {
  const auto handler = [this] {
    if (!scene_->first.held()) lock_and_enter();
  };
  const auto once = [this] { lock_and_enter(); };
  const int runs = walk(once, once, handler, [this] { expect_that_both_ended(); });
  EXPECT_GT(runs, 10000);
}

// The handler needs the first lock. The other thread may have it and sleep on the second one, which
// the interrupted thread has released.
TEST_F(MtxInterleavings, LetASignalHandlerFinishWithoutItsThread) {
  const auto release_the_second = [this] {
    scene_->second.lock();
    scene_->second.unlock();
  };
  const auto need_both = [this] {
    scene_->first.lock();
    scene_->second.lock();
    scene_->second.unlock();
    scene_->first.unlock();
  };
  const auto handler = [this] {
    if (scene_->first.held() || scene_->second.held()) return;
    scene_->second.wake_sleeper();
    scene_->first.lock();
    scene_->is_reported = true;
    run_.stop(State::kEnded);
  };
  const int runs = walk(release_the_second, need_both, handler, [this] {
    EXPECT_EQ(run_.threads[0].state, State::kEnded);
    EXPECT_TRUE(scene_->is_reported || run_.threads[1].state == State::kEnded);
  });
  EXPECT_GT(runs, 10000);
}

}  // namespace
