#include "core/shutdown.h"

#include <atomic>

#include "core/handle_array.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/tag_shares.h"
#include "support/shared_variable.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

/** Handles that were still live when the registry was retired. */
constinit qk_mem_handle* surviving_handles QK_GUARDED_BY(Qk_mem_mtx) = nullptr;

constinit std::atomic<bool> overhead_number_is_gone = false;

void add_survivor(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  handle.next_survivor = surviving_handles;
  surviving_handles = &handle;
}

/** Of the survivors, AUTOFREE handles alone were hidden. */
bool is_hidden(const qk_mem_handle& survivor) { return survivor.autofree != 0; }

}  // namespace

void retire_overhead_number() { overhead_number_is_gone = !qk::is_single_threaded(); }

std::int32_t first_slot_for_new() { return overhead_number_is_gone ? 1 : 0; }

void hide_handle(qk_mem_handle& handle) {
  assert_registry_held();
  take_from_tag(handle);
  empty_handle_slot(handle.id - 1);
  add_survivor(handle);
}

qk_mem_handle** retire_registry() {
  assert_registry_held();
  for_each_handle([](qk_mem_handle& handle) {
    assert_registry_held();
    add_survivor(handle);
  });
  qk_mem_handle** array = Qk_mem_handles;
  replace_handle_array(nullptr, 0);
  qk::store(Qk_mem_avail_handles, 0);
  return array;
}

void restore_surviving_handles() {
  assert_registry_held();
  if (qk::is_single_threaded()) return;
  const HandleSlots handles = handle_slots();
  for (qk_mem_handle** link = &surviving_handles; *link != nullptr;) {
    qk_mem_handle* handle = *link;
    if (handle->id > handles.count || handles.numbered(handle->id) != nullptr) {
      link = &handle->next_survivor;
      continue;
    }
    *link = handle->next_survivor;
    fill_handle_slot(handle->id - 1, *handle);
    settle_roads(*handle);
    if (is_hidden(*handle)) return_to_tag(*handle);
  }
}

void for_each_shown_survivor(void (*visit)(qk_mem_handle&)) {
  assert_registry_held();
  for (qk_mem_handle* handle = surviving_handles; handle != nullptr;
       handle = handle->next_survivor) {
    if (!is_hidden(*handle)) visit(*handle);
  }
}

void unlist_handle(qk_mem_handle& handle) {
  assert_registry_held();
  const HandleSlots handles = handle_slots();
  // Once the registry is retired, another handle can have the same number.
  if (handles.numbered(handle.id) == &handle) {
    empty_handle_slot(handle.id - 1);
    return;
  }
  for (qk_mem_handle** link = &surviving_handles; *link != nullptr;
       link = &(*link)->next_survivor) {
    if (*link != &handle) continue;
    *link = handle.next_survivor;
    return;
  }
}

}  // namespace qk::mem
