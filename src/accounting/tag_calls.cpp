#include "accounting/tag_calls.h"

#include "core/switches.h"
#include "core/tag_shares.h"
#include "diag/log.h"
#include "support/text.h"
#include "table/tags.h"

extern "C" qk_mem_tag* qk_mem_register_tag(const char* name) {
  using namespace qk::mem;
  const RegistryLock lock;
  qk_mem_tag* tag = find_or_add_tag(name);
  if (tag != nullptr) return tag;
  Qk_mem_error.set(QK_MEM_ERROR_TAG);
  if (logs_errors(global_switches())) {
    qk_mem_write_log("   %s: ERROR: Max number of accounting tags reached: %d\n",
                     "qk_mem_register_tag", kMaxTags);
  }
  return nullptr;
}

extern "C" int64_t qk_mem_tag_size(const char* name) {
  using namespace qk::mem;
  const std::size_t length = qk_strlen(name);
  if (length == 0 || length > kTagLength) return 0;
  char upper[kTagLength + 1];
  qk::copy_text(upper, sizeof upper, name);
  qk::upper_case(upper);
  const RegistryLock lock;
  const qk_mem_tag* tag = find_tag(upper);
  if (tag == nullptr) return 0;
  fold_tag_shares();
  return static_cast<int64_t>(qk::load(tag->amount));
}
