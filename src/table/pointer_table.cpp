#include "table/pointer_table.h"

#include "core/registry.h"
#include "profile/notes.h"
#include "table/record_steps.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

constexpr std::int32_t kFirstSlots = kSmallArray;
constexpr std::int32_t kMoreSlots = 64;

std::uint64_t bytes_of_slots(std::int32_t slots) {
  return static_cast<std::uint64_t>(slots) * kSlotBytes;
}

/** Rewrites slot 0 after a growth. */
qk_mem_ptr renew_array_record(qk_mem_handle& handle, qk_mem_ptr_array& array,
                              SourceLocation location) {
  assert_held(handle);
  qk_mem_ptr own = read_slot(array.ptrs[0]);
  own.address = array.ptrs;
  own.file = location.file;
  own.line = static_cast<std::uint16_t>(location.line);
  own.count = static_cast<std::uint64_t>(array.capacity);
  own.size = kSlotBytes;
  own.seq = next_seq();
  own.kind = kind::kPointerArray;
  write_slot(array.ptrs[0], own);
  return own;
}

/** The array's own record, in slot 0, counts as its first record. */
void begin_array(qk_mem_handle& handle, qk_mem_ptr_array& array) {
  assert_held(handle);
  qk::bump(array.used, 1);
  qk::bump(handle.overhead_qty, 1);
}

history::Ending ending_by(Removal removal) {
  return removal == Removal::kByDeregister ? history::Ending::kDeregistered
                                           : history::Ending::kFreed;
}

/** A function of its own, so that the usual case saves no registers. */
[[gnu::noinline]] void remove_watched(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                      std::int32_t index) {
  profile::note_gone(handle, {array, index}, {nullptr, 0, history::Ending::kWithHandle});
  vacate(handle, array, index, kClearedKind, qk::is_single_threaded());
}

}  // namespace

Insertion insert_pointer(qk_mem_handle& handle, qk_mem_ptr record, EventCount event,
                         const profile::Origin& origin) {
  qk_mem_ptr_array& array = array_of(handle, record.address);
  const HandleLock lock(handle);
  if (is_full(array)) return {InsertResult::kArrayFull};
  if (profile::needs_mark(origin) && !profile::has_room_for_marks(handle, array)) {
    return {InsertResult::kUnmarked};
  }
  const std::int32_t index = take_free_slot(array);
  if (index == kNoSlot) return {InsertResult::kArrayLost};
  if (event == EventCount::kCounted) record.seq = next_seq();
  fill_slot(handle, array, index, record, charged_to(record.kind), qk::is_single_threaded());
  if (profile::is_watched(handle)) profile::note_made(handle, {array, index}, origin);
  return {InsertResult::kInserted, record};
}

ArrayGrowth grow_array(qk_mem_handle& handle, const void* address, SourceLocation location) {
  const RegistryAndHandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, address);
  if (!is_full(array)) return {};
  const bool is_first = array.capacity == 0;
  const std::int32_t added = is_first ? kFirstSlots : kMoreSlots;
  const std::int32_t capacity = array.capacity + added;
  if (!enlarge(array, capacity)) return {.failed = true, .bytes = bytes_of_slots(capacity)};
  if (is_first) begin_array(handle, array);
  // The index that a large array has in addition is not accounted for.
  qk::bump(handle.overhead_amount, bytes_of_slots(added));
  return {.bytes = bytes_of_slots(capacity),
          .added = bytes_of_slots(added),
          .array_record = renew_array_record(handle, array, location)};
}

std::optional<Removed> remove_pointer(qk_mem_handle& handle, const void* address, Removal removal,
                                      SourceLocation by) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = find_slot(array, address);
  if (index == kNoSlot) return std::nullopt;
  const qk_mem_ptr record = read_slot(array.ptrs[index]);
  const ChargedTo sum = sum_for(handle, removal, record.kind);
  profile::Mark mark = {};
  if (index != 0 && profile::is_watched(handle)) {
    mark = profile::mark_in(handle, {array, index});
    profile::note_gone(handle, {array, index}, {by.file, by.line, ending_by(removal)});
  }
  remove_record(handle, array, index, sum, qk::is_single_threaded());
  return Removed{record, index, sum, mark};
}

std::optional<Removed> set_aside_pointer(qk_mem_handle& handle, const void* address,
                                         SourceLocation by) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = find_slot(array, address);
  if (index == kNoSlot) return std::nullopt;
  const qk_mem_ptr record = read_slot(array.ptrs[index]);
  const ChargedTo sum = sum_for(handle, Removal::kByRealloc, record.kind);
  profile::Mark mark = {};
  if (index != 0 && profile::is_watched(handle)) {
    mark = profile::mark_in(handle, {array, index});
    profile::note_set_aside(handle, {array, index}, {by.file, by.line, history::Ending::kResized});
  }
  set_aside(handle, array, index, sum, qk::is_single_threaded());
  return Removed{record, index, sum, mark};
}

Removed set_aside_in(qk_mem_handle& handle, void* address, std::int32_t index) {
  const HandleLock lock(handle);
  qk_mem_ptr record = read_slot(array_of(handle, address).ptrs[index]);
  record.address = address;
  return {record, index, ChargedTo::kData, {}};
}

void restore_pointer(qk_mem_handle& handle, const Removed& set_aside) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, set_aside.record.address);
  if (set_aside.index != 0 && !is_set_aside(array, set_aside.index)) return;
  put_back(handle, array, set_aside.index, set_aside.record, set_aside.charged_to,
           qk::is_single_threaded());
  if (set_aside.index != 0 && profile::is_watched(handle)) {
    profile::note_back(handle, {array, set_aside.index});
  }
}

void free_place_of(qk_mem_handle& handle, const Removed& set_aside) {
  const HandleLock lock(handle);
  free_place(array_of(handle, set_aside.record.address), set_aside.index);
}

std::optional<qk_mem_ptr> find_pointer(qk_mem_handle& handle, const void* address) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = find_slot(array, address);
  if (index == kNoSlot) return std::nullopt;
  return read_slot(array.ptrs[index]);
}

void remove_visited(qk_mem_handle& handle, qk_mem_ptr_array& array, std::int32_t index) {
  assert_held(handle);
  if (profile::is_watched(handle)) [[unlikely]]
    return remove_watched(handle, array, index);
  vacate(handle, array, index, kClearedKind, qk::is_single_threaded());
}

void add_bytes(qk_mem_handle& handle, ChargedTo sum, std::uint64_t bytes) {
  const HandleLock lock(handle);
  charge(handle, tag_sums_of(handle, qk::is_single_threaded()), sum, bytes);
}

}  // namespace qk::mem

extern "C" void qk_mem_free_ptrs(qk_mem_handle* handle, int index) {
  using namespace qk::mem;
  assert_held(*handle);
  qk_mem_ptr_array& array = handle->ptrs[index];
  if (slots_of(array) == 0) return;
  qk::bump(array.used, -1);
  qk::bump(handle->overhead_qty, static_cast<std::uint32_t>(-1));
  qk::bump(handle->overhead_amount, 0 - bytes_of(array.ptrs[0]));
  clear_slot(array.ptrs[0]);
}
