// Default options that the sanitizers read from a program at its start. ASAN_OPTIONS, UBSAN_OPTIONS
// and TSAN_OPTIONS override them.

extern "C" {

// Leaks: programs here leak on purpose, and memory may stay on a handle until the end.
// Signals: the library handles only signals with their default action, so the sanitizer must not.
// Null: a request that is too large must fail as it does without the sanitizer.
const char* __asan_default_options() {
  return "detect_leaks=0:handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:"
         "handle_abort=0:allocator_may_return_null=1";
}

const char* __ubsan_default_options() { return "print_stacktrace=1"; }

// Forks: tests of the end of a process fork programs that have threads, and the children continue.
// Signals: the handler of a signal writes the report at the end, and calls the allocator for it.
// Sleep: at the end of a process with threads, instead of a second; it lets races of the end show.
const char* __tsan_default_options() {
  return "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0:"
         "allocator_may_return_null=1:die_after_fork=0:report_signal_unsafe=0:"
         "atexit_sleep_ms=100";
}

}  // extern "C"
