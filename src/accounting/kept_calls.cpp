#include "accounting/kept_calls.h"

#include "accounting/handle_lookup.h"
#include "accounting/pieces.h"
#include "accounting/recording.h"
#include "core/registry.h"
#include "profile/notes.h"
#include "support/format.h"
#include "table/record_steps.h"

using namespace qk::mem;

extern "C" {

int qk_mem_get_handle(int hid, qk_mem_handle** handle, const char* routine, const char* file,
                      int line, qk_mem_debug* debug) {
  qk_mem_handle* found = look_up_handle(hid, CallContext(routine, file, line, *debug));
  if (found == nullptr) return QK_MEM_ERROR_HANDLE;
  *handle = found;
  return 0;
}

qk_mem_ptr* qk_mem_new_ptr(qk_mem_handle* handle, void* address, unsigned char kind,
                           const char* file, int line, qk_mem_debug* debug) {
  const CallContext context("qk_mem_new_ptr", file, line, *debug);
  qk_mem_ptr record = {};
  record.address = address;
  record.kind = kind;
  if (insert_or_grow(*handle, record, EventCount::kNotCounted, {}, context).result !=
      InsertResult::kInserted) {
    return nullptr;
  }
  const qk_mem_ptr_array& array = array_of(*handle, address);
  return &array.ptrs[array.last];
}

qk_mem_ptr* qk_mem_get_ptr(qk_mem_handle* handle, const void* address) {
  const HandleLock lock(*handle);
  qk_mem_ptr_array& array = array_of(*handle, address);
  const std::int32_t index = find_slot(array, address);
  return index == kNoSlot ? nullptr : &array.ptrs[index];
}

void qk_mem_free_ptr(qk_mem_handle* handle, qk_mem_ptr* record) {
  const HandleLock lock(*handle);
  qk_mem_ptr_array& array = array_of(*handle, record->address);
  const std::int32_t index = find_slot(array, record->address);
  if (index <= 0) return;
  if (profile::is_watched(*handle)) {
    profile::note_gone(*handle, {array, index}, {nullptr, 0, history::Ending::kFreed});
  }
  vacate(*handle, array, index, record->kind, qk::is_single_threaded());
}

void* qk_mem_block_alloc(qk_mem_handle* handle, std::size_t size, int alignment, const char* file,
                         int line, qk_mem_debug* entry) {
  return allocate_piece(*handle, size, alignment,
                        CallContext(names_of(Routine::kNewBlock).logged, file, line, *entry))
      .address;
}

qk_mem_ptr* qk_mem_block_free(qk_mem_handle* handle, void* ptr, qk_mem_ptr* record,
                              const char* file, int line, qk_mem_debug* entry) {
  const CallContext context("qk_mem_block_free", file, line, *entry);
  if (record == nullptr) record = qk_mem_get_ptr(handle, ptr);
  if (record == nullptr) {
    report_unknown_piece(*handle, ptr, context);
  } else {
    release_piece(*handle, ptr, {*record, kNoSlot, ChargedTo::kNothing, {}}, context);
  }
  return record;
}

char* qk_mem_location_string(const char* file, int line, char* buf) {
  qk_sprintf(buf, "%s:%d", file, line);
  return buf;
}

}  // extern "C"
