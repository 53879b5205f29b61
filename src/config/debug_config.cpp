// Configuration of the watched routines and of the log.
#include "config/debug_config.h"

#include <cstring>

#include "config/log_destination.h"
#include "config/refusal.h"
#include "config/word_rules.h"
#include "core/option_call.h"
#include "core/registry.h"
#include "core/roads.h"
#include "diag/log.h"

namespace qk::mem {
namespace {

constexpr char kRoutine[] = "qk_mem_debug_config";

/** The keywords beside those of kSwitches, which come first in the table. */
enum Keyword { kOff = kSwitchKeywords, kLog, kAppend, kFlush, kKeywords };

constexpr std::array<qk_option_keyword, kKeywords> keywords() {
  std::array<qk_option_keyword, kKeywords> table = {};
  for (int i = 0; i < kSwitchKeywords; ++i) {
    table[i] = keyword(kSwitches[i].keyword, qk::kOptionalValue);
  }
  table[kOff] = keyword("OFF", qk::kNoValue);
  table[kLog] = keyword("LOG", qk::kRequiredValue);
  table[kAppend] = keyword("APPEND", qk::kNoValue);
  table[kFlush] = keyword("FLUSH", qk::kNoValue);
  return table;
}
constexpr std::array<qk_option_keyword, kKeywords> kTable = keywords();
using DebugCall = OptionCall<kTable.size()>;

bool has_any_switch(const DebugCall& call) {
  for (int i = 0; i < kSwitchKeywords; ++i) {
    if (call.has(i)) return true;
  }
  return false;
}

bool needs_log(const DebugCall& call) {
  for (int i = 0; i < kSwitchKeywords; ++i) {
    if (call.has(i) && kSwitches[i].needs_log) return true;
  }
  return false;
}

/**
 * A configuration that is being put together. It replaces the current one at the end, since other
 * threads read the switches meanwhile: a switch that stays on must not look off even for a moment.
 */
struct Switches {
  qk_mem_debug records[kRoutines] = {};

  [[nodiscard]] qk_mem_debug& global() { return records[static_cast<int>(Routine::kGlobal)]; }

  void activate() const QK_REQUIRES(Qk_mem_mtx) {
    assert_registry_held();
    for (int i = 0; i < kRoutines; ++i) {
      qk::store(Qk_mem_debug[i].on, records[i].on);
      qk::store(Qk_mem_debug[i].ctrlblks, records[i].ctrlblks);
      qk::store(Qk_mem_debug[i].debug, records[i].debug);
      qk::store(Qk_mem_debug[i].exceptions, records[i].exceptions);
      qk::store(Qk_mem_debug[i].summary, records[i].summary);
      qk::store(Qk_mem_debug[i].trace, records[i].trace);
    }
    settle_all_roads();
  }
};

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

/** Applies a keyword's list of routines. With "not" in front it lists exclusions. */
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

/** Applies all keywords. If a list is refused, the switches before it stay set. */
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

WordRules debug_word_rules() {
  static constexpr auto kForms = forms_of(kTable);
  return {kForms};
}

std::span<const std::string_view> listed_routines() {
  static constexpr auto kNames = [] {
    std::array<std::string_view, kRoutines> names;
    for (int i = 0; i < kRoutines; ++i) names[i] = kRoutineNames[i].listed;
    return names;
  }();
  return kNames;
}

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
    switches.activate();
    if (has_any_switch(call)) {
      return Refusal(*status, QK_MEM_ERROR_OFF_WITH_OTHERS, kRoutine, own::kDebugOffWithOthers)
          .arguments("OFF", "any activating option")
          .code();
    }
    switch_log_off();
    return 0;
  }
  const LogChoice log = {call.has(kLog) ? call.value(kLog) : nullptr, call.has(kAppend),
                         call.has(kFlush)};
  if (needs_log(call) && !choose_log(log, kRoutine)) {
    switches.activate();
    return 0;
  }
  OptionText text(options);
  if (!call.process(text)) {
    switches.activate();
    return refuse_options(*status, kRoutine, own::kDebugProcessed, call.error());
  }
  const int code = apply_switches(switches, call, *status);
  switches.activate();
  return code;
}
