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

/** What a run tells the process that waits for it, in memory that both share. */
struct Told {
  bool came_to_its_end;
  bool failed;
  bool troubled;
  bool left_code;
};

Told* told = nullptr;
void (*last_check)() = nullptr;

int failures_met = 0;  // in this process

Told* shared_memory() {
  void* memory =
      mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return new (memory) Told{};
}

/** Registered before the library's own exit handler, so it runs behind it. */
void tell_end() {
  told->failed = has_failed();
  let_succeed();
  if (last_check != nullptr) last_check();
  told->came_to_its_end = true;
}

void run_once(Failing failing, int nth, const std::function<void()>& scenario,
              const std::function<void()>& prepare) {
  std::atexit(tell_end);
  // Made beforehand, as nothing leads to them: the thread's place for its code, and what the first
  // look at the heap leaves there.
  (void)qk_mem_error();
  (void)qk_heapsize();
  // The nth request is then the same one in each process, wherever its memory comes to lie.
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

/** Whether failures have to be told in the log that is looked at. */
bool reports(const Environment& environment) {
  if (environment.debug.find("LOG=") != std::string::npos) return false;
  return environment.debug.find("EXCEPTIONS") != std::string::npos ||
         environment.debug.find("DEBUG") != std::string::npos;
}

std::string complaint_about(const Ended& ended, const Environment& environment) {
  if (ended.signal != 0) return "signal " + std::to_string(ended.signal);
  if (ended.exit_code != 0) return "exit code " + std::to_string(ended.exit_code);
  if (!told->came_to_its_end) return "not come to its end";
  if (!ended.err.empty()) return "standard error";
  if (!told->failed) return told->troubled ? "trouble without a failure" : "";
  if (told->troubled && !told->left_code) return "no code";
  if (told->troubled && reports(environment) && ended.log.find("ERROR: ") == std::string::npos)
    return "no line";
  return "";
}

}  // namespace

FailingRuns run_with_failures(const Environment& environment, Failing failing,
                              const std::function<void()>& scenario,
                              const std::function<void()>& prepare) {
  told = shared_memory();
  FailingRuns runs;
  for (int nth = 1;; ++nth) {
    *told = {};
    const Ended ended = run(environment, [&] { run_once(failing, nth, scenario, prepare); });
    const std::string complaint = complaint_about(ended, environment);
    if (!complaint.empty()) {
      runs.complaint =
          "request " + std::to_string(nth) + ": " + complaint + "\n" + ended.err + ended.log;
      break;
    }
    if (!told->failed) break;
    ++runs.failures;
  }
  munmap(told, sizeof *told);
  return runs;
}

namespace {

void expect_harmless(const Environment& environment, Failing failing, int at_least,
                     const std::function<void()>& scenario, const std::function<void()>& prepare) {
  const FailingRuns runs = run_with_failures(environment, failing, scenario, prepare);
  const std::string how = "under [" + environment.debug + "], " +
                          (failing == Failing::kOne ? "one failing" : "all from one on failing");
  EXPECT_EQ(runs.complaint, "") << how;
  EXPECT_GE(runs.failures, at_least) << how;
  failures_met += runs.failures;
  ::testing::Test::RecordProperty("failures", failures_met);
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
  const Environment telling_all = {"DEBUG SUMMARY", "DB HEAPSIZE",
                                   "OPTIONS=SUMMARY,HANDLES,MGMT,BLOCKS,POINTERS"};
  expect_harmless(silent, Failing::kOne, at_least, scenario, prepare);
  expect_no_harm({"EXCEPTIONS", "", ""}, at_least, scenario, prepare);
  expect_harmless(telling_all, Failing::kOne, at_least, scenario, prepare);
}

void require(bool holds, const char* what, int line) {
  if (holds) return;
  dprintf(STDERR_FILENO, "line %d: %s\n", line, what);
  _exit(98);
}

void note_code() {
  // Without the standing handles each call is refused for its number.
  const bool started = qk::mem::handle_slots().at(QK_MEM_DATA_HANDLE - 1) != nullptr;
  if (qk_mem_error() == kOutOfMemory || !started) told->left_code = true;
}

void note_failure() {
  note_code();
  told->troubled = true;
}

void check_at_end(void (*check)()) { last_check = check; }

}  // namespace kit
