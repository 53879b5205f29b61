#include "table/lookup.h"

#include <mutex>

#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/log.h"

namespace qk::mem {
namespace {

/** Close to the end of the handle array a creation may be replacing it. */
constexpr std::int32_t kGrowthMargin = 10;

bool growth_is_near() {
  return qk::load(Qk_mem_num_handles) > qk::load(Qk_mem_avail_handles) - kGrowthMargin;
}

qk_mem_handle* handle_of(int hid) {
  std::unique_lock lock(Qk_mem_mtx, std::defer_lock);
  if (growth_is_near()) lock.lock();
  return handle_slots().numbered(hid);
}

}  // namespace

qk_mem_handle* open_handle(int hid, const Site& site) {
  if (hid >= 1) {
    if (qk_mem_handle* handle = handle_of(hid)) return handle;
  }
  if (traces(site)) {
    qk_mem_write_log("   %s: ERROR: invalid hid %d at %s:%d\n", site.routine, hid, site.file(),
                     site.line);
  }
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  return nullptr;
}

}  // namespace qk::mem
