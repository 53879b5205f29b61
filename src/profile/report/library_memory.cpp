#include "profile/report/library_memory.h"

#include "core/handle_array.h"
#include "core/registry.h"
#include "formats/trace_letters.h"
#include "profile/state.h"
#include "support/mtx_lock.h"
#include "table/slot.h"

namespace qk::mem::profile {
namespace {

bool is_within(const void* begin, std::uint64_t bytes, const void* address) {
  return begin != nullptr && offset_in(begin, address) < bytes;
}

bool is_in_records(const qk_mem_handle& handle, const void* address) {
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const auto slots = static_cast<std::uint64_t>(slots_of(array));
    if (slots != 0 && is_within(array.ptrs, slots * kSlotBytes, address)) return true;
  }
  return false;
}

bool is_in_tracker(const qk_mem_handle& handle, const void* address) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  bool found = false;
  for_each_record(handle, [&](const qk_mem_ptr& record) {
    if (record.kind != kind::kTracker) return;
    if (is_within(record.address, bytes_of(record), address)) found = true;
  });
  return found;
}

std::optional<LibraryPart> part_of_handle(const qk_mem_handle& handle, const void* address)
    QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (is_within(&handle, sizeof handle, address)) return LibraryPart::kHandle;
  if (is_within(handle.mtx, sizeof *handle.mtx, address)) return LibraryPart::kLock;
  if (is_in_records(handle, address)) return LibraryPart::kRecords;
  if (is_in_tracker(handle, address)) return LibraryPart::kTracker;
  return std::nullopt;
}

std::optional<LibraryMemory> find_of_handles(const void* address) {
  const RegistryLock lock;
  const HandleSlots handles = handle_slots();
  const auto bytes = static_cast<std::uint64_t>(handles.count) * sizeof(qk_mem_handle*);
  if (is_within(handles.slots, bytes, address)) return LibraryMemory{LibraryPart::kHandles, {}};
  if (is_within(Qk_mem_tags, sizeof Qk_mem_tags, address)) {
    return LibraryMemory{LibraryPart::kTags, {}};
  }
  std::optional<LibraryMemory> found;
  for_each_handle([&](const qk_mem_handle& handle) {
    assert_registry_held();
    if (found) return;
    if (const auto part = part_of_handle(handle, address)) found = {*part, name_of(handle)};
  });
  return found;
}

bool is_of_profile(const void* address) {
  const qk::MtxLock lock(growth_lock);
  return arena.has(address);
}

}  // namespace

std::optional<LibraryMemory> find_library_memory(const void* address) {
  const auto found = find_of_handles(address);
  if (found) return found;
  if (is_of_profile(address)) return LibraryMemory{LibraryPart::kProfile, {}};
  return std::nullopt;
}

void put_library_memory(qk::Line& line, const LibraryMemory& memory) {
  line.put("memory of the library itself: ");
  switch (memory.part) {
    case LibraryPart::kHandle:
      break;
    case LibraryPart::kLock:
      line.put("the lock of ");
      break;
    case LibraryPart::kRecords:
      line.put("records of ");
      break;
    case LibraryPart::kTracker:
      line.put("the tracker of an object on ");
      break;
    case LibraryPart::kHandles:
      line.put("the table of handles");
      return;
    case LibraryPart::kTags:
      line.put("the table of tags");
      return;
    case LibraryPart::kProfile:
      line.put("a table of the profile");
      return;
  }
  put_handle(line, memory.handle);
}

}  // namespace qk::mem::profile
