#include "support/stopped_threads.h"

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "support/process_copy.h"

namespace qk {
namespace {

constexpr int kMostThreads = 4096;

}  // namespace

/** What process and helper share. Pages that aren't needed take no memory. */
struct StoppedThreads::Shared {
  /** How far they are. */
  enum class Phase : std::uint32_t { kBegun, kMayStop, kStopped, kFailed, kMayGoOn };

  struct Stopped {
    pid_t thread;
    int signal;  // that it was about to handle
  };

  std::atomic<Phase> phase;
  std::uint32_t count;
  Stopped threads[kMostThreads];
  ThreadState states[kMostThreads];
};

namespace {

using Phase = StoppedThreads::Shared::Phase;
using Stopped = StoppedThreads::Shared::Stopped;
using Phases = std::atomic<Phase>;
static_assert(sizeof(Phases) == 4 && Phases::is_always_lock_free);

/** Waits for a while, or until the phase is another one. */
void wait_while(Phases& phase, Phase seen) {
  constexpr timespec kWhile = {0, 10'000'000};
  if (phase.load(std::memory_order_acquire) != seen) return;
  syscall(SYS_futex, &phase, FUTEX_WAIT, static_cast<std::uint32_t>(seen), &kWhile, nullptr, 0);
}

void enter(Phases& phase, Phase next) {
  phase.store(next, std::memory_order_release);
  syscall(SYS_futex, &phase, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

std::int64_t milliseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

/** A number as ptrace() takes it. */
void* as_argument(int number) {
  return reinterpret_cast<void*>(std::uintptr_t(number));  // NOLINT(performance-no-int-to-ptr)
}

/** In words; 0 if there are none. */
std::uint64_t read_registers(pid_t thread, int kind, std::span<std::uint64_t> room) {
  iovec part = {room.data(), room.size_bytes()};
  if (ptrace(PTRACE_GETREGSET, thread, as_argument(kind), &part) != 0) return 0;
  return part.iov_len / sizeof(std::uint64_t);
}

/** Where a register is among those for numbers. */
#if defined(__x86_64__)
constexpr std::size_t kStackPointer = 19;
constexpr std::size_t kThreadPointer = 21;
#elif defined(__aarch64__)
constexpr std::size_t kStackPointer = 31;
#else
constexpr std::size_t kStackPointer = ThreadState::kMostWords;
#endif

bool read_state(pid_t thread, ThreadState& state) {
  const std::span<std::uint64_t> room = state.registers;
  state.words = read_registers(thread, NT_PRSTATUS, room);
  if (state.words <= kStackPointer) return false;
  state.stack_pointer = state.registers[kStackPointer];
#if defined(__x86_64__)
  state.thread_pointer = state.registers[kThreadPointer];
#elif defined(__aarch64__)
  static_cast<void>(read_registers(thread, NT_ARM_TLS, {&state.thread_pointer, 1}));
#endif
  state.words += read_registers(thread, NT_PRFPREG, room.subspan(state.words));
  return true;
}

/** Stops the threads of a process, and lets them go on. Only the helper has one. */
class Stopper {
 public:
  Stopper(std::span<Stopped> threads, std::span<ThreadState> states, pid_t process, pid_t spared)
      : threads_(threads), states_(states), process_(process), spared_(spared) {}

  [[nodiscard]] std::uint32_t count() const { return count_; }

  /** Looks for threads until there are no new ones. */
  [[nodiscard]] bool stop_all() {
    std::uint32_t before = 0;
    do {
      before = count_;
      if (!stop_listed()) return false;
    } while (count_ != before);
    return true;
  }

  void let_all_go() {
    for (std::uint32_t i = 0; i < count_; ++i) {
      ptrace(PTRACE_DETACH, threads_[i].thread, nullptr, as_argument(threads_[i].signal));
    }
  }

 private:
  [[nodiscard]] bool is_known(pid_t thread) const {
    for (std::uint32_t i = 0; i < count_; ++i) {
      if (threads_[i].thread == thread) return true;
    }
    return thread == spared_;
  }

  [[nodiscard]] bool stop_listed() {
    char path[40];
    std::snprintf(path, sizeof path, "/proc/%d/task", process_);
    const int folder = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return false;
    const bool have_stopped = stop_in(folder);
    close(folder);
    return have_stopped;
  }

  [[nodiscard]] bool stop_in(int folder) {
    alignas(dirent64) char entries[4096];
    for (;;) {
      const ssize_t bytes = getdents64(folder, entries, sizeof entries);
      if (bytes <= 0) return bytes == 0;
      for (ssize_t at = 0; at < bytes;) {
        const auto& entry = *reinterpret_cast<const dirent64*>(entries + at);
        at += entry.d_reclen;
        pid_t thread = 0;
        std::from_chars(entry.d_name, entry.d_name + std::strlen(entry.d_name), thread);
        if (thread != 0 && !is_known(thread) && !stop(thread)) return false;
      }
    }
  }

  /** A thread that has ended meanwhile needn't be stopped. */
  [[nodiscard]] bool stop(pid_t thread) {
    if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0) return errno == ESRCH;
    if (ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0) return errno == ESRCH;
    int status = 0;
    switch (wait_for_stop(thread, status)) {
      case Wait::kEnded:
        return true;
      case Wait::kTooLong:
        return false;
      case Wait::kStopped:
        break;
    }
    if (count_ == threads_.size()) return false;
    // Any stop but that which was asked for is because of a signal.
    const bool has_signal = status >> 16 == 0;
    threads_[count_] = {thread, has_signal ? WSTOPSIG(status) : 0};
    ++count_;
    return read_state(thread, states_[count_ - 1]);
  }

  enum class Wait { kStopped, kEnded, kTooLong };

  [[nodiscard]] Wait wait_for_stop(pid_t thread, int& status) const {
    for (;;) {
      const pid_t changed = waitpid(thread, &status, __WALL | WNOHANG);
      if (changed == thread) return WIFSTOPPED(status) ? Wait::kStopped : Wait::kEnded;
      if (changed < 0) return Wait::kEnded;
      if (milliseconds() > latest_) return Wait::kTooLong;
      constexpr timespec kShortly = {0, 50'000};
      nanosleep(&kShortly, nullptr);
    }
  }

  std::span<Stopped> threads_;
  std::span<ThreadState> states_;
  pid_t process_;
  pid_t spared_;
  std::uint32_t count_ = 0;
  std::int64_t latest_ = milliseconds() + 1000;
};

}  // namespace

StoppedThreads::StoppedThreads() noexcept {
  void* const pages = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (pages == MAP_FAILED) return;
  shared_ = static_cast<Shared*>(pages);
  stop();
}

void StoppedThreads::stop() {
  std::atomic<Phase>& phase = shared_->phase;
  const pid_t process = getpid();
  const pid_t spared = gettid();
  const pid_t helper = copy_process();
  if (helper == 0) {
    while (phase.load(std::memory_order_acquire) == Phase::kBegun) wait_while(phase, Phase::kBegun);
    Stopper stopper(shared_->threads, shared_->states, process, spared);
    const bool have_stopped = stopper.stop_all();
    shared_->count = stopper.count();
    if (!have_stopped) stopper.let_all_go();
    enter(phase, have_stopped ? Phase::kStopped : Phase::kFailed);
    while (phase.load(std::memory_order_acquire) == Phase::kStopped) {
      wait_while(phase, Phase::kStopped);
    }
    if (have_stopped) stopper.let_all_go();
    _exit(0);
  }
  if (helper < 0) return;
  prctl(PR_SET_PTRACER, helper);  // does nothing where no permission is needed
  enter(phase, Phase::kMayStop);
  bool has_ended = false;
  while (phase.load(std::memory_order_acquire) == Phase::kMayStop && !has_ended) {
    wait_while(phase, Phase::kMayStop);
    has_ended = has_copy_ended(helper);
  }
  if (!has_ended && phase.load(std::memory_order_acquire) == Phase::kStopped) {
    helper_ = helper;
  } else {
    if (!has_ended) static_cast<void>(wait_for_copy(helper));
    prctl(PR_SET_PTRACER, 0);
  }
}

std::span<const ThreadState> StoppedThreads::states() const {
  if (!are_stopped()) return {};
  return {shared_->states, shared_->count};
}

void StoppedThreads::let_go() noexcept {
  if (!are_stopped()) return;
  enter(shared_->phase, Phase::kMayGoOn);
  static_cast<void>(wait_for_copy(helper_));
  prctl(PR_SET_PTRACER, 0);
  helper_ = 0;
}

StoppedThreads::~StoppedThreads() {
  let_go();
  if (shared_ != nullptr) munmap(shared_, sizeof(Shared));
}

}  // namespace qk
