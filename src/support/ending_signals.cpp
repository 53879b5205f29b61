#include "support/ending_signals.h"

#include <sys/mman.h>
#include <sys/time.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <optional>

#include "support/end_runner.h"
#include "support/no_cancellation.h"
#include "support/signal_names.h"
#include "support/stack_switch.h"

namespace qk {
namespace {

constexpr int kWatchedSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGSEGV,
                                   SIGBUS, SIGFPE, SIGILL,  SIGABRT};

/** In microseconds: from the signal to the end and to the last attempt; between two attempts. */
constexpr std::int64_t kTimeToEnd = 1500000;
constexpr std::int64_t kTimeToLastAttempt = 1000000;
constexpr std::int64_t kTimeBetweenAttempts = 500;

/** The thread that runs the handlers. */
constinit Role runner;

/** The thread that the first signal has interrupted, from then on. */
constinit Role first_hit;

/** The thread that uses the stack below. */
constinit Role stack_user;

/** When the first signal arrived; valid as soon as first_hit has a holder. */
constinit std::atomic<std::int64_t> signal_time{0};

/** See left_stacks(). */
constinit std::atomic<std::uintptr_t> interrupted_stack{0};
constinit std::atomic<std::uintptr_t> handler_stack{0};

/** See fault_address(); without a value as long as `has_fault_address` is false. */
constinit std::atomic<std::uintptr_t> address_of_fault{0};
constinit std::atomic<bool> has_fault_address{false};

constinit std::atomic<ExitHandlerRun> run_handlers{nullptr};
constinit std::atomic<bool (*)(const InterruptedThread&)> interrupts_something{nullptr};

/**
 * Signal handlers work here, since the interrupted thread's stack may be a small alternate signal
 * stack or nearly used up. The lowest page is a guard. It can be read, since leak checkers and
 * collectors of garbage read all of a program's variables.
 */
constexpr std::size_t kStackSize = 262144;
constexpr std::size_t kPage = 4096;
alignas(kPage) constinit char stack[kStackSize] = {};

bool is_on_own_stack() {
  return signal_stack().has(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
}

void set_action(int signal_number, void (*handler)(int, siginfo_t*, void*), int flags) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  action.sa_flags = flags;
  sigfillset(&action.sa_mask);
  sigaction(signal_number, &action, nullptr);
}

void set_default_action(int signal_number) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(signal_number, &action, nullptr);
}

void unblock(int signal_number) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

[[noreturn, gnu::noinline]] void end_by(int signal_number) {
  set_default_action(signal_number);
  unblock(signal_number);
  raise(signal_number);
  _exit(128 + signal_number);  // process 1 of a container survives signals' default actions
}

/** Monotonic time in microseconds. */
std::int64_t now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
}

std::int64_t since_signal() { return now() - signal_time.load(); }

[[gnu::noinline]] void pause_for(std::int64_t microseconds) {
  const NoCancellation no_cancellation;
  const timespec time = {0, microseconds * 1000};
  nanosleep(&time, nullptr);
}

/** Waits in the handler of a signal, where all signals are blocked, until another thread ends it. */
[[noreturn, gnu::noinline]] void wait_for_the_end(int signal_number) {
  while (since_signal() < kTimeToEnd) pause_for(kTimeBetweenAttempts);
  end_by(signal_number);
}

void on_alarm(int signal_number, siginfo_t* info, void* context);

/** Calls on_alarm() after `first`, and then at each interval between attempts. */
void set_alarm(std::int64_t first) {
  set_action(SIGALRM, on_alarm, SA_SIGINFO | SA_ONSTACK | SA_RESTART);
  const itimerval timer = {{0, static_cast<suseconds_t>(kTimeBetweenAttempts)},
                           {first / 1000000, static_cast<suseconds_t>(first % 1000000)}};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

/** The alarm that ends the process, whatever the threads wait for. */
void limit_time() { set_alarm(std::max(kTimeToEnd - since_signal(), kTimeBetweenAttempts)); }

/** Leaves the end to another runner. Returns only if both have normal termination. */
[[gnu::noinline]] void yield_to(const ActingThread& other, const ActingThread& own) {
  if (other.reason() == 0) {
    if (own.reason() != 0) end_by(own.reason());
    return;
  }
  if (other.thread != own.thread) wait_for_the_end(other.reason());
  if (own.reason() == 0) run_handlers.load()(other.reason());  // a handler called exit()
  end_by(other.reason());
}

/** Runs the handlers for a signal, and ends the process. */
[[noreturn]] void finish(const ActingThread& own) {
  if (const auto other = runner.take(own)) yield_to(*other, own);
  limit_time();
  run_handlers.load()(own.reason());
  end_by(own.reason());
}

/** The calling thread with the signal that arrived first. */
ActingThread calling_thread_for(int signal_number) {
  const auto first = first_hit.holder();
  return calling_thread(first ? first->reason() : signal_number);
}

/** A signal that has interrupted the calling thread, which is in its handler. */
struct Delivery {
  int number;
  const siginfo_t* info;
  ucontext_t* context;

  /**
   * Whether an access to memory was refused, and the address is known: not that of other causes,
   * which the kernel gives the code SI_KERNEL, nor of signals that a process has sent.
   */
  [[nodiscard]] bool is_refused_access() const {
    return (number == SIGSEGV || number == SIGBUS) && info->si_code > 0 &&
           info->si_code != SI_KERNEL;
  }

  /** Whether the thread may continue. A fault would only happen again. */
  [[nodiscard]] bool can_wait() const { return number == SIGALRM || qk_signal_safe(number) != 0; }
};

void note_fault(const siginfo_t& info) {
  address_of_fault.store(reinterpret_cast<std::uintptr_t>(info.si_addr));
  has_fault_address.store(true);
}

/** Whether the interrupted thread continues and an alarm leads to the next attempt. */
bool puts_off(const Delivery& signal) {
  if (!signal.can_wait() || since_signal() >= kTimeToLastAttempt) return false;
  const auto test = interrupts_something.load();
  return test != nullptr && test(interrupted_thread(signal.context));
}

/**
 * From here on, the thread doesn't return to what was interrupted. Signals arrive on this stack: on
 * the alternate one they would need room. Faults must not be blocked: the kernel would end the
 * process by their number.
 */
void leave_interrupted_code(const ucontext_t& context) {
  interrupted_stack.store(interrupted_thread(&context).stack);
  handler_stack.store(reinterpret_cast<std::uintptr_t>(&context));
  stack_t none = {};
  none.ss_flags = SS_DISABLE;
  sigaltstack(&none, nullptr);
  sigset_t mask = context.uc_sigmask;
  sigdelset(&mask, SIGALRM);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void note_first(int signal_number) {
  if (signal_number == SIGALRM || first_hit.holder()) return;
  signal_time.store(now());
  first_hit.take(calling_thread(signal_number));
}

/** Ends the process, or puts that off. Before anything that could block, the alarm is set. */
[[gnu::noinline]] void handle(void* delivery) {
  const Delivery& signal = *static_cast<const Delivery*>(delivery);
  note_first(signal.number);
  limit_time();
  if (puts_off(signal)) {
    sigdelset(&signal.context->uc_sigmask, SIGALRM);
    set_alarm(kTimeBetweenAttempts);
    return;
  }
  if (signal.is_refused_access()) note_fault(*signal.info);
  leave_interrupted_code(*signal.context);
  finish(signal.can_wait() ? calling_thread_for(signal.number) : calling_thread(signal.number));
}

/**
 * One thread at a time handles a signal. Another one continues if it can: the first one has set an
 * alarm, or ends the process.
 */
void handle_in_turn(Delivery signal) {
  const ActingThread own = calling_thread(signal.number);
  if (is_on_own_stack()) return handle(&signal);  // in a child that an exit handler has forked
  while (stack_user.take(own)) {
    if (signal.can_wait()) return;
    pause_for(kTimeBetweenAttempts);
    if (const auto at_work = runner.holder()) yield_to(*at_work, own);
  }
  call_on_stack(stack + kPage, kStackSize - kPage, handle, &signal);
  stack_user.give_up();
}

void on_signal(int signal_number, siginfo_t* info, void* context) {
  const int error = errno;
  if (!is_adopted_process()) end_by(signal_number);
  if (const auto at_work = runner.holder()) yield_to(*at_work, calling_thread(signal_number));
  handle_in_turn({signal_number, info, static_cast<ucontext_t*>(context)});
  errno = error;
}

void on_alarm(int /*signal_number*/, siginfo_t* info, void* context) {
  const int error = errno;
  const auto at_work = runner.holder();
  const auto first = first_hit.holder();
  if (!at_work && !first) end_by(SIGALRM);  // in a child, which has the handler without the reason
  if (at_work && at_work->reason() == 0) end_by(first ? first->reason() : SIGALRM);
  if (since_signal() >= kTimeToEnd) end_by(at_work ? at_work->reason() : first->reason());
  if (!at_work) handle_in_turn({SIGALRM, info, static_cast<ucontext_t*>(context)});
  errno = error;
}

/**
 * Calls what the signal handlers call on an alternate stack. The dynamic linker finds a function at
 * its first call, and takes kilobytes of the stack for that.
 */
void find_functions() {
  const int error = errno;
  static_cast<void>(calling_thread(0).is_of_this_process());
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGALRM);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  raise(0);
  errno = error;
}

using Action = struct sigaction;

std::optional<Action> action_of(int signal_number) {
  Action action = {};
  if (sigaction(signal_number, nullptr, &action) != 0) return std::nullopt;
  return action;
}

bool is_default(const Action& action) {
  return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

bool is_own(const Action& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_signal;
}

void stop_watching_signals() {
  for (const int signal_number : kWatchedSignals) {
    const auto action = action_of(signal_number);
    if (action && is_own(*action)) set_default_action(signal_number);
  }
}

}  // namespace

void watch_ending_signals(ExitHandlerRun run) {
  adopt_process();
  find_functions();
  run_handlers.store(run);
  mprotect(stack, kPage, PROT_READ);
  for (const int signal_number : kWatchedSignals) {
    const auto action = action_of(signal_number);
    // SA_RESTART: the program must not notice that the end was put off.
    if (action && is_default(*action)) {
      set_action(signal_number, on_signal, SA_SIGINFO | SA_ONSTACK | SA_RESTART);
    }
  }
}

void end_normally() {
  if (!is_adopted_process()) return;
  const ActingThread own = calling_thread(0);
  if (!runner.holder() && first_hit.holder()) finish(calling_thread_for(0));
  if (const auto other = runner.take(own)) return yield_to(*other, own);
  run_handlers.load()(0);
  stop_watching_signals();
  runner.give_up();
}

LeftStacks left_stacks() { return {interrupted_stack.load(), handler_stack.load()}; }

std::optional<std::uintptr_t> fault_address() {
  if (!has_fault_address.load()) return std::nullopt;
  return address_of_fault.load();
}

AddressRange signal_stack() {
  const auto begin = reinterpret_cast<std::uintptr_t>(stack);
  return {begin, begin + kStackSize};
}

void put_off_end_while(bool (*is_busy)(const InterruptedThread&)) {
  interrupts_something.store(is_busy);
}

}  // namespace qk
