// The current debug configuration as an option string.
#include <cstring>

#include "config/debug_config.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/log.h"
#include "support/text.h"

namespace qk::mem {
namespace {

/** The number of routines that can be listed: all but the global record. */
constexpr int kListed = kRoutines - 1;

/** Appends to a text in the caller's buffer. */
class Appender {
 public:
  explicit Appender(char* text) : text_(text), end_(text + QK_MEM_SETTINGS_SIZE) { *text = '\0'; }

  Appender& operator<<(const char* piece) {
    qk::copy_text(text_, static_cast<std::size_t>(end_ - text_), piece);
    text_ += std::strlen(text_);
    return *this;
  }

 private:
  char* text_;
  char* end_;
};

bool is_set(int routine, const SwitchKeyword& keyword) {
  return qk::load(Qk_mem_debug[routine].*keyword.shown) != 0;
}

int count_set(const SwitchKeyword& keyword) {
  int count = 0;
  for (int i = 1; i < kRoutines; ++i) count += is_set(i, keyword) ? 1 : 0;
  return count;
}

/** Appends the names of the routines with the switch, or of those without it. */
void append_names(Appender& text, const SwitchKeyword& keyword, bool wanted) {
  const char* separator = "";
  for (int i = 1; i < kRoutines; ++i) {
    if (is_set(i, keyword) != wanted) continue;
    text << separator << Qk_mem_debug[i].routine;
    separator = ",";
  }
}

/** Appends a keyword with the shorter of the two lists; no list if the switch is set for all. */
void append_switch(Appender& text, const SwitchKeyword& keyword) {
  const int set = count_set(keyword);
  const int unset = kListed - set;
  if (set == 0) return;
  text << keyword.keyword;
  if (unset >= set) {
    text << "='";
    append_names(text, keyword, true);
    text << "'";
  } else if (unset > 0) {
    text << "='not ";
    append_names(text, keyword, false);
    text << "'";
  }
  text << " ";
}

const char* log_name() {
  if (Qk_mem_log == stdout) return "stdout";
  if (Qk_mem_log == stderr) return "stderr";
  return Qk_mem_log_filename;
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_debug_settings(char* text, qk::Status* status) {
  using namespace qk::mem;
  if (status == nullptr) return QK_MEM_ERROR_NULL_STATUS;
  const RegistryLock lock;
  QK_CLEAR_STATUS(status);
  char nowhere[QK_MEM_SETTINGS_SIZE];
  Appender settings(text == nullptr ? nowhere : text);
  if (Qk_mem_debug_initialized == 0) {
    if (const int code = qk_mem_debug_init(status)) return code;
  }
  for (const SwitchKeyword& keyword : kSwitches) append_switch(settings, keyword);
  if (Qk_mem_log != nullptr) settings << " LOG=" << log_name();
  return status->code;
}

extern "C" int qk_mem_debug_on(void) {
  qk::mem::ensure_started();
  return qk::mem::debugging() ? 1 : 0;
}
