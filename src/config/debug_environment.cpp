// Debug switches from the environment.
#include <cstdlib>

#include "config/debug_config.h"
#include "core/option_call.h"
#include "core/registry.h"
#include "diag/log.h"

namespace qk::mem {
namespace {

using Configure = int (*)(const char* options, qk::Status* status);

/**
 * Applies an environment variable, cut to the length of an option string. The line about it is
 * written afterwards, so that it goes to the log that the string has chosen.
 */
void apply_variable(const char* variable, Configure configure, qk::Status& status) {
  const char* value = ::secure_getenv(variable);
  if (value == nullptr || *value == '\0') return;
  OptionText copy(value);
  configure(copy.text(), &status);
  qk_mem_write_log("%s:  initializing options [%s]\n", variable, copy.text());
  if (status.code == 0) return;
  qk_mem_write_log("%s:  WARNING: invalid options [%s]\n", variable, copy.text());
  QK_CLEAR_STATUS(&status);
}

void write_names() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for (int i = 0; i < kRoutines; ++i) {
    Qk_mem_debug[i] = {};
    qk::copy_text(Qk_mem_debug[i].routine, sizeof Qk_mem_debug[i].routine, kRoutineNames[i].listed);
  }
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_debug_init(qk::Status* status) {
  using namespace qk::mem;
  const RegistryLock lock;
  QK_CLEAR_STATUS(status);
  if (Qk_mem_debug_initialized != 0) return status->code;
  Qk_mem_debug_initialized = 1;
  write_names();
  apply_variable("QK_MEM_DEBUG", qk_mem_debug_config, *status);
  apply_variable("QK_MEM_DUMP", qk_mem_dump_config, *status);
  return status->code;
}
