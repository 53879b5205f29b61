// What the sanitizers' run-time libraries ask a program at its start. The environment's
// ASAN_OPTIONS, UBSAN_OPTIONS and TSAN_OPTIONS still have the last word.

extern "C" {

// Leaks: programs here leak on purpose, and what stays on a handle until the end is meant to.
// Signals: the library installs its handlers only where nobody else did, so the sanitizer must not.
// Null: a request that is too big has to fail as it does without the sanitizer.
const char* __asan_default_options() {
  return "detect_leaks=0:handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:"
         "handle_abort=0:allocator_may_return_null=1";
}

const char* __ubsan_default_options() { return "print_stacktrace=1"; }

// Forks: children of programs with threads go on, as tests of the end of a process need it.
// Signals: the report of a process that a signal ends is written by the handler, allocator and all.
const char* __tsan_default_options() {
  return "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0:"
         "allocator_may_return_null=1:die_after_fork=0:report_signal_unsafe=0";
}

}  // extern "C"
