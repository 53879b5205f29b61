#include "table/pointer_table.h"

#include <cstdint>

#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "diag/log.h"
#include "diag/system_failure.h"
#include "table/record_steps.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

constexpr char kRoutine[] = "qk_mem_new_ptr";
constexpr std::int32_t kFirstSlots = 16;
constexpr std::int32_t kMoreSlots = 64;

std::uint64_t bytes_of_slots(std::int32_t slots) {
  return static_cast<std::uint64_t>(slots) * kSlotBytes;
}

void report_failed_growth(const Site& site, std::size_t bytes, SystemFailure& failure) {
  if (!reports(site)) return;
  qk_mem_write_log("   %s: ERROR: realloc of %zu at %s:%d of a->ptrs failed: %d %s\n", site.routine,
                   bytes, site.file(), site.line, failure.number(), failure.text());
}

/** Writes slot 0 anew after a growth and tells of it. */
void record_array(qk_mem_handle& handle, qk_mem_ptr_array& array, std::uint64_t growth,
                  const Site& site) {
  assert_held(handle);
  qk_mem_ptr own = read_slot(array.ptrs[0]);
  own.address = array.ptrs;
  own.file = site.file();
  own.line = static_cast<std::uint16_t>(site.line);
  own.count = static_cast<std::uint64_t>(array.capacity);
  own.size = kSlotBytes;
  own.seq = next_seq();
  own.kind = kind::kPointerArray;
  write_slot(array.ptrs[0], own);
  announce_made(lines::kAllocated, site, handle.id, own, static_cast<long>(growth),
                Located::kByCaller);
}

/** The array's own record, in slot 0, is among what it holds from the start. */
void begin_array(qk_mem_handle& handle, qk_mem_ptr_array& array) {
  assert_held(handle);
  array.free_from = 1;
  qk::bump(array.used, 1);
  qk::bump(handle.overhead_qty, 1);
}

/** Grows a full array; fingerprints, where it has any, are accounted for nowhere. */
bool grow(qk_mem_handle& handle, qk_mem_ptr_array& array, const Site& site) {
  assert_registry_held();
  assert_held(handle);
  const bool is_first = array.capacity == 0;
  const std::int32_t added = is_first ? kFirstSlots : kMoreSlots;
  const std::int32_t capacity = array.capacity + added;
  if (!enlarge(array, capacity)) {
    SystemFailure failure;
    report_failed_growth(site, bytes_of_slots(capacity), failure);
    return false;
  }
  if (is_first) begin_array(handle, array);
  qk::bump(handle.overhead_amount, bytes_of_slots(added));
  record_array(handle, array, bytes_of_slots(added), site);
  return true;
}

}  // namespace

RecordingLock::RecordingLock(const qk_mem_handle& handle, const qk_mem_ptr_array& array)
    : handle_(handle.mtx) {
  if (handle_ != nullptr) handle_->lock();
  if (!is_full(array)) return;
  if (handle_ != nullptr) handle_->unlock();
  Qk_mem_mtx.lock();
  holds_registry_ = true;
  if (handle_ != nullptr) handle_->lock();
}

RecordingLock::~RecordingLock() {
  if (handle_ != nullptr) handle_->unlock();
  if (holds_registry_) Qk_mem_mtx.unlock();
}

std::int32_t reserve_slot(qk_mem_handle& handle, qk_mem_ptr_array& array, const Site& site) {
  assert_held(handle);
  if (is_full(array) && !grow(handle, array, site.as(kRoutine))) return kNoSlot;
  const std::int32_t index = first_free_slot(array);
  if (index == kNoSlot && reports(site)) {
    qk_mem_write_log("   %s: WARNING: ptr array not large enough\n", kRoutine);
  }
  return index;
}

void add_bytes(qk_mem_handle& handle, Totals totals, unsigned char kind, std::uint64_t bytes) {
  const HandleLock lock(handle);
  sum_bytes(handle, totals, kind, bytes, qk::is_single_threaded());
}

std::optional<qk_mem_ptr> record_pointer(qk_mem_handle& handle, void* address, unsigned char kind,
                                         const Contents& contents, const Site& site,
                                         Totals totals) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const RecordingLock lock(handle, array);
  const std::int32_t index = reserve_slot(handle, array, site);
  if (index == kNoSlot) return std::nullopt;
  const qk_mem_ptr record = {address,
                             contents.tracker,
                             site.file(),
                             contents.count,
                             contents.size,
                             next_seq(),
                             static_cast<std::uint16_t>(site.line),
                             kind,
                             0};
  occupy(handle, array, index, record, totals, qk::is_single_threaded());
  return record;
}

std::optional<qk_mem_ptr> find_pointer(qk_mem_handle& handle, const void* address) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = find_slot(array, address);
  if (index == kNoSlot) return std::nullopt;
  return read_slot(array.ptrs[index]);
}

std::optional<Taken> take_pointer(qk_mem_handle& handle, const void* address, Totals totals) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = find_slot(array, address);
  if (index == kNoSlot) return std::nullopt;
  const Taken taken = {read_slot(array.ptrs[index]), index};
  take_out(handle, array, index, totals, qk::is_single_threaded());
  return taken;
}

void put_back(qk_mem_handle& handle, const Taken& taken, Totals totals) {
  const HandleLock lock(handle);
  qk_mem_ptr_array& array = array_of(handle, taken.record.address);
  if (slots_of(array) == 0) return;
  const std::int32_t index = is_free(array, taken.index) ? taken.index : first_free_slot(array);
  if (index != kNoSlot) {
    occupy(handle, array, index, taken.record, totals, qk::is_single_threaded());
  }
}

void remove_visited(qk_mem_handle& handle, qk_mem_ptr_array& array, std::int32_t index) {
  assert_held(handle);
  vacate(handle, array, index, kClearedKind, qk::is_single_threaded());
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
