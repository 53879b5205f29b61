#include "tests/kit/failing_runs.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "core/handle_array.h"
#include "core/registry.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/live_memory.h"
#include "tests/kit/placement.h"

namespace kit {
namespace {

constexpr int kOutOfMemory = 5012;

/** The outcome of a run, in memory shared with the process that waits for it. */
struct Outcome {
  bool finished;
  bool failed;
  bool noted_failure;
  bool noted_code;
};

Outcome* outcome = nullptr;
void (*last_check)() = nullptr;

int failures_so_far = 0;  // in this process

Outcome* shared_memory() {
  void* memory =
      mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return new (memory) Outcome{};
}

/** Registered before the library's exit handler, so it runs after it. */
void report_end() {
  outcome->failed = has_failed();
  let_succeed();
  if (last_check != nullptr) last_check();
  outcome->finished = true;
}

void run_once(Failing failing, int nth, const std::function<void()>& scenario,
              const std::function<void()>& prepare) {
  std::atexit(report_end);
  // These first calls allocate memory that stays for good and that nothing points to.
  (void)qk_mem_error();
  (void)qk_heapsize();
  // The nth request must be the same one in each process, wherever its memory lies.
  align_requests();
  watch_memory();
  prepare();
  if (failing == Failing::kOne) {
    fail_request(nth);
  } else {
    fail_requests_from(nth);
  }
  scenario();
}

/** Whether failures must be reported in the log that is checked. */
bool reports(const Environment& environment) {
  if (environment.debug.find("LOG=") != std::string::npos) return false;
  return environment.debug.find("EXCEPTIONS") != std::string::npos ||
         environment.debug.find("DEBUG") != std::string::npos;
}

std::string error_of(const Ended& ended, const Environment& environment) {
  if (ended.signal != 0) return "signal " + std::to_string(ended.signal);
  if (ended.exit_code != 0) return "exit code " + std::to_string(ended.exit_code);
  if (!outcome->finished) return "not finished";
  if (!ended.err.empty()) return "standard error";
  if (!outcome->failed)
    return outcome->noted_failure ? "failed calls without a failing request" : "";
  if (outcome->noted_failure && !outcome->noted_code) return "no code";
  if (outcome->noted_failure && reports(environment) &&
      ended.log.find("ERROR: ") == std::string::npos)
    return "no line";
  return "";
}

}  // namespace

FailingRuns run_with_failures(const Environment& environment, Failing failing,
                              const std::function<void()>& scenario,
                              const std::function<void()>& prepare) {
  outcome = shared_memory();
  FailingRuns runs;
  for (int nth = 1;; ++nth) {
    *outcome = {};
    const Ended ended = run(environment, [&] { run_once(failing, nth, scenario, prepare); });
    const std::string error = error_of(ended, environment);
    if (!error.empty()) {
      runs.error = "request " + std::to_string(nth) + ": " + error + "\n" + ended.err + ended.log;
      break;
    }
    if (!outcome->failed) break;
    ++runs.failures;
  }
  munmap(outcome, sizeof *outcome);
  return runs;
}

namespace {

void expect_harmless(const Environment& environment, Failing failing, int at_least,
                     const std::function<void()>& scenario, const std::function<void()>& prepare) {
  const FailingRuns runs = run_with_failures(environment, failing, scenario, prepare);
  const std::string how = "under [" + environment.debug + "], " +
                          (failing == Failing::kOne ? "one failing" : "all from one on failing");
  EXPECT_EQ(runs.error, "") << how;
  EXPECT_GE(runs.failures, at_least) << how;
  failures_so_far += runs.failures;
  ::testing::Test::RecordProperty("failures", failures_so_far);
}

}  // namespace

void expect_no_harm(const Environment& environment, int at_least,
                    const std::function<void()>& scenario, const std::function<void()>& prepare) {
  expect_harmless(environment, Failing::kOne, at_least, scenario, prepare);
  expect_harmless(environment, Failing::kAllFrom, at_least, scenario, prepare);
}

void expect_no_harm(int at_least, const std::function<void()>& scenario,
                    const std::function<void()>& prepare) {
  const Environment silent = {"", "", ""};
  const Environment logging_all = {"DEBUG SUMMARY", "DB HEAPSIZE",
                                   "OPTIONS=SUMMARY,HANDLES,MGMT,BLOCKS,POINTERS"};
  expect_harmless(silent, Failing::kOne, at_least, scenario, prepare);
  expect_no_harm({"EXCEPTIONS", "", ""}, at_least, scenario, prepare);
  expect_harmless(logging_all, Failing::kOne, at_least, scenario, prepare);
}

void require(bool holds, const char* what, int line) {
  if (holds) return;
  dprintf(STDERR_FILENO, "line %d: %s\n", line, what);
  _exit(98);
}

void note_code() {
  // Without the data handle every call is refused for its handle number.
  const bool started = qk::mem::handle_slots().at(QK_MEM_DATA_HANDLE - 1) != nullptr;
  if (qk_mem_error() == kOutOfMemory || !started) outcome->noted_code = true;
}

void note_failure() {
  note_code();
  outcome->noted_failure = true;
}

void check_at_end(void (*check)()) { last_check = check; }

}  // namespace kit
