// Which routines are watched, and where the log goes.
#include "qkmem/config/debug_config.h"

#include <cstring>

#include "qkmem/config/refusal.h"
#include "qkmem/core/option_call.h"
#include "qkmem/core/registry.h"
#include "qkmem/diag/log.h"

namespace qk::mem {
namespace {

constexpr char kRoutine[] = "qk_mem_debug_config";

enum Keyword { kCtrlblks, kDebug, kExceptions, kSummary, kTrace, kOff, kLog, kAppend, kFlush };

constexpr std::array<qk_option_keyword, 9> kTable = {
    keyword("CTRLBLKS", qk::kOptionalValue),
    keyword("DEBUG", qk::kOptionalValue),
    keyword("EXCEPTIONS", qk::kOptionalValue),
    keyword("SUMMARY", qk::kOptionalValue),
    keyword("TRACE", qk::kOptionalValue),
    keyword("OFF", qk::kNoValue),
    keyword("LOG", qk::kRequiredValue),
    keyword("APPEND", qk::kNoValue),
    keyword("FLUSH", qk::kNoValue),
};
using DebugCall = OptionCall<kTable.size()>;

/**
 * Set when OFF has closed a log file. A later configuration opens no log then unless it names one:
 * the user who switched the log off isn't surprised by a "qkmem.log".
 */
constinit bool log_was_closed = false;

bool has_any_switch(const DebugCall& call) {
  return call.has(kCtrlblks) || call.has(kDebug) || call.has(kExceptions) || call.has(kSummary) ||
         call.has(kTrace);
}

/** TRACE alone writes no lines and needs no log. */
bool wants_log(const DebugCall& call) {
  return call.has(kCtrlblks) || call.has(kDebug) || call.has(kExceptions) || call.has(kSummary);
}

void clear_switches() {
  for (qk_mem_debug& record : Qk_mem_debug) {
    qk::store(record.on, 0);
    qk::store(record.ctrlblks, 0);
    qk::store(record.debug, 0);
    qk::store(record.exceptions, 0);
    qk::store(record.summary, 0);
    qk::store(record.trace, 0);
  }
}

void switch_log_off() {
  if (Qk_mem_log == nullptr || is_standard_stream(Qk_mem_log)) return;
  replace_log(nullptr);
  log_was_closed = true;
}

/** Opens the destination; false when it is a file that can't be opened. NONE opens nothing. */
bool open_log(const char* destination, bool append) {
  qk::copy_text(Qk_mem_log_filename, sizeof Qk_mem_log_filename, destination);
  replace_log(nullptr);
  log_was_closed = false;
  if (qk_stricmp(destination, "NONE") == 0) return true;
  FILE* stream = nullptr;
  if (qk_stricmp(destination, "STDERR") == 0) {
    stream = stderr;
  } else if (qk_stricmp(destination, "STDOUT") == 0) {
    stream = stdout;
  } else {
    stream = open_output(kRoutine, destination, append ? "a" : "w");
  }
  replace_log(stream);
  return stream != nullptr;
}

/** Chooses the log; false when it can't be opened, which ends the configuration without an error.
 */
bool choose_log(const DebugCall& call) {
  const bool open = Qk_mem_log != nullptr || log_was_closed;
  if ((!call.has(kLog) && open) || !wants_log(call)) return true;
  if (!open_log(call.has(kLog) ? call.value(kLog) : "qkmem.log", call.has(kAppend))) return false;
  if (call.has(kFlush) && Qk_mem_log != nullptr) std::setbuf(Qk_mem_log, nullptr);
  return true;
}

void set_switches(qk_mem_debug& record, const SwitchKeyword& keyword, std::int32_t value) {
  qk::store(record.on, value);
  qk::store(record.*keyword.shown, value);
  qk::store(record.*keyword.second, value);
  qk::store(record.trace, value);
}

void set_all_switches(const SwitchKeyword& keyword) {
  for (qk_mem_debug& record : Qk_mem_debug) set_switches(record, keyword, 1);
}

qk_mem_debug* record_named(const char* routine) {
  for (qk_mem_debug& record : Qk_mem_debug) {
    if (std::strcmp(record.routine, routine) == 0) return &record;
  }
  return nullptr;
}

/** Applies a keyword's list of routines, which "not" in front turns into exclusions. */
int apply_list(char* list, const SwitchKeyword& keyword, qk::Status& status) {
  qk::lower_case(list);
  std::int32_t value = 1;
  char* rest = nullptr;
  bool first = true;
  for (char* name = ::strtok_r(list, ", ", &rest); name != nullptr;
       name = ::strtok_r(nullptr, ", ", &rest), first = false) {
    if (std::strcmp(name, "not") == 0) {
      if (!first) {
        return Refusal(status, QK_MEM_ERROR_NOT_FIRST, kRoutine, own::kDebugNotInside)
            .subject(name)
            .code();
      }
      set_all_switches(keyword);
      value = 0;
    } else if (qk_mem_debug* record = record_named(name)) {
      set_switches(*record, keyword, value);
    } else {
      return Refusal(status, QK_MEM_ERROR_ROUTINE, kRoutine, own::kDebugUnknownRoutine)
          .subject(name)
          .code();
    }
  }
  return 0;
}

int apply_switches(const DebugCall& call, qk::Status& status) {
  for (int i = 0; i < kSwitchKeywords; ++i) {
    if (!call.has(i)) continue;
    set_switches(global_switches(), kSwitches[i], 1);
    if (call.value(i) == nullptr) {
      set_all_switches(kSwitches[i]);
    } else if (const int code = apply_list(call.value(i), kSwitches[i], status)) {
      return code;
    }
  }
  return 0;
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_debug_config(const char* options, qk::Status* status) {
  using namespace qk::mem;
  if (status == nullptr) return QK_MEM_ERROR_NULL_STATUS;
  const RegistryLock lock;
  QK_CLEAR_STATUS(status);
  OptionText trial(options);
  if (trial.too_long()) {
    return refuse_length(*status, kRoutine, own::kDebugTooLong, "options", trial.length());
  }
  DebugCall call(kTable);
  if (!call.check(trial)) {
    return refuse_options(*status, kRoutine, own::kDebugInvalid, call.error());
  }
  if (call.found() == 0) return 0;
  if (Qk_mem_debug_initialized == 0) {
    if (const int code = qk_mem_debug_init(status)) return code;
  }
  clear_switches();
  if (call.has(kOff)) {
    if (has_any_switch(call)) {
      return Refusal(*status, QK_MEM_ERROR_OFF_WITH_OTHERS, kRoutine, own::kDebugOffWithOthers)
          .arguments("OFF", "any activating option")
          .code();
    }
    switch_log_off();
    return 0;
  }
  if (!choose_log(call)) return 0;
  OptionText text(options);
  if (!call.process(text)) {
    return refuse_options(*status, kRoutine, own::kDebugProcessed, call.error());
  }
  return apply_switches(call, *status);
}
