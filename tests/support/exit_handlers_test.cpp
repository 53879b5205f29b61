#include "support/exit_handlers.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/ending_signals.h"
#include "support/system.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kLast = "POSITION=LAST";

int to_parent = -1;

void report(const char* text) {
  if (write(to_parent, text, std::char_traits<char>::length(text)) < 0) _exit(99);
}

/** A handler that reports its letter and the number that it receives. */
template <char kLetter>
void reports(int signal_number) {
  char text[16];
  std::snprintf(text, sizeof text, "%c%d ", kLetter, signal_number);
  report(text);
}

void add(qk_exit_handler handler, const char* options = "") {
  if (qk_atexit(handler, "handler", "test", options, nullptr) != 0) report("refused ");
}

/** A fault that neither sanitizers nor the optimiser foresee. */
void crash() {
  void* const forbidden = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile char*>(forbidden) = 1;
}

/** False under the thread sanitizer, which delays every signal while a signal handler runs. */
bool signals_nest() {
  static volatile std::sig_atomic_t handled = 0;
  static volatile std::sig_atomic_t handled_inside = 0;
  handled = 0;
  std::signal(SIGUSR2, [](int) { handled = 1; });
  std::signal(SIGUSR1, [](int) {
    raise(SIGUSR2);
    handled_inside = handled;
  });
  raise(SIGUSR1);
  std::signal(SIGUSR1, SIG_DFL);
  std::signal(SIGUSR2, SIG_DFL);
  return handled_inside != 0;
}

std::string ending(int wait_status) {
  if (WIFSIGNALED(wait_status)) return "signal " + std::to_string(WTERMSIG(wait_status));
  return "exit " + std::to_string(WEXITSTATUS(wait_status));
}

/** Runs `body` and exit(0) in a child process. Returns what it reported and how it ended. */
template <class Body>
std::string process(Body body) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return "no pipe";
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const rlimit no_core_file = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core_file);
    close(ends[0]);
    to_parent = ends[1];
    body();
    std::exit(0);
  }
  close(ends[1]);
  std::string output;
  std::array<char, 256> part{};
  for (ssize_t got = 0; (got = read(ends[0], part.data(), part.size())) > 0;) {
    output.append(part.data(), static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int wait_status = 0;
  waitpid(child, &wait_status, 0);
  return output + ending(wait_status);
}

TEST(ExitHandlers, RunNewestFirstAtNormalTermination) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              add(reports<'b'>, "POSITION=FIRST");
              add(reports<'c'>, nullptr);
            }),
            "c0 b0 a0 exit 0");
}

TEST(ExitHandlers, RunLastIfRegisteredForTheLastPosition) {
  EXPECT_EQ(process([] {
              add(reports<'a'>, kLast);
              add(reports<'b'>);
              add(reports<'c'>, "position='last'");
              add(reports<'d'>);
            }),
            "d0 b0 c0 a0 exit 0");
}

TEST(ExitHandlers, LeaveTheExitCodeAlone) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              std::exit(3);
            }),
            "a0 exit 3");
}

TEST(ExitHandlers, ReceiveTheSignalThatThenEndsTheProcess) {
  const std::vector<std::pair<int, std::string>> cases = {
      {SIGHUP, "b1 a1 signal 1"}, {SIGINT, "b2 a2 signal 2"},     {SIGQUIT, "b3 a3 signal 3"},
      {SIGILL, "b4 a4 signal 4"}, {SIGABRT, "b6 a6 signal 6"},    {SIGBUS, "b7 a7 signal 7"},
      {SIGFPE, "b8 a8 signal 8"}, {SIGSEGV, "b11 a11 signal 11"}, {SIGTERM, "b15 a15 signal 15"}};
  for (const auto& [signal_number, outcome] : cases) {
    EXPECT_EQ(process([number = signal_number] {
                add(reports<'a'>, kLast);
                add(reports<'b'>);
                raise(number);
              }),
              outcome);
  }
}

TEST(ExitHandlers, RunForAFaultAndForAbort) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              crash();
            }),
            "a11 signal 11");
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              std::abort();
            }),
            "a6 signal 6");
}

TEST(ExitHandlers, AreNotRunForOtherSignals) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              raise(SIGUSR1);
            }),
            "signal 10");
}

TEST(ExitHandlers, LeaveIgnoredAndHandledSignalsAlone) {
  EXPECT_EQ(process([] {
              std::signal(SIGHUP, SIG_IGN);
              std::signal(SIGINT, [](int) { report("own "); });
              add(reports<'a'>);
              std::signal(SIGTERM, [](int) { report("later "); });
              raise(SIGHUP);
              raise(SIGINT);
              raise(SIGTERM);
            }),
            "own later a0 exit 0");
}

TEST(ExitHandlers, CatchNoSignalBeforeTheFirstIsRegistered) {
  EXPECT_EQ(process([] {
              if (qk_atexit(nullptr, "", "", "", nullptr) == 0) report("accepted ");
              if (std::signal(SIGTERM, SIG_DFL) != SIG_DFL) report("watched ");
            }),
            "exit 0");
}

TEST(ExitHandlers, DoNotRunAgainAfterTheyRan) {
  EXPECT_EQ(process([] {
              std::atexit([] {
                report("later ");
                raise(SIGTERM);
              });
              add(reports<'a'>);
            }),
            "a0 later signal 15");
}

TEST(ExitHandlers, RestoreTheSignalsAfterTheyRan) {
  EXPECT_EQ(process([] {
              std::atexit([] {
                if (std::signal(SIGTERM, SIG_DFL) == SIG_DFL) report("default ");
                if (std::signal(SIGINT, SIG_DFL) == SIG_IGN) report("ignored ");
              });
              add(reports<'a'>);
              std::signal(SIGINT, SIG_IGN);
            }),
            "a0 default ignored exit 0");
}

TEST(ExitHandlers, RunIfTheyAreRegisteredByAHandler) {
  EXPECT_EQ(process([] {
              add(reports<'a'>, kLast);
              add([](int) {
                report("adds ");
                add(reports<'b'>);
                add(reports<'c'>, kLast);
              });
            }),
            "adds b0 c0 a0 exit 0");
}

TEST(ExitHandlers, RunIfTheyAreRegisteredAfterTheOthersRan) {
  EXPECT_EQ(process([] {
              std::atexit([] { add(reports<'b'>); });
              add(reports<'a'>);
            }),
            "a0 b0 exit 0");
  EXPECT_EQ(process([] {
              std::atexit([] {
                add(reports<'b'>);
                raise(SIGTERM);
              });
              add(reports<'a'>);
            }),
            "a0 b15 signal 15");
}

TEST(ExitHandlers, EndTheProcessByTheFirstSignalIfTheyCrash) {
  if (!signals_nest()) GTEST_SKIP() << "signals do not interrupt signal handlers here";
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              add([](int) {
                report("crashes ");
                crash();
              });
              raise(SIGTERM);
            }),
            "crashes signal 15");
}

TEST(ExitHandlers, AreAbandonedAtASecondSignalInTheirThread) {
  if (!signals_nest()) GTEST_SKIP() << "signals do not interrupt signal handlers here";
  for (const int second : {SIGINT, SIGTERM}) {
    EXPECT_EQ(process([second] {
                static std::atomic<int> again;
                again = second;
                add(reports<'a'>);
                add([](int) { raise(again); });
                raise(SIGTERM);
              }),
              "signal 15");
  }
}

TEST(ExitHandlers, AreAbandonedAtASignalInNormalTermination) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              add([](int) { raise(SIGINT); });
            }),
            "signal 2");
}

TEST(ExitHandlers, AreAbandonedAfter1500MillisecondsIfTheyHang) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(process([] {
              sigset_t all;
              sigfillset(&all);
              sigdelset(&all, SIGTERM);
              pthread_sigmask(SIG_SETMASK, &all, nullptr);
              add(reports<'a'>);
              add([](int) {
                for (;;) pause();
              });
              raise(SIGTERM);
            }),
            "signal 15");
  const auto taken = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(taken, 1400ms);
  EXPECT_LE(taken, 10s);
}

TEST(ExitHandlers, FinishBeforeASignalInAnotherThreadCounts) {
  EXPECT_EQ(process([] {
              static std::atomic<pthread_t> other;
              static std::atomic<bool> ready = false;
              std::thread([] {
                other = pthread_self();
                ready = true;
                for (;;) pause();
              }).detach();
              while (!ready) std::this_thread::sleep_for(1ms);
              add(reports<'a'>, kLast);
              add([](int) {
                pthread_kill(other, SIGINT);
                std::this_thread::sleep_for(100ms);
                report("finished ");
              });
              raise(SIGTERM);
            }),
            "finished a15 signal 15");
}

TEST(ExitHandlers, AreAbandonedIfTheyHangWhileOthersWaitForThem) {
  EXPECT_EQ(process([] {
              static std::atomic<pthread_t> main_thread;
              main_thread = pthread_self();
              add(reports<'a'>);
              add([](int) {
                pthread_kill(main_thread, SIGINT);
                for (;;) pause();
              });
              std::thread([] { raise(SIGTERM); }).join();
            }),
            "signal 15");
}

TEST(ExitHandlers, FinishForASignalWhileAnotherThreadExits) {
  EXPECT_EQ(process([] {
              static std::atomic<bool> started = false;
              add(reports<'a'>);
              add([](int) {
                started = true;
                std::this_thread::sleep_for(100ms);
                report("finished ");
              });
              std::thread([] { raise(SIGTERM); }).detach();
              while (!started) std::this_thread::sleep_for(1ms);
            }),
            "finished a15 signal 15");
}

TEST(ExitHandlers, EndTheProcessByItsSignalEvenIfTheyExit) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              add([](int) { std::exit(7); });
              raise(SIGTERM);
            }),
            "a15 signal 15");
}

TEST(ExitHandlers, RunInTheChildOfAForkAsInItsParent) {
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              const pid_t child = fork();
              if (child == 0) raise(SIGTERM);
              int wait_status = 0;
              waitpid(child, &wait_status, 0);
              report((ending(wait_status) + "; ").c_str());
            }),
            "a15 signal 15; a0 exit 0");
}

TEST(ExitHandlers, DoNotRunInAChildOfVfork) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer replaces vfork by fork";
#endif
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              const pid_t child = vfork();
              if (child == 0) {
                raise(SIGTERM);
                _exit(1);
              }
              int wait_status = 0;
              waitpid(child, &wait_status, 0);
              report(("child: " + ending(wait_status) + ", parent: ").c_str());
            }),
            "child: signal 15, parent: a0 exit 0");
}

/** An alternate signal stack in the middle of memory that must not change. */
class AlternateStack {
 public:
  explicit AlternateStack(std::size_t size) : size_(size) {
    std::memset(memory_, kUntouched, sizeof memory_);
    stack_t stack = {};
    stack.ss_sp = memory_ + kAround;
    stack.ss_size = size;
    if (sigaltstack(&stack, nullptr) != 0) report("no stack ");
  }

  /** Whether nothing was written in front of the stack or behind it. */
  [[nodiscard]] bool was_kept_to() const {
    const auto is_untouched = [](char byte) { return byte == kUntouched; };
    return std::all_of(memory_, memory_ + kAround, is_untouched) &&
           std::all_of(memory_ + kAround + size_, std::end(memory_), is_untouched);
  }

 private:
  static constexpr std::size_t kAround = 65536;
  static constexpr char kUntouched = 'u';
  alignas(64) char memory_[3 * kAround];
  std::size_t size_;
};

/** Uses more than small stacks have. */
void work_hard(int signal_number) {
  volatile char room[100000];
  room[0] = static_cast<char>(signal_number);
  room[99999] = room[0];
  report(room[99999] == SIGTERM ? "worked " : "failed ");
}

TEST(ExitHandlers, WorkOnAStackOfTheirOwn) {
  if (!signals_nest()) GTEST_SKIP() << "signals do not interrupt signal handlers here";
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const std::size_t for_handler = 8192;
#else
  const std::size_t for_handler = 640;
#endif
  const auto frame = static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
  for (const std::size_t size : {frame + for_handler, std::size_t{65536}}) {
    EXPECT_EQ(process([size] {
                static const AlternateStack* stack = nullptr;
                static std::atomic<int> tests;
                stack = new AlternateStack(size);
                add([](int) { report(stack->was_kept_to() ? "kept to " : "left "); });
                add(work_hard);
                qk::put_off_end_while([](const qk::InterruptedThread&) { return ++tests < 5; });
                raise(SIGTERM);
                for (;;) pause();
              }),
              "worked kept to signal 15")
        << size;
  }
}

TEST(ExitHandlers, EndAProcessWhoseThreadBlocksAlarms) {
  EXPECT_EQ(process([] {
              static std::atomic<int> tests;
              sigset_t alarm;
              sigemptyset(&alarm);
              sigaddset(&alarm, SIGALRM);
              pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
              add(reports<'a'>);
              qk::put_off_end_while([](const qk::InterruptedThread&) { return ++tests < 5; });
              raise(SIGTERM);
              for (;;) pause();
            }),
            "a15 signal 15");
}

TEST(ExitHandlers, RunAfterASecondInAnyCase) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(process([] {
              add(reports<'a'>);
              qk::put_off_end_while([](const qk::InterruptedThread&) { return true; });
              raise(SIGTERM);
              for (;;) pause();
            }),
            "a15 signal 15");
  const auto taken = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(taken, 1000ms);
  EXPECT_LE(taken, 10s);
}

TEST(ExitHandlers, RunTheRestInAChildThatAHandlerForks) {
  if (!signals_nest()) GTEST_SKIP() << "signals do not interrupt signal handlers here";
  const qk_exit_handler forks = [](int) {
    const pid_t child = fork();
    if (child == 0) raise(SIGINT);
    int wait_status = 0;
    waitpid(child, &wait_status, 0);
    report((ending(wait_status) + "; ").c_str());
  };
  EXPECT_EQ(process([forks] {
              add(reports<'a'>);
              add(forks);
              add(reports<'c'>);
              raise(SIGTERM);
            }),
            "c15 a2 signal 2; a15 signal 15");
  EXPECT_EQ(process([forks] {
              add(reports<'a'>);
              add(forks);
            }),
            "a2 signal 2; a0 exit 0");
}

TEST(ExitHandlers, RunOnceEachIfManyThreadsRegisterThem) {
  EXPECT_EQ(process([] {
              static std::atomic<int> runs;
              add([](int) { report(("ran " + std::to_string(runs) + " times, ").c_str()); }, kLast);
              std::vector<std::thread> threads;
              for (int i = 0; i < 31; ++i) {
                threads.emplace_back([] { add([](int) { ++runs; }); });
              }
              for (std::thread& thread : threads) thread.join();
            }),
            "ran 31 times, exit 0");
}

/** "code/num1/num2/subject/arg1/arg2" of a refused registration, "accepted" otherwise. */
std::string refusal(qk_exit_handler handler, const char* name, const char* owner,
                    const char* options) {
  qk::Status status;
  const int code = qk_atexit(handler, name, owner, options, &status);
  if (code == 0 && status.code == 0) return "accepted";
  if (code != status.code) return "code returned and code in the status differ";
  std::string text = std::to_string(code);
  for (const int number : {status.num1, status.num2}) {
    text += '/';
    text += std::to_string(number);
  }
  for (const char* field : {status.subject, status.arg1, status.arg2}) {
    text += '/';
    text += field;
  }
  return text;
}

TEST(ExitHandlers, AreRefusedWithInvalidOptions) {
  struct Case {
    const char* options;
    const char* outcome;
  };
  const Case cases[] = {{"POSITION=MIDDLE", "10045/0/0/f/MIDDLE/o"},
                        {"POSITION", "10043/0/0/f/POSITION/o"},
                        {"POSITION=", "10043/0/0/f/POSITION/o"},
                        {"POSITION='LAST", "10044/0/0/f/POSITION/o"},
                        {"POS=LAST", "10041/0/0/f/POS/o"},
                        {"LAST", "10041/0/0/f/LAST/o"},
                        {"POSITION=LAST,FIRST", "10045/0/0/f/LAST,FIRST/o"}};
  for (const Case& c : cases) EXPECT_EQ(refusal(reports<'a'>, "f", "o", c.options), c.outcome);
  const std::string long_options = "POSITION=LAST" + std::string(244, ' ');
  EXPECT_EQ(refusal(reports<'a'>, "f", "o", long_options.c_str()), "10037/257/256/f/options/o");
}

TEST(ExitHandlers, AcceptOptionsOf256Characters) {
  EXPECT_EQ(process([] {
              add(reports<'a'>, ("POSITION=LAST" + std::string(243, ' ')).c_str());
              add(reports<'b'>);
            }),
            "b0 a0 exit 0");
}

TEST(ExitHandlers, MustNotBeNull) {
  EXPECT_EQ(refusal(nullptr, "f", "o", kLast), "10051/0/0/f/handler/o");
  EXPECT_EQ(refusal(nullptr, nullptr, nullptr, nullptr), "10051/0/0//handler/");
}

TEST(ExitHandlers, AreRefusedBeyondThirtyTwo) {
  EXPECT_EQ(process([] {
              for (int i = 0; i < 32; ++i) {
                if (qk_atexit([](int) {}, "f", "o", "", nullptr) != 0) report("refused too early ");
              }
              report((refusal(reports<'a'>, "f", "o", kLast) + " ").c_str());
            }),
            "10050/0/0/f/handler/o exit 0");
}

TEST(ExitHandlers, ReportTheLocationAndHostOfARefusal) {
  qk::Status status;
  char host[64];
  qk_hostname_r(host, sizeof host);
  qk_atexit(nullptr, "f", "o", "", &status);
  const std::string location = status.location;
  EXPECT_EQ(location.substr(0, 29), "exit_handlers.cpp(qk_atexit):");
  EXPECT_GT(std::stoi(location.substr(29)), 0);
  EXPECT_STREQ(status.host, host);
}

TEST(ExitHandlers, LeaveTheStatusAloneOnSuccess) {
  EXPECT_EQ(process([] {
              qk::Status status;
              status.num1 = 5;
              status.code = 7;
              const int code = qk_atexit(reports<'a'>, "f", "o", "", &status);
              if (code == 0 && status.num1 == 5 && status.code == 7) report("left alone ");
            }),
            "left alone a0 exit 0");
}

}  // namespace
