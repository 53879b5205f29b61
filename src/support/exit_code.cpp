#include "support/exit_code.h"

#include <cxxabi.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "support/load_library.h"
#include "support/shared_variable.h"

namespace qk {
namespace {

/** The end that is asked for. */
struct NewEnd {
  pid_t process = 0;  // whose end it is; 0 if none is asked for
  int code = 0;
  void (*announce)() = nullptr;
};
constinit NewEnd new_end;

bool is_asked_for() { return new_end.process == getpid(); }

constinit std::uint8_t is_prepared = 0;

/** Whether the destructors of this module can run before the process ends. */
constinit bool can_be_unloaded = false;

constinit bool is_past_destructors = false;

/**
 * Called by the exit. A second exit() goes on where the first one is: it calls the handlers that
 * are left, of which there is hardly one, and flushes the streams. Of a status, parents get the
 * lower eight bits.
 */
void change_code(int status, void* /*unused*/) {
  if (!is_asked_for() || (status & 0xff) != 0) return;
  new_end.process = 0;
  new_end.announce();
  std::exit(new_end.code);
}

/** Handlers that are registered during an exit are called as soon as the present one returns. */
void change_code_next() { on_exit(change_code, nullptr); }

/** The handler below belongs to no module, and so isn't called when one is unloaded. */
constinit char no_module = 0;

/** Called by the exit, after the handlers that were registered later. */
void stay_until_the_end(void* /*unused*/) {
  if (!is_asked_for()) return;
  keep_own_module_loaded();
  can_be_unloaded = false;
}

/** The destructors of all modules are called by one handler, after nearly all other handlers. */
[[gnu::destructor(101)]] void leave() {
  if (can_be_unloaded) {
    new_end.process = 0;
    abi::__cxa_finalize(&no_module);
    return;
  }
  is_past_destructors = true;
  if (is_asked_for()) change_code_next();
}

}  // namespace

void prepare_exit_code() {
  if (set_flag(is_prepared)) return;
  // It can also be a library that the program has loaded for all to see, and will unload.
  if (is_linked_to_program()) return keep_own_module_loaded();
  can_be_unloaded = true;
  abi::__cxa_atexit(stay_until_the_end, nullptr, &no_module);
}

void change_exit_code(int code, void (*announce)()) {
  new_end = {getpid(), code, announce};
  if (is_past_destructors) change_code_next();
}

}  // namespace qk
