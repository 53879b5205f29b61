// A program that leaks and ends in one of several ways. Whatever runs on the way out says so on
// standard output, through the buffer of its stream.
// usage: leaver [WAY]
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

extern "C" void need_library();

namespace {

void say(const char* text) { std::printf("%s ", text); }

struct Static {
  explicit Static(const char* name) : name_(name) {}
  ~Static() { say(name_); }
  const char* name_;
};

const Static object("static");

void leak() { static_cast<void>(qk_mem_malloc(QK_MEM_DATA_HANDLE, 100)); }

bool leaks_last = false;

[[gnu::destructor]] void leave() {
  say("destructor");
  if (leaks_last) leak();
}

[[gnu::destructor(101)]] void leave_last() { say("last-destructor"); }

[[noreturn]] void end_by_signal() {
  raise(SIGTERM);
  for (;;) pause();  // the end may be put off
}

/** The code that the child of a fork ends with. */
template <class Body>
int code_of_child(Body body) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    body();
    std::exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status);
}

/** The program's memory is the child's too. */
void say_codes_of_children() {
  std::printf("exit %d ", code_of_child([] {}));
  std::printf("_exit %d ", code_of_child([] { _exit(0); }));
  leak();
  std::printf("leaking %d ", code_of_child([] {}));
}

void fork_late() {
  std::printf("late %d ", code_of_child([] {}));
}

void exit_with_7(int /*status*/, void* /*unused*/) { std::exit(7); }

int leave_as(std::string_view way) {
  if (way == "clean") return 0;
  if (way == "leak-last") {
    leaks_last = true;
    return 0;
  }
  if (way == "autofree") {
    static_cast<void>(qk_mem_malloc(qk_mem_new_handle("AUTOFREE", "AU"), 10));
    return 0;
  }
  if (way == "forks") {
    say_codes_of_children();
    return 0;
  }
  if (way == "asks-itself") qk_mem_profile_config("LEAKS=FAIL=9");
  if (way == "forks-late") std::atexit(fork_late);
  if (way == "exits-again") on_exit(exit_with_7, nullptr);
  leak();
  std::atexit([] { say("after"); });
  if (way == "3") return 3;
  if (way == "256") std::exit(256);
  if (way == "_exit") _exit(0);
  if (way == "quick_exit") std::quick_exit(0);
  if (way == "signal") end_by_signal();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  need_library();
  std::atexit([] { say("before"); });
  return leave_as(argc > 1 ? argv[1] : "");
}
