#include "accounting/walks.h"

#include <algorithm>

#include "check/settings.h"
#include "core/kinds.h"
#include "diag/heap.h"
#include "diag/trace_file.h"
#include "support/system_memory.h"
#include "table/pointer_table.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** The walks that take notes, the latest first. */
constinit Walk* walks QK_GUARDED_BY(Qk_mem_mtx) = nullptr;

/** Records of a handle, and how many of them are objects and arrays. */
struct Counts {
  std::uint32_t records = 0;
  std::uint32_t objects = 0;
};

Counts count_records(const qk_mem_handle& handle) {
  Counts counts;
  const HandleLock lock(handle);
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t i = 1; i < slots; ++i) {
      if (recorded_address(array.ptrs[i]) == nullptr) continue;
      ++counts.records;
      if (is_language_made(qk::load(array.ptrs[i].kind))) ++counts.objects;
    }
  }
  return counts;
}

/**
 * Whether the heap's size is shown with each record that is released. It must then be the one after
 * the release, as without objects.
 */
bool shows_heap() { return qk::load(Qk_mem_opts) != 0 || qk::acquire(Qk_mem_db) != nullptr; }

}  // namespace

template <class Visit>
void Walk::for_each_over(const qk_mem_handle& handle, Visit visit) {
  assert_registry_held();
  for (Walk* walk = walks; walk != nullptr; walk = walk->next_) {
    if (&walk->handle_ == &handle) visit(*walk);
  }
}

ReleaseNotes::Note* Walk::take_note(const qk_mem_handle& handle, const void* address, Take take) {
  assert_registry_held();
  ReleaseNotes::Note* note = nullptr;
  for_each_over(handle, [&](Walk& walk) {
    if (note == nullptr) note = (walk.notes_.*take)(address);
  });
  return note;
}

bool Walk::lacks_notes(const qk_mem_handle& handle) {
  assert_registry_held();
  bool lacks = false;
  for_each_over(handle, [&](const Walk& walk) { lacks = lacks || walk.lacks_memory_; });
  return lacks;
}

void Walk::expect_object(const qk_mem_handle& handle) {
  assert_registry_held();
  for_each_over(handle, [](Walk& walk) { ++walk.objects_; });
}

Walk::Walk(qk_mem_handle& handle) : handle_(handle) {
  if (qk::load(handle.registered) == 0) return;
  const Counts counts = count_records(handle);
  objects_ = counts.objects;
  if (objects_ == 0) return;
  lacks_memory_ = !notes_.reserve(counts.records);
  begin();
}

Walk::~Walk() {
  if (is_noting_) end();
}

void Walk::begin() {
  // Memory of containers is that of an object's, if it is still there. Then safety comes first.
  holds_memory_back_ = !shows_heap() || qk::load(handle_.serves_containers) != 0;
  is_noting_ = true;
  const RegistryLock lock;
  next_ = walks;
  walks = this;
  qk::store(handle_.is_walked, 1);
}

void Walk::unlist() {
  const RegistryLock lock;
  Walk** link = &walks;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
  std::uint8_t others = 0;
  for_each_over(handle_, [&](const Walk& /*other*/) { others = 1; });
  qk::store(handle_.is_walked, others);
}

void Walk::end() {
  is_noting_ = false;
  unlist();
  notes_.for_each_held([](void* memory) { user_memory::release(memory); });
}

void Walk::note_object(const qk_mem_ptr& record) {
  if (!is_noting_) return;
  const RegistryLock lock;
  // An owner can know the object by a base of it.
  if (notes_.add(record.address, std::max<std::uint64_t>(bytes_of(record), 1)) == nullptr) {
    lacks_memory_ = true;
  }
}

bool Walk::note_memory(const qk_mem_ptr& record, profile::Mark mark) {
  if (!is_noting_) return false;
  const RegistryLock lock;
  ReleaseNotes::Note* note = notes_.add(record.address, 1);
  if (note == nullptr) {
    lacks_memory_ = true;
    return false;
  }
  if (holds_memory_back_ && is_system_memory(record.kind)) {
    note->is_held = true;
    note->front = check::layout_of(mark).front;
  }
  return note->is_held;
}

std::uint32_t Walk::count_down() {
  const RegistryLock lock;
  return --objects_;
}

void Walk::note_destroyed() {
  if (is_noting_ && count_down() == 0) end();
}

namespace {

bool is_noted(qk_mem_handle& handle, const void* address, Walk::Take take) {
  if (address == nullptr || find_pointer(handle, address)) return false;
  const RegistryLock lock;
  return Walk::take_note(handle, address, take) != nullptr || Walk::lacks_notes(handle);
}

}  // namespace

bool was_released_by_walk(qk_mem_handle& handle, const void* address) {
  return is_noted(handle, address, &ReleaseNotes::take);
}

bool was_destroyed_by_walk(qk_mem_handle& handle, const void* object) {
  return is_noted(handle, object, &ReleaseNotes::take_around);
}

bool take_back_from_walk(qk_mem_handle& handle, const void* address) {
  if (address == nullptr || find_pointer(handle, address)) return true;
  const RegistryLock lock;
  ReleaseNotes::Note* note = Walk::take_note(handle, address, &ReleaseNotes::take);
  if (note == nullptr) return !Walk::lacks_notes(handle);
  // The allocator could not resize it, since it knows the memory by another address.
  if (note->front != 0) return false;
  const bool was_held = note->is_held;
  note->is_held = false;
  return was_held;
}

void tell_walks_of_object(const qk_mem_handle& handle, const void* address) {
  const RegistryLock lock;
  Walk::expect_object(handle);
  Walk::take_note(handle, address, &ReleaseNotes::take_around);
}

}  // namespace qk::mem
