#ifndef QKMEM_TOOLS_INPUT_MADE_AHEAD_H_
#define QKMEM_TOOLS_INPUT_MADE_AHEAD_H_

#include <signal.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace qk::command {

/** While it lasts, threads are begun that leave signals to those that are there. */
class SignalsElsewhere {
 public:
  SignalsElsewhere() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsElsewhere(const SignalsElsewhere&) = delete;
  SignalsElsewhere& operator=(const SignalsElsewhere&) = delete;
  ~SignalsElsewhere() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_ = {};
};

/**
 * Batches in their order, which a thread of their own makes while the caller takes those before.
 * Where the system gives no thread, each is made when it is wanted. Batches are made in place of
 * older ones, so that memory which they have stays theirs.
 */
template <class Batch>
class MadeAhead {
 public:
  /** Makes a batch. Returns false if there are no more. What it throws, next() throws in its turn. */
  using Make = std::function<bool(Batch&)>;

  /** @param interrupt  ends a wait in `make` once nobody wants more; null if it never waits long. */
  explicit MadeAhead(Make make, std::function<void()> interrupt = nullptr)
      : make_(std::move(make)), interrupt_(std::move(interrupt)) {
    const SignalsElsewhere signals;
    try {
      maker_ = std::thread([this] { make_all(); });
    } catch (const std::system_error&) {
      // next() makes them.
    }
  }
  MadeAhead(const MadeAhead&) = delete;
  MadeAhead& operator=(const MadeAhead&) = delete;
  ~MadeAhead() {
    if (!maker_.joinable()) return;
    {
      const std::lock_guard lock(mutex_);
      is_over_ = true;
    }
    room_.notify_one();
    if (interrupt_) interrupt_();
    maker_.join();
  }

  /** The next batch, valid until the next call; null at the end. */
  [[nodiscard]] const Batch* next() {
    if (!maker_.joinable()) return make_(batches_[0]) ? batches_.data() : nullptr;
    std::unique_lock lock(mutex_);
    if (is_taken_ && made_ - ++done_ == kBatches / 2) room_.notify_one();
    arrived_.wait(lock, [this] { return done_ < made_ || is_over_; });
    is_taken_ = done_ < made_;
    if (is_taken_) return &batch(done_);
    if (error_) std::rethrow_exception(std::exchange(error_, nullptr));
    return nullptr;
  }

 private:
  static constexpr std::size_t kBatches = 8;

  [[nodiscard]] Batch& batch(std::uint64_t number) { return batches_[number % kBatches]; }

  void make_all() {
    std::unique_lock lock(mutex_);
    while (!is_over_) {
      lock.unlock();
      std::exception_ptr error;
      bool has_more = false;
      try {
        has_more = make_(batch(made_));
      } catch (...) {
        error = std::current_exception();
      }
      lock.lock();
      if (has_more) {
        ++made_;
      } else {
        error_ = error;
        is_over_ = true;
      }
      arrived_.notify_one();
      if (made_ - done_ < kBatches) continue;
      room_.wait(lock, [this] { return made_ - done_ <= kBatches / 2 || is_over_; });
    }
  }

  const Make make_;
  const std::function<void()> interrupt_;
  std::array<Batch, kBatches> batches_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::condition_variable room_;
  std::uint64_t made_ = 0;  // batches
  std::uint64_t done_ = 0;  // batches that nobody looks at any more
  bool is_taken_ = false;   // the one behind those
  bool is_over_ = false;    // no more are made
  std::exception_ptr error_;
  std::thread maker_;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_MADE_AHEAD_H_
