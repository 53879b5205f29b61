#include "support/exit_handlers.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "support/ending_signals.h"
#include "support/options.h"
#include "support/system.h"
#include "support/text.h"

/*
 * A signal can interrupt any of this code, and its handler runs the same code. So there is no lock:
 * the state is a few atomic variables, and slots that are published once and emptied once.
 */
namespace {

struct Slot {
  bool last;                                      // written before the handler is published
  std::atomic<qk_exit_handler> handler{nullptr};  // null again as soon as it is being run
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

/** Takes the newest handler of a kind; null if there is none. */
qk_exit_handler take_newest(bool last) {
  for (int index = slots_in_use.load() - 1; index >= 0; --index) {
    Slot& slot = slots[index];
    if (slot.handler.load() == nullptr || slot.last != last) continue;
    if (const qk_exit_handler handler = slot.handler.exchange(nullptr)) return handler;
  }
  return nullptr;
}

/** Searches all slots each time, so that handlers registered by a handler run too. */
void run_handlers(int signal_number) {
  for (;;) {
    qk_exit_handler handler = take_newest(false);
    if (handler == nullptr) handler = take_newest(true);
    if (handler == nullptr) return;
    handler(signal_number);
  }
}

constinit std::atomic<bool> hooked{false};

/**
 * Also runs when the shared library is unloaded: no signal may call into it afterwards. A later
 * registration, by an exit handler of another module, installs the hooks again.
 */
void at_exit() {
  hooked.store(false);
  qk::end_normally();
}

bool install_hooks() {
  if (hooked.exchange(true)) return true;
  if (std::atexit(at_exit) != 0) {
    hooked.store(false);
    return false;
  }
  qk::watch_ending_signals(run_handlers);
  return true;
}

/** A call of qk_atexit(), which fills the status if it is refused. */
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
    const int code = refuse(qk::kOptionsTooLong, "options");
    if (status_ == nullptr) return code;
    status_->num1 = static_cast<int>(length);
    status_->num2 = static_cast<int>(qk::kMaxOptions);
    return code;
  }

  /** Reads the options. Leaves `last` unchanged if they have no POSITION. */
  [[nodiscard]] int read_position(const char* options, bool& last) const {
    const std::size_t length = qk_strlen(options);
    if (length > qk::kMaxOptions) return refuse_length(length);
    char copy[qk::kMaxOptions + 1];
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
  if (!install_hooks()) return request.refuse(qk::kExitHookRefused, "atexit");
  if (!add_handler(handler, last)) return request.refuse(qk::kExitHandlersFull, "handler");
  return 0;
}
