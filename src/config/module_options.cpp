// Module-wide options: heap sizes in the log, the trace file, flushing.
#include <cstdlib>

#include "config/refusal.h"
#include "config/word_rules.h"
#include "core/kinds.h"
#include "core/option_call.h"
#include "core/registry.h"
#include "core/switches.h"
#include "core/upcalls.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/output_file.h"
#include "diag/trace_file.h"

namespace qk::mem {
namespace {

constexpr char kRoutine[] = "qk_mem_options";

enum Keyword { kHeapsize, kDb, kFlush };

constexpr std::array<qk_option_keyword, 3> kTable = {
    keyword("HEAPSIZE", qk::kNoValue),
    keyword("DB", qk::kOptionalValue),
    keyword("FLUSH", qk::kOptionalValue),
};

bool takes_environment(const char* options) { return qk_strlen(options) == 0; }

const char* chosen_options(const char* options) {
  return takes_environment(options) ? ::secure_getenv("QK_MEM_OPTIONS") : options;
}

/** Opens the trace file, once per process and only while debugging. False if it can't be opened. */
bool open_trace_file(const char* name) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (Qk_mem_db != nullptr || !debugging()) return true;
  FILE* stream = open_output(kRoutine, name == nullptr ? "qkmem.tdf" : name, "w");
  if (stream == nullptr) return false;
  start_trace_file(stream);
  next_seq();
  const std::int64_t heap = Qk_mem_init_heap;
  qk_mem_write_db(0, event::kTraceOpened, nullptr, 1,
                  heap < 0 ? 0 : static_cast<unsigned long>(heap), own::kTraceFile.file,
                  own::kTraceFile.line, heap);
  return true;
}

}  // namespace

WordRules module_word_rules() {
  static constexpr auto kForms = forms_of(kTable);
  return {kForms};
}

}  // namespace qk::mem

extern "C" int qk_mem_options(const char* options, qk::Status* status) {
  using namespace qk::mem;
  if (status == nullptr) return QK_MEM_ERROR_NULL_STATUS;
  ensure_started();
  const RegistryLock lock;
  const char* chosen = chosen_options(options);
  qk::store(Qk_mem_opts, 0);
  if (qk_strlen(chosen) == 0) return status->code;
  OptionText text(chosen);
  // A variable is cut to the length of an option string, as the other two are.
  if (takes_environment(options)) text.accept_cut();
  if (text.too_long()) {
    return refuse_length(*status, kRoutine, own::kOptionsTooLong, "options", text.length());
  }
  OptionCall call(kTable);
  if (!call.process(text)) {
    return refuse_options(*status, kRoutine, own::kOptionsInvalid, call.error());
  }
  if (call.has(kHeapsize)) qk::store(Qk_mem_opts, 1);
  if (call.has(kDb) && !open_trace_file(call.value(kDb))) return status->code;
  if (call.has(kFlush)) {
    unbuffer_log();
    unbuffer_trace_file();
  }
  return status->code;
}
