#ifndef TESTS_KIT_FAILING_RUNS_H_
#define TESTS_KIT_FAILING_RUNS_H_

#include <functional>
#include <string>
#include <string_view>

#include "tests/kit/scene.h"

/** A scenario that is run once for each request of memory that it makes, with that one failing. */
namespace kit {

enum class Failing {
  kOne,     // the nth request and no other
  kAllFrom  // the nth request and those behind it, until the program is told that memory is back
};

/** What such runs have shown. */
struct FailingRuns {
  int failures = 0;       // runs in which a request failed
  std::string complaint;  // about the first run that went wrong; empty when none did
};

/**
 * Runs `scenario` in a fresh process with the 1st request of memory failing, in another with the
 * 2nd, and so on until one came to its end without a failure. Each process ends with exit(), under
 * the same failure. A run goes wrong when the process crashes or a sanitizer ends it, when the
 * scenario complains, or when a failure left neither a code nor, where they are asked for, a line.
 *
 * The scenario must make no request of its own. `prepare` runs before requests are counted.
 */
[[nodiscard]] FailingRuns run_with_failures(
    const Environment& environment, Failing failing, const std::function<void()>& scenario,
    const std::function<void()>& prepare = [] {});

/**
 * Expects that all goes well with one request failing and with all from one on, and that `at_least`
 * failures were met.
 */
void expect_no_harm(
    const Environment& environment, int at_least, const std::function<void()>& scenario,
    const std::function<void()>& prepare = [] {});

/**
 * The same in an environment that tells of failures; in a silent one and one that tells everything
 * with one request failing.
 */
void expect_no_harm(
    int at_least, const std::function<void()>& scenario,
    const std::function<void()>& prepare = [] {});

/** For scenarios: ends the process with a complaint unless `holds`. */
void require(bool holds, const char* what, int line = __builtin_LINE());

/** For scenarios: looks at the thread's code, which later refusals can replace. */
void note_code();

/** For scenarios: a call has failed, or memory went unrecorded; a failure must have been told. */
void note_failure();

/** For scenarios: `check` runs at the end of the process, behind the library's clean-up. */
void check_at_end(void (*check)());

}  // namespace kit

#endif  // TESTS_KIT_FAILING_RUNS_H_
