#include "support/exit_handlers.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>

#include "support/options.h"
#include "support/signal_names.h"
#include "support/system.h"
#include "support/text.h"

/*
 * A signal can interrupt any of this code, and its handler runs the same code. So there is no lock:
 * the state is a few atomic variables, and slots that are published once and emptied once.
 */
namespace {

constexpr int kWatchedSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGSEGV,
                                   SIGBUS, SIGFPE, SIGILL,  SIGABRT};

/** In microseconds: from the signal to the end and to the last attempt; between two attempts. */
constexpr std::int64_t kTimeToEnd = 1500000;
constexpr std::int64_t kTimeToLastAttempt = 1000000;
constexpr std::int64_t kTimeBetweenAttempts = 2000;

struct Slot {
  bool last;                                      // written before the handler is published
  std::atomic<qk_exit_handler> handler{nullptr};  // null again as soon as it is being run
};

constinit Slot slots[qk::kMaxExitHandlers] = {};
constinit std::atomic<int> slots_in_use{0};

bool add_handler(qk_exit_handler handler, bool last) {
  int index = slots_in_use.load();
  do {
    if (index == qk::kMaxExitHandlers) return false;
  } while (!slots_in_use.compare_exchange_weak(index, index + 1));
  slots[index].last = last;
  slots[index].handler.store(handler);
  return true;
}

/** Takes the newest handler of a kind; null if there is none. */
qk_exit_handler take_newest(bool last) {
  for (int index = slots_in_use.load() - 1; index >= 0; --index) {
    Slot& slot = slots[index];
    if (slot.handler.load() == nullptr || slot.last != last) continue;
    if (const qk_exit_handler handler = slot.handler.exchange(nullptr)) return handler;
  }
  return nullptr;
}

/** Searches all slots each time, so that handlers registered by a handler run too. */
void run_handlers(int signal_number) {
  for (;;) {
    qk_exit_handler handler = take_newest(false);
    if (handler == nullptr) handler = take_newest(true);
    if (handler == nullptr) return;
    handler(signal_number);
  }
}

/**
 * The thread that runs the handlers, and the signal because of which it does, 0 for normal
 * termination. One word, so that other threads and signal handlers read the three values together.
 * A runner with another process number doesn't count: a fork has copied it.
 */
struct Runner {
  std::uint64_t process : 24;  // the kernel's limit for either number is 2^22
  std::uint64_t thread : 24;
  std::uint64_t signal : 16;

  [[nodiscard]] int reason() const { return static_cast<int>(signal); }
};
static_assert(sizeof(Runner) == sizeof(std::uint64_t) && std::atomic<Runner>::is_always_lock_free);

constinit std::atomic<Runner> runner{Runner{0, 0, 0}};

/** An end that is put off: the interrupted thread and the signal. */
constinit std::atomic<Runner> deferred{Runner{0, 0, 0}};

/** When the signal arrived that ends the process; 0 before that. */
constinit std::atomic<std::int64_t> signal_time{0};

constinit std::atomic<bool (*)()> interrupts_something{nullptr};

constexpr std::uint64_t kIdBits = 0xffffff;

Runner own_thread(int signal_number) {
  return {static_cast<std::uint64_t>(getpid()) & kIdBits,
          static_cast<std::uint64_t>(gettid()) & kIdBits,
          static_cast<std::uint64_t>(signal_number) & 0xffff};
}

bool is_of_this_process(const Runner& thread) {
  return thread.process == (static_cast<std::uint64_t>(getpid()) & kIdBits);
}

/** Makes `own` the runner. If there is one already, returns it and changes nothing. */
std::optional<Runner> become_runner(const Runner& own) {
  Runner now = runner.load();
  while (now.process != own.process) {
    if (runner.compare_exchange_weak(now, own)) return std::nullopt;
  }
  return now;
}

void set_action(int signal_number, void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal_number, &action, nullptr);
}

void unblock(int signal_number) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

[[noreturn]] void end_by(int signal_number) {
  set_action(signal_number, SIG_DFL, 0);
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

/** If the runner takes too long, the timer wakes a waiting thread, which ends the process. */
[[noreturn]] void wait_for_the_end() {
  for (;;) pause();
}

void on_alarm(int signal_number);

/** Calls on_alarm() after `first`, and then at each `interval`. */
void set_alarm(std::int64_t first, std::int64_t interval) {
  set_action(SIGALRM, on_alarm, SA_ONSTACK | SA_RESTART);
  const itimerval timer = {{0, static_cast<suseconds_t>(interval)},
                           {first / 1000000, static_cast<suseconds_t>(first % 1000000)}};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

void limit_time() {
  if (!is_of_this_process(deferred.load())) signal_time.store(now());
  set_alarm(std::max(kTimeToEnd - since_signal(), kTimeBetweenAttempts), kTimeBetweenAttempts);
  unblock(SIGALRM);
}

/** Leaves the end to another runner. Returns only if both have normal termination. */
void yield_to(const Runner& other, const Runner& own) {
  if (other.reason() == 0) {
    if (own.reason() != 0) end_by(own.reason());
    return;
  }
  if (other.thread != own.thread) wait_for_the_end();
  if (own.reason() == 0) run_handlers(other.reason());  // a handler called exit()
  end_by(other.reason());
}

/** Runs the handlers for a signal in the interrupted thread, and ends the process. */
[[noreturn]] void finish(const Runner& own) {
  if (const std::optional<Runner> other = become_runner(own)) yield_to(*other, own);
  limit_time();
  run_handlers(own.reason());
  end_by(own.reason());
}

bool is_busy() {
  bool (*const test)() = interrupts_something.load();
  return test != nullptr && test();
}

bool receives_alarms() {
  sigset_t blocked;
  return pthread_sigmask(SIG_BLOCK, nullptr, &blocked) == 0 && sigismember(&blocked, SIGALRM) == 0;
}

/** Returns true if the interrupted thread continues and an alarm checks it again. */
bool put_off(const Runner& own) {
  if (is_of_this_process(runner.load()) || !is_busy() || !receives_alarms()) return false;
  Runner before = deferred.load();
  if (is_of_this_process(before)) return true;
  if (!deferred.compare_exchange_strong(before, own)) return true;
  signal_time.store(now());
  set_alarm(kTimeBetweenAttempts, kTimeBetweenAttempts);
  return true;
}

/** The calling thread as the runner, with the signal that arrived first. */
Runner own_thread_for(int signal_number) {
  const Runner first = deferred.load();
  return own_thread(is_of_this_process(first) ? first.reason() : signal_number);
}

void on_signal(int signal_number) {
  const int error = errno;
  if (qk_signal_safe(signal_number) == 0) finish(own_thread(signal_number));
  const Runner own = own_thread_for(signal_number);
  if (!put_off(own)) finish(own);
  errno = error;
}

void on_alarm(int /*signal_number*/) {
  const int error = errno;
  if (const Runner at_work = runner.load(); is_of_this_process(at_work)) {
    if (at_work.reason() == 0) end_by(own_thread_for(SIGALRM).reason());
    if (since_signal() >= kTimeToEnd) end_by(at_work.reason());
  } else if (is_of_this_process(deferred.load())) {
    if (since_signal() >= kTimeToLastAttempt || !is_busy()) finish(own_thread_for(SIGALRM));
  } else {
    end_by(SIGALRM);  // in a forked child, which inherits the handler without the reason
  }
  errno = error;
}

std::optional<void (*)(int)> plain_action(int signal_number) {
  struct sigaction now = {};
  if (sigaction(signal_number, nullptr, &now) != 0) return std::nullopt;
  if ((now.sa_flags & SA_SIGINFO) != 0) return std::nullopt;
  return now.sa_handler;
}

/**
 * SA_NODEFER: a second signal with the same number must get through if a handler hangs.
 * SA_RESTART: the program must not notice that the end was put off.
 */
void watch_signals() {
  for (const int signal_number : kWatchedSignals) {
    if (plain_action(signal_number) == SIG_DFL) {
      set_action(signal_number, on_signal, SA_ONSTACK | SA_NODEFER | SA_RESTART);
    }
  }
}

void stop_watching_signals() {
  for (const int signal_number : kWatchedSignals) {
    if (plain_action(signal_number) == on_signal) set_action(signal_number, SIG_DFL, 0);
  }
}

constinit std::atomic<bool> hooked{false};

/**
 * Also runs when the shared library is unloaded: no signal may call into it afterwards. A later
 * registration, by an exit handler of another module, installs the hooks again.
 */
void at_exit() {
  hooked.store(false);
  if (is_of_this_process(deferred.load())) finish(own_thread_for(0));
  const Runner own = own_thread(0);
  if (const std::optional<Runner> other = become_runner(own)) return yield_to(*other, own);
  run_handlers(0);
  stop_watching_signals();
  runner.store(Runner{0, 0, 0});
}

bool install_hooks() {
  if (hooked.exchange(true)) return true;
  if (std::atexit(at_exit) != 0) {
    hooked.store(false);
    return false;
  }
  watch_signals();
  return true;
}

/** A call of qk_atexit(), which fills the status if it is refused. */
class Request {
 public:
  Request(const char* name, const char* owner, qk::Status* status)
      : name_(name), owner_(owner), status_(status) {}

  [[nodiscard]] int refuse(int code, const char* word, int line = __builtin_LINE()) const {
    if (status_ == nullptr) return code;
    status_->init();
    status_->code = code;
    qk::copy_text(status_->subject, sizeof status_->subject, name_);
    qk::copy_text(status_->arg1, sizeof status_->arg1, word);
    qk::copy_text(status_->arg2, sizeof status_->arg2, owner_);
    std::snprintf(status_->location, sizeof status_->location, "%s(qk_atexit):%d",
                  qk_file_name_only(__FILE__), line);
    qk_hostname_r(status_->host, sizeof status_->host);
    return code;
  }

  [[nodiscard]] int refuse_length(std::size_t length) const {
    const int code = refuse(qk::kOptionsTooLong, "options");
    if (status_ == nullptr) return code;
    status_->num1 = static_cast<int>(length);
    status_->num2 = static_cast<int>(qk::kMaxOptions);
    return code;
  }

  /** Reads the options. Leaves `last` unchanged if they have no POSITION. */
  [[nodiscard]] int read_position(const char* options, bool& last) const {
    const std::size_t length = qk_strlen(options);
    if (length > qk::kMaxOptions) return refuse_length(length);
    char copy[qk::kMaxOptions + 1];
    qk::copy_text(copy, sizeof copy, options);
    qk_option_keyword table[] = {{0, "POSITION", 0, 0, qk::kRequiredValue, nullptr, 0}};
    qk_option_error error;
    const int found = qk_process_options(copy, table, 1, &error);
    if (found < 0) return refuse(error.code, error.text);
    if (found == 0) return 0;
    last = qk_stricmp(table[0].value, "LAST") == 0;
    if (last || qk_stricmp(table[0].value, "FIRST") == 0) return 0;
    return refuse(qk::kExitPositionUnknown, table[0].value);
  }

 private:
  const char* name_;
  const char* owner_;
  qk::Status* status_;
};

}  // namespace

void qk::put_off_exit_while(bool (*is_busy)()) { interrupts_something.store(is_busy); }

extern "C" int qk_atexit(qk_exit_handler handler, const char* name, const char* owner,
                         const char* options, qk::Status* status) {
  const Request request(name, owner, status);
  if (handler == nullptr) return request.refuse(qk::kExitHandlerNull, "handler");
  bool last = false;
  if (const int code = request.read_position(options, last); code != 0) return code;
  if (!install_hooks()) return request.refuse(qk::kExitHookRefused, "atexit");
  if (!add_handler(handler, last)) return request.refuse(qk::kExitHandlersFull, "handler");
  return 0;
}
