#ifndef TESTS_KIT_FAILING_RUNS_H_
#define TESTS_KIT_FAILING_RUNS_H_

#include <functional>
#include <string>
#include <string_view>

#include "tests/kit/scene.h"

/** Runs a scenario once for each memory request that it makes, with that request failing. */
namespace kit {

enum class Failing {
  kOne,     // the nth request and no other
  kAllFrom  // the nth request and all later ones, until let_succeed()
};

/** The outcome of such runs. */
struct FailingRuns {
  int failures = 0;   // runs in which a request failed
  std::string error;  // about the first run that went wrong; empty if none did
};

/**
 * Runs `scenario` in a new process with the 1st memory request failing, in another one with the
 * 2nd, and so on until a run has no failure. Each process ends with exit(), under the same failure.
 * A run goes wrong if the process crashes, if a sanitizer ends it, if a require() of the scenario
 * fails, or if a failure sets no error code or, when failures are logged, writes no line.
 *
 * The scenario itself must not request memory. `prepare` runs before requests are counted.
 */
[[nodiscard]] FailingRuns run_with_failures(
    const Environment& environment, Failing failing, const std::function<void()>& scenario,
    const std::function<void()>& prepare = [] {});

/**
 * Expects that no run goes wrong, with one request failing and with all from one on, and that at
 * least `at_least` runs had a failure.
 */
void expect_no_harm(
    const Environment& environment, int at_least, const std::function<void()>& scenario,
    const std::function<void()>& prepare = [] {});

/**
 * The same in an environment that logs failures. With one request failing also in one that logs
 * nothing and in one that logs everything.
 */
void expect_no_harm(
    int at_least, const std::function<void()>& scenario,
    const std::function<void()>& prepare = [] {});

/** For scenarios: writes `what` and ends the process unless `holds`. */
void require(bool holds, const char* what, int line = __builtin_LINE());

/** For scenarios: notes the thread's error code, which a later refusal can replace. */
void note_code();

/** For scenarios: a call failed or memory was not recorded, so a failure must be reported. */
void note_failure();

/** For scenarios: runs `check` at the end of the process, after the library's clean-up. */
void check_at_end(void (*check)());

}  // namespace kit

#endif  // TESTS_KIT_FAILING_RUNS_H_
