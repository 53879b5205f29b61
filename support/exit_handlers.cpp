#include "support/exit_handlers.h"

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "support/options.h"
#include "support/system.h"
#include "support/text.h"

/*
 * Everything here may be interrupted by a signal whose handling needs it, so there is no lock: the
 * state is three atomic variables and slots that are published once and emptied once.
 */
namespace {

constexpr int kWatchedSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGSEGV,
                                   SIGBUS, SIGFPE, SIGILL,  SIGABRT};

constexpr timeval kTimeForHandlers = {1, 500000};

constexpr std::size_t kLongestOptions = 256;

// ---- The registered handlers

struct Slot {
  bool last;                                      // complete before the handler is published
  std::atomic<qk_exit_handler> handler{nullptr};  // null again from the moment that it is run
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

/** Null when there is none. */
qk_exit_handler take_newest(bool last) {
  for (int index = slots_in_use.load() - 1; index >= 0; --index) {
    Slot& slot = slots[index];
    if (slot.handler.load() == nullptr || slot.last != last) continue;
    if (const qk_exit_handler handler = slot.handler.exchange(nullptr)) return handler;
  }
  return nullptr;
}

/** Looks through all slots each time, so that what a handler registers is run too. */
void run_handlers(int signal_number) {
  for (;;) {
    qk_exit_handler handler = take_newest(false);
    if (handler == nullptr) handler = take_newest(true);
    if (handler == nullptr) return;
    handler(signal_number);
  }
}

// ---- Who runs them

/**
 * The thread that runs the handlers, and why: the signal, 0 for normal termination. All in one
 * word, so that whoever is interrupted or meets the runner sees the three together. A runner of
 * another process is none: it was copied by a fork.
 */
struct Runner {
  std::uint64_t process : 24;  // the kernel's limit for either number is 2^22
  std::uint64_t thread : 24;
  std::uint64_t signal : 16;

  [[nodiscard]] int reason() const { return static_cast<int>(signal); }
};
static_assert(sizeof(Runner) == sizeof(std::uint64_t) && std::atomic<Runner>::is_always_lock_free);

constinit std::atomic<Runner> runner{Runner{0, 0, 0}};

constexpr std::uint64_t kIdBits = 0xffffff;

Runner own_thread(int signal_number) {
  return {static_cast<std::uint64_t>(getpid()) & kIdBits,
          static_cast<std::uint64_t>(gettid()) & kIdBits,
          static_cast<std::uint64_t>(signal_number) & 0xffff};
}

/** Makes `own` the runner, unless there is one already: that one is returned, and stays. */
std::optional<Runner> become_runner(const Runner& own) {
  Runner now = runner.load();
  while (now.process != own.process) {
    if (runner.compare_exchange_weak(now, own)) return std::nullopt;
  }
  return now;
}

// ---- The end

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
  _exit(128 + signal_number);  // the first process of a container survives its default actions
}

/** The timer wakes one of the waiting threads if the runner takes too long. */
[[noreturn]] void wait_for_the_end() {
  for (;;) pause();
}

void on_timeout(int /*signal_number*/) { end_by(runner.load().reason()); }

void limit_time() {
  set_action(SIGALRM, on_timeout, SA_ONSTACK);
  const itimerval once = {{0, 0}, kTimeForHandlers};
  setitimer(ITIMER_REAL, &once, nullptr);
  unblock(SIGALRM);
}

/** Continues where another runner is at work already; returns at normal termination only. */
void leave_to(const Runner& other, const Runner& own) {
  if (other.reason() == 0) {
    if (own.reason() != 0) end_by(own.reason());
    return;
  }
  if (other.thread != own.thread) wait_for_the_end();
  if (own.reason() == 0) run_handlers(other.reason());  // one of the handlers called exit()
  end_by(other.reason());
}

void on_signal(int signal_number) {
  const Runner own = own_thread(signal_number);
  if (const std::optional<Runner> other = become_runner(own)) leave_to(*other, own);
  limit_time();
  run_handlers(signal_number);
  end_by(signal_number);
}

// ---- Where the end is noticed

std::optional<void (*)(int)> plain_action(int signal_number) {
  struct sigaction now = {};
  if (sigaction(signal_number, nullptr, &now) != 0) return std::nullopt;
  if ((now.sa_flags & SA_SIGINFO) != 0) return std::nullopt;
  return now.sa_handler;
}

/** SA_NODEFER: a second signal of the same number has to get through to handlers that hang. */
void watch_signals() {
  for (const int signal_number : kWatchedSignals) {
    if (plain_action(signal_number) == SIG_DFL) {
      set_action(signal_number, on_signal, SA_ONSTACK | SA_NODEFER);
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
 * Also the end of a shared library that is unloaded: the signals must not lead into it afterwards.
 * A later registration, by an exit handler of somebody else, hooks in once more.
 */
void at_exit() {
  hooked.store(false);
  const Runner own = own_thread(0);
  if (const std::optional<Runner> other = become_runner(own)) return leave_to(*other, own);
  run_handlers(0);
  stop_watching_signals();
  runner.store(Runner{0, 0, 0});
}

bool hook_in() {
  if (hooked.exchange(true)) return true;
  if (std::atexit(at_exit) != 0) {
    hooked.store(false);
    return false;
  }
  watch_signals();
  return true;
}

// ---- Registration

/** What a call of qk_atexit() asks for, and the answer if it is refused. */
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
    const int code = refuse(qk::kExitOptionsTooLong, "options");
    if (status_ == nullptr) return code;
    status_->num1 = static_cast<int>(length);
    status_->num2 = static_cast<int>(kLongestOptions);
    return code;
  }

  /** Reads the options; `last` is left alone where they don't say. */
  [[nodiscard]] int read_position(const char* options, bool& last) const {
    const std::size_t length = qk_strlen(options);
    if (length > kLongestOptions) return refuse_length(length);
    char copy[kLongestOptions + 1];
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

extern "C" int qk_atexit(qk_exit_handler handler, const char* name, const char* owner,
                         const char* options, qk::Status* status) {
  const Request request(name, owner, status);
  if (handler == nullptr) return request.refuse(qk::kExitHandlerNull, "handler");
  bool last = false;
  if (const int code = request.read_position(options, last); code != 0) return code;
  if (!hook_in()) return request.refuse(qk::kExitHookRefused, "atexit");
  if (!add_handler(handler, last)) return request.refuse(qk::kExitHandlersFull, "handler");
  return 0;
}
