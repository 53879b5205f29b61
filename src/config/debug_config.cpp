// Which routines are watched, and where the log goes.
#include "config/debug_config.h"

#include <cstring>

#include "config/refusal.h"
#include "core/option_call.h"
#include "core/registry.h"
#include "diag/log.h"

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
constinit bool log_was_closed QK_GUARDED_BY(Qk_mem_mtx) = false;

bool has_any_switch(const DebugCall& call) {
  return call.has(kCtrlblks) || call.has(kDebug) || call.has(kExceptions) || call.has(kSummary) ||
         call.has(kTrace);
}

/** TRACE alone writes no lines and needs no log. */
bool wants_log(const DebugCall& call) {
  return call.has(kCtrlblks) || call.has(kDebug) || call.has(kExceptions) || call.has(kSummary);
}

/**
 * A configuration in the making. It takes the place of the present one in the end: other threads go
 * on meanwhile, and a switch that stays on must not look off to them even for a moment.
 */
struct Switches {
  qk_mem_debug records[kRoutines] = {};

  [[nodiscard]] qk_mem_debug& global() { return records[static_cast<int>(Routine::kGlobal)]; }

  void put_in_force() const QK_REQUIRES(Qk_mem_mtx) {
    assert_registry_held();
    for (int i = 0; i < kRoutines; ++i) {
      qk::store(Qk_mem_debug[i].on, records[i].on);
      qk::store(Qk_mem_debug[i].ctrlblks, records[i].ctrlblks);
      qk::store(Qk_mem_debug[i].debug, records[i].debug);
      qk::store(Qk_mem_debug[i].exceptions, records[i].exceptions);
      qk::store(Qk_mem_debug[i].summary, records[i].summary);
      qk::store(Qk_mem_debug[i].trace, records[i].trace);
    }
  }
};

void switch_log_off() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (Qk_mem_log == nullptr || is_standard_stream(Qk_mem_log)) return;
  replace_log(nullptr);
  log_was_closed = true;
}

/** Opens the destination; false when it is a file that can't be opened. NONE opens nothing. */
bool open_log(const char* destination, bool append) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
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

/**
 * Chooses the log; false when it can't be opened, which ends the configuration without an error.
 */
bool choose_log(const DebugCall& call) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const bool open = Qk_mem_log != nullptr || log_was_closed;
  if ((!call.has(kLog) && open) || !wants_log(call)) return true;
  if (!open_log(call.has(kLog) ? call.value(kLog) : "qkmem.log", call.has(kAppend))) return false;
  if (call.has(kFlush) && Qk_mem_log != nullptr) std::setbuf(Qk_mem_log, nullptr);
  return true;
}

void set_switches(qk_mem_debug& record, const SwitchKeyword& keyword, std::int32_t value) {
  record.on = value;
  record.*keyword.shown = value;
  record.*keyword.second = value;
  record.trace = value;
}

void set_all_switches(Switches& switches, const SwitchKeyword& keyword) {
  for (qk_mem_debug& record : switches.records) set_switches(record, keyword, 1);
}

qk_mem_debug* record_named(Switches& switches, const char* routine) {
  for (int i = 0; i < kRoutines; ++i) {
    if (std::strcmp(Qk_mem_debug[i].routine, routine) == 0) return &switches.records[i];
  }
  return nullptr;
}

/** Applies a keyword's list of routines, which "not" in front turns into exclusions. */
int apply_list(Switches& switches, char* list, const SwitchKeyword& keyword, qk::Status& status) {
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
      set_all_switches(switches, keyword);
      value = 0;
    } else if (qk_mem_debug* record = record_named(switches, name)) {
      set_switches(*record, keyword, value);
    } else {
      return Refusal(status, QK_MEM_ERROR_ROUTINE, kRoutine, own::kDebugUnknownRoutine)
          .subject(name)
          .code();
    }
  }
  return 0;
}

/** What came before a list that is refused stays. */
int apply_switches(Switches& switches, const DebugCall& call, qk::Status& status) {
  for (int i = 0; i < kSwitchKeywords; ++i) {
    if (!call.has(i)) continue;
    set_switches(switches.global(), kSwitches[i], 1);
    if (call.value(i) == nullptr) {
      set_all_switches(switches, kSwitches[i]);
    } else if (const int code = apply_list(switches, call.value(i), kSwitches[i], status)) {
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
  Switches switches;
  if (call.has(kOff)) {
    switches.put_in_force();
    if (has_any_switch(call)) {
      return Refusal(*status, QK_MEM_ERROR_OFF_WITH_OTHERS, kRoutine, own::kDebugOffWithOthers)
          .arguments("OFF", "any activating option")
          .code();
    }
    switch_log_off();
    return 0;
  }
  if (!choose_log(call)) {
    switches.put_in_force();
    return 0;
  }
  OptionText text(options);
  if (!call.process(text)) {
    switches.put_in_force();
    return refuse_options(*status, kRoutine, own::kDebugProcessed, call.error());
  }
  const int code = apply_switches(switches, call, *status);
  switches.put_in_force();
  return code;
}
